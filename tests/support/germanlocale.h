#pragma once

#include <clocale>
#include <cstdio>
#include <string>

/// While it lives the process speaks German, with a decimal comma in the C runtime.
class GermanLocale
{
public:
    ~GermanLocale() { std::setlocale(LC_ALL, m_former.c_str()); }

    /// Whether the machine has the locale and printf follows it.
    bool works() const
    {
        char text[8];
        std::snprintf(text, sizeof text, "%.1f", 0.5);
        return m_set && std::string(text) == "0,5";
    }

private:
    const std::string m_former = std::setlocale(LC_ALL, nullptr);
    const bool m_set = std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
};
