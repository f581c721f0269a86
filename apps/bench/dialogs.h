#pragma once

#include "pendingfile.h"

#include <functional>
#include <QString>

class QWidget;

namespace bench {

/// Asks for the name of a file to write, over `parent`'s window, and returns at once. `chosen` is called if
/// the operator names one.
///
/// None of these runs an event loop of its own: they may be called while a telegram is in hand, and the link
/// goes on behind them.
void askForFile(QWidget* parent, const QString& title, const QString& suggestion, const QString& filter,
                const std::function<void(const QString& path)>& chosen);

/// The same for a file to read, which exists.
void askForExistingFile(QWidget* parent, const QString& title, const QString& filter,
                        const std::function<void(const QString& path)>& chosen);

/// Says what was not saved; nothing if it was.
void showFailure(QWidget* parent, const SaveResult& result);

} // namespace bench
