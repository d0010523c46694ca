#include <Platform/base/Errno.h>

#include <Platform/base/CancellationError.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include <gtest/gtest.h>

namespace Platform {
namespace {

TEST(Errno, DescribesItsNumberAlone) {
    const Errno error(ENOENT);
    EXPECT_STREQ(error.what(), "No such file or directory");
    EXPECT_EQ(error.number(), ENOENT);
    EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    EXPECT_STREQ(Errno(EACCES, "/some/path").what(), "/some/path: Permission denied");
}

TEST(Errno, AnyExceptionHasADescriptionOfOneLine) {
    EXPECT_EQ(errorDescription(std::make_exception_ptr(Errno(EPIPE))), "Broken pipe");
    EXPECT_EQ(errorDescription(std::make_exception_ptr(Errno(EPIPE, "a\nb"))), "a b: Broken pipe");
    EXPECT_EQ(errorDescription(std::make_exception_ptr(CancellationError())),
              "The operation was cancelled");
    EXPECT_EQ(errorDescription(std::make_exception_ptr(std::runtime_error("two\r\nlines\x1B"))),
              "two  lines ");
    EXPECT_EQ(errorDescription(std::make_exception_ptr(7)), "unknown error");
    EXPECT_EQ(errorDescription(nullptr), "unknown error");
}

} // namespace
} // namespace Platform
