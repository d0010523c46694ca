#include <Platform/base/TemporaryDirectory.h>

#include "Scratch.h"

#include <gtest/gtest.h>

namespace Platform {
namespace {

TEST(TemporaryDirectory, FallsBackToTheRuntimeDirectoryThenToTheSharedOne) {
    const Variable none("TMPDIR", std::nullopt);
    const Variable runtime("XDG_RUNTIME_DIR", "/run/of/user/");
    EXPECT_EQ(temporaryDirectory(), "/run/of/user");
    for (const std::optional<std::string>& value :
         {std::optional<std::string>(), {""}, {"relative"}}) {
        const Variable unusable("XDG_RUNTIME_DIR", value);
        EXPECT_EQ(temporaryDirectory(), "/tmp");
        const Variable empty("TMPDIR", "");
        EXPECT_EQ(temporaryDirectory(), "/tmp");
    }
}

} // namespace
} // namespace Platform
