#include <algorithm>
#include <climits>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <vector>
#include <vorelutil/trace/addressset.h>

namespace {

TEST(AddressSet, HoldsTheWholeRangeOfInt)
{
    AddressSet set;
    set.insert(0, INT_MAX);
    EXPECT_EQ(set.size(), 2147483648U);
    set.insert(INT_MIN, -1);
    EXPECT_EQ(set.size(), 4294967296U);
    EXPECT_EQ(set.erase(INT_MIN) + set.erase(INT_MAX) + set.erase(0) + set.erase(0), 3U);
    EXPECT_EQ(set.size(), 4294967293U);
    EXPECT_EQ(set.count(INT_MIN) + set.count(INT_MAX) + set.count(0), 0U);
    EXPECT_EQ(set.count(INT_MIN + 1) + set.count(-1) + set.count(1) + set.count(INT_MAX - 1), 4U);
    set.clear();
    EXPECT_TRUE(set.empty());
    for (const int address : {INT_MIN, INT_MAX, INT_MAX - 1, INT_MIN + 1}) set.insert(address);
    EXPECT_EQ(std::vector<int>(set.begin(), set.end()),
              (std::vector<int>{INT_MIN, INT_MIN + 1, INT_MAX - 1, INT_MAX}));
}

TEST(AddressSet, BehavesAsASetOfSingleNumbers)
{
    std::mt19937 random(7);
    const auto upTo = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
    for (int round = 0; round < 300; ++round) {
        AddressSet set;
        std::set<int> oracle;
        for (int step = 0; step < 40; ++step) {
            const int first = upTo(60) - 30;
            if (upTo(3) == 0) {
                ASSERT_EQ(set.erase(first), oracle.erase(first));
            } else {
                const int last = first + upTo(12) - 2; // sometimes below first: adds nothing
                set.insert(first, last);
                for (int address = first; address <= last; ++address) oracle.insert(address);
            }
            ASSERT_EQ(set.size(), oracle.size());
            ASSERT_TRUE(std::equal(set.begin(), set.end(), oracle.begin(), oracle.end()));
            for (int at = -35; at < 45; ++at) ASSERT_EQ(set.count(at), oracle.count(at));
        }
    }
}

} // namespace
