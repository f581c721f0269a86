#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <unistd.h>

/// Handles events until the condition holds; false after 30 s.
template <class Condition> bool eventually(Condition condition)
{
    const QDeadlineTimer limit(30000);
    while (!condition()) {
        if (limit.hasExpired()) return false;
        QCoreApplication::processEvents();
        usleep(500);
    }
    return true;
}
