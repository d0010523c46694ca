#include <Platform/base/Data.h>

#include <algorithm>
#include <limits>
#include <new>
#include <random>
#include <set>
#include <span>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace Platform {
namespace {

TEST(Data, MatchesAModelUnderRandomOperations) {
    std::mt19937 random(1);
    Data data;
    std::string model;
    for (int step = 0; step < 20'000; ++step) {
        const std::size_t from = random() % (model.size() + 1);
        const std::size_t count = random() % (model.size() - from + 1);
        switch (random() % 9) {
        case 0: {
            const std::string text(random() % 100, static_cast<char>(random()));
            data.append(text);
            model += text;
            break;
        }
        case 1: // a part of itself, which moves when the block grows
            if (model.size() < 5'000) {
                data.append(std::span(data).subspan(from, count));
                model += model.substr(from, count);
            }
            break;
        case 2:
            std::ranges::fill(data.appendUninitialized(count % 70), std::byte{'u'});
            model.append(count % 70, 'u');
            break;
        case 3:
            data.truncate(from + count);
            model.resize(std::min(model.size(), from + count));
            break;
        case 4:
            if (random() % 50 == 0) {
                data.clear();
                model.clear();
            }
            break;
        case 5: {
            Data moved = std::move(data);
            EXPECT_TRUE(data.empty()); // NOLINT: what a moved-from object is, is promised
            EXPECT_EQ(data.capacity(), 0u);
            data = std::move(moved);
            break;
        }
        case 6: {
            Data& self = data;
            data = std::move(self);
            data = self;
            break;
        }
        case 7: {
            const Data copy = data;
            data.append("x");
            EXPECT_EQ(copy.view(), model);
            EXPECT_NE(copy, data);
            data = copy;
            EXPECT_EQ(copy, data);
            break;
        }
        default:
            data.reserve(count * 2);
        }
        ASSERT_EQ(data.view(), model) << "step " << step;
        ASSERT_GE(data.capacity(), data.size());
    }
}

TEST(Data, GrowsByDoubling) {
    Data data;
    std::set<std::size_t> capacities;
    for (int count = 0; count < 1'000'000; ++count) {
        data.append("x");
        capacities.insert(data.capacity());
    }
    EXPECT_LT(capacities.size(), 25u);
}

TEST(Data, WipeOverwritesTheWholeBlock) {
    Data data("a secret, and a longer one before it");
    const std::size_t capacity = data.capacity();
    data.truncate(3);
    data.wipe();
    EXPECT_TRUE(data.empty());
    EXPECT_EQ(data.capacity(), capacity);
    EXPECT_TRUE(std::ranges::all_of(data.appendUninitialized(capacity),
                                    [](std::byte byte) { return byte == std::byte{}; }));
    Data().wipe();
}

TEST(Data, ImpossibleGrowthLeavesItAsItWas) {
    Data data("kept");
    for (const std::size_t count :
         {std::numeric_limits<std::size_t>::max(), std::numeric_limits<std::size_t>::max() / 2}) {
        EXPECT_THROW(data.appendUninitialized(count), std::bad_alloc);
    }
    EXPECT_EQ(data, Data("kept"));
}

} // namespace
} // namespace Platform
