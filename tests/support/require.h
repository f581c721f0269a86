#pragma once

#include <cstdlib>
#include <gtest/gtest.h>

/// Skips the test when something that the machine should offer (a locale, a program) is missing; fails it
/// instead where VORELUTIL_REQUIRE_ALL is set, as `./check` does.
#define REQUIRE_OR_SKIP(condition, what)                                                                     \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            if (std::getenv("VORELUTIL_REQUIRE_ALL") != nullptr) FAIL() << "missing: " << (what);            \
            GTEST_SKIP() << "missing: " << (what);                                                           \
        }                                                                                                    \
    } while (false)
