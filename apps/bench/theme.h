#pragma once

#include <QColor>
#include <QString>

class QApplication;
class QPalette;

namespace bench {

enum class Theme
{
    Platform, ///< the palette that the desktop gives
    Light,
    Dark,
};

/// Sets the widget style (empty: the platform's) and the palette. With a theme of its own and no style the
/// style is "fusion", which follows a palette everywhere. False for a style that does not exist.
bool applyTheme(QApplication* application, const QString& style, Theme theme);

/// For the text of a problem; readable on this palette.
QColor problemColour(const QPalette& palette);
/// For the text of a success; readable on this palette.
QColor successColour(const QPalette& palette);

} // namespace bench
