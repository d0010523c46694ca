#pragma once

#include <support/Testing.h>
#include <sys/xattr.h>

/// What the tests of attributes share: files that are marked with one, by the system's own calls.
namespace Platform {

inline const ExtendedAttributeName name("user.platform");

inline bool mark(const std::string& path) {
    return ::setxattr(path.c_str(), name.rawValue.c_str(), "x", 1, 0) == 0;
}

inline bool isMarked(const std::string& path) {
    return ::getxattr(path.c_str(), name.rawValue.c_str(), nullptr, 0) >= 0;
}

inline std::string file(const std::string& path) {
    return write(path, "");
}

inline std::string folder(const std::string& path) {
    std::filesystem::create_directory(path);
    return path;
}

/// A marked directory; without attributes for users the test says so and skips.
class Tree : public testing::Test {
protected:
    void SetUp() override {
        if (!mark(root)) GTEST_SKIP() << "no user attributes on the file system of " << root;
    }
    // The C++ library's own removal holds a descriptor for each level.
    void TearDown() override { run({"rm", "-rf", root}); }

    const NothingLeft nothingLeft;
    const Scratch scratch;
    const std::string root = folder(scratch / "root");
};

} // namespace Platform
