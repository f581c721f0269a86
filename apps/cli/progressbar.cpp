#include "progressbar.h"

#include "terminal.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace cli {

ProgressBar::ProgressBar(std::int64_t total)
    : m_total(isTerminal(stderr) ? total : 0)
{
}

ProgressBar::~ProgressBar()
{
    erase();
}

void ProgressBar::show(std::int64_t done)
{
    if (m_total < 1) return;
    constexpr int width = 40;
    const int percent = int(100.0 * double(std::min(done, m_total)) / double(m_total));
    if (percent == m_shown) return;
    m_shown = percent;
    endLineOnSignal(true);
    const int marks = percent * width / 100;
    std::fprintf(stderr, "\r[%s%s] %3d %%", std::string(std::size_t(marks), '#').c_str(),
                 std::string(std::size_t(width - marks), ' ').c_str(), percent);
}

void ProgressBar::erase()
{
    if (m_shown >= 0) {
        std::fprintf(stderr, "\r%48s\r", "");
        endLineOnSignal(false);
    }
    m_shown = -1;
    m_total = 0;
}

} // namespace cli
