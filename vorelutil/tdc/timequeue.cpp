#include "timequeue.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <utility>

// The keys stand in one vector: runs that ascend, oldest and longest first, then the tail, which is in the
// order of arrival. A pop sorts the tail, which becomes the newest run, and takes keys from the fronts of all
// runs. A run that is at least half as long as the one before it is merged into it, so that there are few
// runs, and a key moves O(log n) times. Whatever can throw is done before the first event is taken.

namespace {

constexpr std::size_t keptRoom = 65536; ///< events for which room is kept, however few there are

/// The event of a key. Field by field: a record that is made first and then copied takes several times as
/// long.
void write(std::uint64_t key, PpTimest& output)
{
    output.time = static_cast<std::int64_t>(key ^ (std::uint64_t{1} << 63)) >> 3;
    output.channel = static_cast<std::uint8_t>(key & 7);
    std::memset(output.padding, 0, sizeof output.padding);
}

/// The order of a heap whose top is the earliest.
bool later(const PpTimest& a, const PpTimest& b)
{
    return a.time != b.time ? b.time < a.time : b.channel < a.channel;
}

template <class T> void giveBack(std::vector<T>& vector)
{
    std::vector<T>().swap(vector);
}

/// Makes `vector` at least `size` long. Grows by half, so that it seldom has to.
void makeRoom(std::vector<std::uint64_t>& vector, std::size_t size)
{
    if (size <= vector.size()) return;
    size = std::max(size, vector.size() + vector.size() / 2);
    vector.reserve(size);
    vector.resize(size);
}

constexpr unsigned widestDigit = 11;
constexpr std::size_t radixFrom = 64; ///< below, comparing is faster

/// Radix sort from the lowest digit up, over the bits in which the keys' distances to the lowest key differ.
void sortKeys(std::uint64_t* keys, std::size_t count, std::vector<std::uint64_t>& scratch)
{
    if (count < radixFrom || count > std::numeric_limits<std::uint32_t>::max()) {
        std::sort(keys, keys + count);
        return;
    }
    makeRoom(scratch, count);

    std::uint64_t lowest = keys[0], highest = keys[0];
    for (std::size_t i = 1; i < count; ++i) {
        lowest = std::min(lowest, keys[i]);
        highest = std::max(highest, keys[i]);
    }
    unsigned bits = 1;
    while (bits < 64 && (highest - lowest) >> bits != 0) ++bits;
    const unsigned widest = count < 512 ? 8 : widestDigit;
    const unsigned digits = (bits + widest - 1) / widest;
    const unsigned width = (bits + digits - 1) / digits;
    const std::uint64_t mask = (std::uint64_t{1} << width) - 1;

    std::uint64_t* from = keys;
    std::uint64_t* to = scratch.data();
    std::array<std::uint32_t, std::size_t{1} << widestDigit> place;
    for (unsigned shift = 0; shift < bits; shift += width) {
        const auto value = [=](std::uint64_t key) { return ((key - lowest) >> shift) & mask; };
        std::fill_n(place.begin(), mask + 1, 0);
        for (std::size_t i = 0; i < count; ++i) ++place[value(from[i])];
        if (place[value(from[0])] == count) continue; // one value in all keys
        std::uint32_t sum = 0;
        for (std::size_t i = 0; i <= mask; ++i) sum += std::exchange(place[i], sum);
        for (std::size_t i = 0; i < count; ++i) to[place[value(from[i])]++] = from[i];
        std::swap(from, to);
    }
    if (from != keys) std::copy_n(from, count, keys);
}

} // namespace

void TimeQueue::push(std::int64_t time, std::uint8_t channel)
{
    if (m_records.empty() && fits(time)) {
        *reserve(1) = key(time, channel);
        commit(1);
        return;
    }
    if (m_records.empty()) becomeRecords();
    m_records.push_back(PpTimest{time, channel, {}});
}

std::uint64_t* TimeQueue::reserve(std::size_t count)
{
    if (!m_records.empty()) return nullptr;
    makeRoom(m_keys, m_end + count);
    return m_keys.data() + m_end;
}

/// Leaves room for one more record, so that the push that asks for it cannot fail half done.
void TimeQueue::becomeRecords()
{
    std::vector<PpTimest> records;
    records.reserve(size() + 1);
    const auto append = [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i) write(m_keys[i], records.emplace_back());
    };
    for (const Run& run : m_runs) append(run.begin, run.end);
    append(m_tail, m_end);
    clear();
    m_records.swap(records);
}

std::size_t TimeQueue::pop(std::int64_t time, PpTimest* output, std::size_t capacity)
{
    if (!m_records.empty()) return popRecords(time, output, capacity);
    balanceRuns();
    sortTail();
    const bool before = !fits(time) && time < 0; // every key
    const std::uint64_t last = fits(time) ? key(time, 7) : std::numeric_limits<std::uint64_t>::max();
    const std::size_t taken = before ? 0 : takeKeys(last, output, capacity);
    closeGaps();
    return taken;
}

