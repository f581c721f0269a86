#include "clocale.h"

#include <clocale> // newlocale and uselocale as well: POSIX

namespace platform {

namespace {

/// The "C" locale, made once and never freed, so that calls from static destructors stay safe.
locale_t cLocale()
{
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return locale;
}

} // namespace

CLocaleScope::CLocaleScope()
    : m_previous(uselocale(cLocale()))
{
}

CLocaleScope::~CLocaleScope()
{
    uselocale(static_cast<locale_t>(m_previous));
}

} // namespace platform
