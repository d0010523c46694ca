#include <Platform/base/UUID.h>

#include "Faults.h"

#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <unordered_set>

#include <gtest/gtest.h>

namespace Platform {
namespace {

TEST(UUID, AHundredThousandAreDistinctAndOfTheRightShape) {
    std::unordered_set<std::string> all;
    std::map<std::size_t, std::set<char>> seen; // at each place
    for (int count = 0; count < 100'000; ++count) {
        const std::string uuid = makeUUID();
        ASSERT_EQ(uuid.size(), 36u);
        for (std::size_t place = 0; place < uuid.size(); ++place) {
            seen[place].insert(uuid[place]);
        }
        ASSERT_TRUE(all.insert(uuid).second) << uuid;
    }
    for (const auto& [place, characters] : seen) {
        const std::string found(characters.begin(), characters.end());
        if (place == 8 || place == 13 || place == 18 || place == 23) {
            EXPECT_EQ(found, "-");
        } else if (place == 14) {
            EXPECT_EQ(found, "4");
        } else if (place == 19) {
            EXPECT_EQ(found, "89AB");
        } else {
            EXPECT_EQ(found, "0123456789ABCDEF");
        }
    }
}

TEST(UUID, AFailingRandomSourceIsAnError) {
    const Faults faults(Faults::failing(detail::SystemCall::getentropy, EIO));
    EXPECT_EQ(thrownNumber([] { makeUUID(); }), EIO);
    EXPECT_EQ(thrownNumber([] { makeUUID(); }), 0);
}

} // namespace
} // namespace Platform
