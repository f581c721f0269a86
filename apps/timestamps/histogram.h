#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>
#include <vorelutil/tdc/tdc56.h>

namespace timestamps {

/// Start-stop histogram: how many stops came how long after the latest start at or before them.
///
/// A stop counts once, in bin floor((stop - start) / width); beyond the last bin it is dropped and counted as
/// such. At equal times the start comes first. Events may come out of order within `window` events; later
/// ones are still counted against the starts remembered, or as `late`.
class StartStopHistogram
{
public:
    static constexpr std::size_t window = 65536;

    /// `binWidth` in clock periods, 1 or more; `bins` 1 or more. Start and stop channel may be the same: each
    /// event then stops the one before and starts the next.
    StartStopHistogram(std::uint8_t start, std::uint8_t stop, std::int64_t binWidth, std::size_t bins);

    void add(const PpTimest* events, std::size_t count);
    /// What came so far is counted now, whatever may come between: at the end, or to show it.
    void settle();
    /// Begins anew with the same settings.
    void clear();

    /// Counts by bin, of what is settled.
    const std::vector<std::uint64_t>& counts() const;
    std::uint64_t starts() const;
    std::uint64_t stops() const;        ///< all, whatever became of them
    std::uint64_t beyond() const;       ///< stops beyond the last bin
    std::uint64_t withoutStart() const; ///< stops before the first start
    std::uint64_t late() const;         ///< stops too far out of order to find their start
};

} // namespace timestamps
