#include <algorithm>
#include <climits>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <vorelutil/trace/addressset.h>

namespace {

TEST(AddressSet, BehavesAsASetOfSingleNumbersToTheEndsOfInt)
{
    std::mt19937 random(7);
    const auto upTo = [&](unsigned limit) { return static_cast<int>(random() % limit); };
    for (int round = 0; round < 300; ++round) {
        const int lowest = round % 3 == 0 ? INT_MIN : round % 3 == 1 ? -35 : INT_MAX - 71;
        AddressSet set;
        std::set<int> oracle;
        for (int step = 0; step < 40; ++step) {
            const int first = lowest + upTo(61), last = first + upTo(11);
            if (upTo(3) == 0) {
                ASSERT_EQ(set.erase(first), oracle.erase(first));
            } else {
                set.insert(first, last);
                for (std::int64_t i = first; i <= last; ++i) oracle.insert(static_cast<int>(i));
            }
            ASSERT_EQ(set.size(), oracle.size());
            ASSERT_TRUE(std::equal(set.begin(), set.end(), oracle.begin(), oracle.end()));
            for (int i = 0; i < 72; ++i) ASSERT_EQ(set.count(lowest + i), oracle.count(lowest + i));
        }
    }
}

} // namespace