std::size_t TimeQueue::popRecords(std::int64_t time, PpTimest* output, std::size_t capacity)
{
    const auto begin = m_records.begin();
    while (m_heaped < m_records.size())
        std::push_heap(begin, begin + static_cast<std::ptrdiff_t>(++m_heaped), later);
    std::size_t taken = 0;
    while (taken < capacity && !m_records.empty() && m_records.front().time <= time) {
        std::pop_heap(m_records.begin(), m_records.end(), later);
        output[taken++] = m_records.back();
        m_records.pop_back();
    }
    m_heaped = m_records.size();
    if (m_records.capacity() > keptRoom + 2 * m_records.size()) m_records.shrink_to_fit();
    return taken;
}

/// Merges neighbouring runs until each is less than half as long as the one before it.
void TimeQueue::balanceRuns()
{
    for (std::size_t newer = m_runs.size(); newer-- > 1;) {
        Run& a = m_runs[newer - 1];
        const Run b = m_runs[newer];
        if (2 * b.size() < a.size()) continue;

        // From the back on, a's keys go to their places behind it; b's would be overwritten there.
        makeRoom(m_scratch, b.size());
        std::uint64_t* const keys = m_keys.data();
        std::copy_n(keys + b.begin, b.size(), m_scratch.data());
        std::size_t left = a.end, fromB = b.size(), to = a.end + b.size();
        a.end = to;
        while (fromB > 0 && left > a.begin)
            keys[--to] = m_scratch[fromB - 1] < keys[left - 1] ? keys[--left] : m_scratch[--fromB];
        std::copy_n(m_scratch.data(), fromB, keys + to - fromB);
        m_runs.erase(m_runs.begin() + static_cast<std::ptrdiff_t>(newer));
    }
}

void TimeQueue::sortTail()
{
    if (m_tail == m_end) return;
    m_runs.reserve(m_runs.size() + 1);
    sortKeys(m_keys.data() + m_tail, m_end - m_tail, m_scratch);
    m_runs.push_back({m_tail, m_end});
    m_tail = m_end;
}

/// Takes the keys up to `last`, lowest first, from the runs' fronts.
std::size_t TimeQueue::takeKeys(std::uint64_t last, PpTimest* output, std::size_t capacity)
{
    std::uint64_t* const keys = m_keys.data();
    Run none = {0, 0};
    std::size_t taken = 0;
    while (taken < capacity) {
        // The runs with the two lowest fronts are merged for as long as no third one has a lower key.
        Run* a = &none;
        Run* b = &none;
        std::uint64_t limit = last;
        for (Run& run : m_runs) {
            if (run.size() == 0 || keys[run.begin] > limit) continue;
            Run* third = b;
            if (a->size() == 0 || keys[run.begin] < keys[a->begin]) {
                b = a;
                a = &run;
            } else if (b->size() == 0 || keys[run.begin] < keys[b->begin]) {
                b = &run;
            } else {
                third = &run;
            }
            if (third->size() > 0) limit = std::min(limit, keys[third->begin]);
        }
        if (a->size() == 0) break;

        std::size_t fromA = a->begin, fromB = b->begin;
        const std::size_t endA = a->end, endB = b->end;
        while (fromA < endA && fromB < endB && taken < capacity) {
            const bool takeB = keys[fromB] < keys[fromA];
            const std::uint64_t key = takeB ? keys[fromB] : keys[fromA];
            if (key > limit) break;
            fromB += takeB;
            fromA += !takeB;
            write(key, output[taken++]);
        }
        if (fromB == endB)
            while (fromA < endA && taken < capacity && keys[fromA] <= limit)
                write(keys[fromA++], output[taken++]);
        a->begin = fromA;
        b->begin = fromB;
    }
    return taken;
}

/// Once gaps take up more than half, moves the runs together; gives back room that is far too large.
void TimeQueue::closeGaps()
{
    m_runs.erase(std::remove_if(m_runs.begin(), m_runs.end(), [](const Run& run) { return run.size() == 0; }),
                 m_runs.end());
    const std::size_t left = size();
    if (m_end > 2 * left) {
        m_end = 0;
        for (Run& run : m_runs) {
            const std::size_t length = run.size();
            std::copy_n(m_keys.data() + run.begin, length, m_keys.data() + m_end);
            run = {m_end, m_end + length};
            m_end += length;
        }
        m_tail = m_end;
    }
    // Also where nothing was taken: `reserve` may have made room that nobody used.
    if (m_keys.size() > keptRoom + 2 * m_end) {
        m_keys.resize(m_end);
        m_keys.shrink_to_fit();
    }
    if (m_scratch.size() > keptRoom) giveBack(m_scratch);
}

std::size_t TimeQueue::size() const
{
    if (!m_records.empty()) return m_records.size();
    std::size_t count = m_end - m_tail;
    for (const Run& run : m_runs) count += run.size();
    return count;
}

void TimeQueue::clear()
{
    giveBack(m_keys);
    giveBack(m_runs);
    giveBack(m_scratch);
    giveBack(m_records);
    m_tail = m_end = m_heaped = 0;
}
