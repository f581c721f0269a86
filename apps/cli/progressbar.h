#pragma once

#include <cstdint>

namespace cli {

/// A bar on standard error that tells how far a long work is. Shown where that is a terminal, in a line of
/// its own that is erased at the end; a signal that ends the process ends the line.
class ProgressBar
{
public:
    /// `total`: what there is to do, in any unit; below 1: no bar.
    explicit ProgressBar(std::int64_t total);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// What is done now; writes only where the percentage changes.
    void show(std::int64_t done);
    /// Takes the bar away, for good.
    void erase();

private:
    std::int64_t m_total;
    int m_shown = -1; ///< per cent; below 0: no bar stands
};

} // namespace cli
