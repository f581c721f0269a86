#pragma once

/// Number texts that do not depend on the user's locale.
namespace platform {

/// While it lives, the calling thread prints and scans numbers in the "C" locale (decimal point).
///
/// Only this thread is affected; the process's locale stays as it is. Cheap (two thread-local stores);
/// may be nested. Create and destroy it on one thread.
class CLocaleScope
{
public:
    CLocaleScope();
    ~CLocaleScope();
    CLocaleScope(const CLocaleScope&) = delete;
    CLocaleScope& operator=(const CLocaleScope&) = delete;

private:
    void* m_previous; ///< the thread's earlier locale
};

} // namespace platform
