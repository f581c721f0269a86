#include "addressset.h"

#include <algorithm>
#include <climits>

AddressSet::const_iterator::const_iterator(const Ranges& ranges, Ranges::const_iterator range)
    : m_ranges(&ranges)
    , m_range(range)
    , m_address(range != ranges.end() ? range->first : 0)
{
}

AddressSet::const_iterator& AddressSet::const_iterator::operator++()
{
    if (m_address < m_range->second) {
        ++m_address;
    } else {
        ++m_range;
        m_address = m_range != m_ranges->end() ? m_range->first : 0;
    }
    return *this;
}

AddressSet::const_iterator AddressSet::const_iterator::operator++(int)
{
    const const_iterator before = *this;
    ++*this;
    return before;
}

void AddressSet::insert(int first, int last)
{
    if (first > last) return;
    // Every range that overlaps the new one, or lies right beside it, becomes part of it.
    auto range = m_ranges.upper_bound(first);
    if (range != m_ranges.begin()) {
        const auto previous = std::prev(range);
        if (previous->second >= first || previous->second + 1 == first) range = previous;
    }
    while (range != m_ranges.end() && (range->first <= last || range->first - 1 == last)) {
        first = std::min(first, range->first);
        last = std::max(last, range->second);
        range = m_ranges.erase(range);
    }
    m_ranges.emplace_hint(range, first, last);
}

std::size_t AddressSet::erase(int address)
{
    if (count(address) == 0) return 0;
    const auto range = std::prev(m_ranges.upper_bound(address));
    const int last = range->second;
    if (address < last) m_ranges.emplace_hint(std::next(range), address + 1, last);
    if (range->first < address) {
        range->second = address - 1;
    } else {
        m_ranges.erase(range);
    }
    return 1;
}

std::size_t AddressSet::count(int address) const
{
    const auto next = m_ranges.upper_bound(address);
    return next != m_ranges.begin() && address <= std::prev(next)->second ? 1 : 0;
}

std::uint64_t AddressSet::size() const
{
    std::uint64_t sum = 0;
    for (const auto& [first, last] : m_ranges) {
        sum += static_cast<std::uint64_t>(static_cast<std::int64_t>(last) - first + 1);
    }
    return sum;
}
