#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <vorelutil/platform/export.h>

/// An ordered set of telegram addresses, any int.
///
/// It stores ranges: one that holds all addresses from 0 to 2147483647 costs as much as one that holds a
/// single address. Changes and look-ups take logarithmic time in the number of ranges. Reading from several
/// threads at once is safe while nobody changes the set.
class VORELUTIL_EXPORT AddressSet
{
    using Ranges = std::map<int, int>; // first to last; no two ranges touch or overlap

public:
    /// Visits the single addresses in ascending order, as often as wanted. Changing the set makes iterators
    /// invalid. An address is not stored anywhere but in its iterator: to the standard algorithms it is
    /// therefore an input iterator, a forward one where they go by concepts.
    class VORELUTIL_EXPORT const_iterator
    {
    public:
        using iterator_category = std::input_iterator_tag;
        using iterator_concept = std::forward_iterator_tag;
        using value_type = int;
        using difference_type = std::int64_t;
        using pointer = const int*;
        using reference = int;

        const_iterator() = default;
        int operator*() const { return m_address; }
        const int* operator->() const { return &m_address; } ///< valid until the iterator moves
        const_iterator& operator++();
        const_iterator operator++(int);
        bool operator==(const const_iterator& other) const
        {
            return m_range == other.m_range && m_address == other.m_address;
        }
        bool operator!=(const const_iterator& other) const { return !(*this == other); }

    private:
        friend class AddressSet;
        const_iterator(const Ranges& ranges, Ranges::const_iterator range);

        const Ranges* m_ranges = nullptr;
        Ranges::const_iterator m_range;
        int m_address = 0; ///< 0 at the end
    };
    using value_type = int;
    using iterator = const_iterator;

    /// Adds one address; no effect if it is there.
    void insert(int address) { insert(address, address); }
    /// Adds all addresses from `first` to `last`, both included; none if `first` is greater than `last`.
    void insert(int first, int last);
    /// Removes one address; the number removed, 0 or 1.
    std::size_t erase(int address);
    /// Removes all.
    void clear() { m_ranges.clear(); }

    /// Whether the address is in the set: 0 or 1.
    std::size_t count(int address) const;
    /// The number of addresses, up to 4294967296.
    std::uint64_t size() const;
    bool empty() const { return m_ranges.empty(); }

    const_iterator begin() const { return {m_ranges, m_ranges.begin()}; }
    const_iterator end() const { return {m_ranges, m_ranges.end()}; }

private:
    Ranges m_ranges;
};
