# Builds the last commit of a local checkout; brew passes on only variables with its own prefix:
#   HOMEBREW_PLATFORM_CHECKOUT=$PWD brew install --HEAD packaging/homebrew/platform.rb
class Platform < Formula
  desc "Both ends of a hand-off between a version-control tool and its host"
  license "MIT"
  head "file://#{ENV["HOMEBREW_PLATFORM_CHECKOUT"]}", using: :git, branch: "main"

  depends_on "cmake" => :build

  def install
    system "cmake", "-S", ".", "-B", "build", *std_cmake_args, "-DPLATFORM_BUILD_TESTS=OFF",
           "-DPLATFORM_BUILD_EXAMPLES=OFF", "-DPLATFORM_BUILD_BENCH=OFF"
    system "cmake", "--build", "build"
    system "cmake", "--install", "build"
  end

  test do
    shell_output("#{bin}/editor-shim file", 1) # there is no host to ask
  end
end
