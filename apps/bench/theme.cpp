#include "theme.h"

#include <QApplication>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

namespace bench {

namespace {

QPalette makePalette(const QColor& window, const QColor& base, const QColor& text, const QColor& highlight,
                     const QColor& faint)
{
    QPalette palette(text, window, window.lighter(150), window.darker(150), window.darker(120), text, base);
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::Button, window);
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::ToolTipBase, base);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, faint);
    palette.setColor(QPalette::Highlight, highlight);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, highlight);
    for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, faint);
    return palette;
}

bool isDark(const QPalette& palette)
{
    return palette.color(QPalette::Window).lightness() < 128;
}

} // namespace

bool applyTheme(QApplication* application, const QString& style, Theme theme)
{
    const QString name = style.isEmpty() && theme != Theme::Platform ? QStringLiteral("fusion") : style;
    if (!name.isEmpty()) {
        QStyle* made = QStyleFactory::create(name);
        if (made == nullptr) return false;
        application->setStyle(made);
    }
    if (theme == Theme::Dark)
        application->setPalette(makePalette(QColor(0x2a2e34), QColor(0x1c1f24), QColor(0xe2e6ea),
                                            QColor(0x2f74c0), QColor(0x7d858f)));
    else if (theme == Theme::Light)
        application->setPalette(makePalette(QColor(0xeff1f3), QColor(0xffffff), QColor(0x1d2126),
                                            QColor(0x2f74c0), QColor(0x8b929b)));
    return true;
}

QColor problemColour(const QPalette& palette)
{
    return isDark(palette) ? QColor(0xff8f80) : QColor(0xb3261e);
}

QColor successColour(const QPalette& palette)
{
    return isDark(palette) ? QColor(0x8fd6a0) : QColor(0x1c6b33);
}

} // namespace bench
