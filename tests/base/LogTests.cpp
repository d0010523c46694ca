#include <Platform/base/Log.h>

#include <Platform/base/Errno.h>
#include <Platform/base/detail/LogSink.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace Platform {
namespace {

constexpr Logger logger("someLabel");

std::vector<std::pair<std::string, std::string>> entries;

TEST(Log, AnEntryIsThePrefixAndOneLine) {
    const auto before = detail::setLogSink(
        [](const char* label, std::string_view text) { entries.emplace_back(label, text); });
    logger.error("it\nfailed");
    logger.error(std::make_exception_ptr(Errno(ENOENT, "/a path")));
    logger.error(std::make_exception_ptr(1));
    const auto sink = detail::setLogSink(before);
    EXPECT_NE(sink, nullptr);
    EXPECT_EQ(entries, (std::vector<std::pair<std::string, std::string>>{
                           {"someLabel", "error: it failed"},
                           {"someLabel", "error: /a path: No such file or directory"},
                           {"someLabel", "error: unknown error"}}));
}

} // namespace
} // namespace Platform
