#include <Platform/base/OrderedDictionary.h>

#include <algorithm>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace Platform {
namespace {

using Entries = std::vector<std::pair<int, int>>;

TEST(OrderedDictionary, MatchesAModelUnderRandomOperations) {
    std::mt19937 random(3);
    OrderedDictionary<int, int> dictionary;
    Entries model;
    for (int step = 0; step < 50'000; ++step) {
        const int key = static_cast<int>(random() % 40);
        const auto found =
            std::ranges::find_if(model, [&](const auto& entry) { return entry.first == key; });
        const bool known = found != model.end();
        switch (random() % 6) {
        case 0:
        case 1:
            EXPECT_EQ(dictionary.insert(key, step), !known);
            if (known) {
                found->second = step;
            } else {
                model.emplace_back(key, step);
            }
            break;
        case 2:
            EXPECT_EQ(dictionary.remove(key), known ? std::optional(found->second) : std::nullopt);
            if (known) {
                model.erase(found);
            }
            break;
        case 3:
            EXPECT_EQ(dictionary.removeFirst(),
                      model.empty() ? std::nullopt : std::optional(model.front()));
            if (!model.empty()) {
                model.erase(model.begin());
            }
            break;
        case 4: {
            OrderedDictionary<int, int> moved = std::move(dictionary);
            EXPECT_TRUE(dictionary.empty() && !dictionary.first()); // NOLINT: promised
            dictionary = std::move(moved);
            break;
        }
        default:
            if (random() % 200 == 0) {
                dictionary.clear();
                model.clear();
            }
        }
        const int* const value = dictionary.find(key);
        const auto expected =
            std::ranges::find_if(model, [&](const auto& entry) { return entry.first == key; });
        ASSERT_EQ(value ? std::optional(*value) : std::nullopt,
                  expected != model.end() ? std::optional(expected->second) : std::nullopt);
        Entries entries;
        for (const auto [each, number] : std::as_const(dictionary)) {
            entries.emplace_back(each, number);
        }
        ASSERT_EQ(entries, model) << "step " << step;
        ASSERT_EQ(dictionary.size(), model.size());
        ASSERT_EQ(dictionary.first() ? *dictionary.first() : -1,
                  model.empty() ? -1 : model.front().second);
    }
}

TEST(OrderedDictionary, ValuesStayWhereTheyAreAndGoWithTheirEntries) {
    OrderedDictionary<int, std::unique_ptr<std::shared_ptr<int>>> dictionary;
    const auto counted = std::make_shared<int>();
    const auto fresh = [&] { return std::make_unique<std::shared_ptr<int>>(counted); };
    dictionary.insert(0, fresh());
    const auto* const first = dictionary.find(0);
    for (int key = 1; key < 1'000; ++key) {
        dictionary.insert(key, fresh());
    }
    for (int key = 1; key < 500; ++key) {
        dictionary.remove(key);
    }
    EXPECT_EQ(dictionary.find(0), first);
    EXPECT_FALSE(dictionary.contains(1));
    for (const auto [key, value] : dictionary) {
        value.reset();
    }
    EXPECT_EQ(counted.use_count(), 1);
    dictionary.insert(1, fresh());
    dictionary.clear();
    EXPECT_EQ(counted.use_count(), 1);
    EXPECT_TRUE(dictionary.insert(0, fresh()));
}

} // namespace
} // namespace Platform
