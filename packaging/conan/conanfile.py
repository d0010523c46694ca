"""The library as a Conan 2 package: conan create packaging/conan"""

import os
import re

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load


class PlatformConan(ConanFile):
    name = "platform"
    description = "Both ends of a hand-off between a version-control tool and its host"
    license = "MIT"
    package_type = "library"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False], "fPIC": [True, False]}
    default_options = {"shared": False, "fPIC": True}
    implements = ["auto_shared_fpic"]

    @property
    def _checkout(self):
        return os.path.join(self.recipe_folder, "..", "..")

    def set_version(self):
        project = load(self, os.path.join(self._checkout, "CMakeLists.txt"))
        self.version = re.search(r"project\(Platform VERSION ([0-9.]+)", project)[1]

    def export_sources(self):
        copy(self, "*", self._checkout, self.export_sources_folder, excludes=("build/*", ".git/*"))

    def layout(self):
        cmake_layout(self)

    def generate(self):
        CMakeDeps(self).generate()
        toolchain = CMakeToolchain(self)
        for part in ("TESTS", "EXAMPLES", "BENCH"):
            toolchain.cache_variables[f"PLATFORM_BUILD_{part}"] = False
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()

    def package_info(self):
        self.cpp_info.set_property("cmake_file_name", "Platform")
        self.cpp_info.set_property("cmake_target_name", "Platform::Platform")
        self.cpp_info.set_property("pkg_config_name", "platform")
        self.cpp_info.libs = ["Platform"]
        if self.settings.os == "Linux":
            self.cpp_info.system_libs = ["pthread"]
