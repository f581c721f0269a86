#include "fieldlook.h"

#include "qthelpers.h"

#include <QEvent>
#include <QHash>
#include <QPalette>
#include <QWidget>

#include <algorithm>
#include <array>
#include <cmath>

namespace {

constexpr double wantedContrast = 4.5;
constexpr QPalette::ColorGroup groups[] = {QPalette::Active, QPalette::Inactive, QPalette::Disabled};

/// Relative luminance of a colour as WCAG 2 defines it: 0 black, 1 white.
double luminance(QColor const& color)
{
    auto const linear = [](double c) {
        return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

double contrast(QColor const& a, QColor const& b)
{
    double const first = luminance(a);
    double const second = luminance(b);
    return (std::max(first, second) + 0.05) / (std::min(first, second) + 0.05);
}

/// `part` of `upper` over the rest of `lower`.
QColor mix(QColor const& upper, QColor const& lower, double part)
{
    auto const channel = [part](int u, int l) {
        return static_cast<int>(std::lround(part * u + (1 - part) * l));
    };
    return QColor(channel(upper.red(), lower.red()), channel(upper.green(), lower.green()),
                  channel(upper.blue(), lower.blue()));
}

/// What the eye sees of a colour that may be transparent.
QColor seen(QColor const& color, QColor const& behind)
{
    return mix(color, behind, color.alphaF());
}

QColor strongTextOn(QColor const& background)
{
    return contrast(Qt::black, background) >= contrast(Qt::white, background) ? Qt::black : Qt::white;
}

/// The faintest mix of the strong text colour with the background that still has the contrast.
QColor mutedTextOn(QColor const& background)
{
    QColor const strong = strongTextOn(background);
    for (int percent = 40; percent < 100; percent += 5) {
        QColor const muted = mix(strong, background, percent / 100.0);
        if (contrast(muted, background) >= wantedContrast) return muted;
    }
    return strong;
}

/// The look of one field: its child, and the filter that hears of palette changes.
class Look : public QObject
{
public:
    explicit Look(QWidget* field);
    ~Look() override;

    static Look* of(QWidget* field);
    void setBackground(QColor const& color);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    std::array<QPalette::ColorRole, 2> textRoles() const;
    void keepReadable();
    void giveBackText();

    QWidget* const m_field;
    bool m_changing = false;      ///< a palette change that comes now is our own
    bool m_hasBackground = false; ///< `m_background` is what the field's palette has
    bool m_tookText = false;
    QColor m_background;
    QPalette m_callers; ///< the field's palette when its text was taken
    QPalette m_taken;   ///< the field's palette with the text that we gave it
};

QHash<QWidget*, Look*>& looks()
{
    static auto& all = *new QHash<QWidget*, Look*>;
    return all;
}

Look::Look(QWidget* field)
    : QObject(field)
    , m_field(field)
{
    looks().insert(field, this);
    field->installEventFilter(this);
}

Look::~Look()
{
    looks().remove(m_field);
}

Look* Look::of(QWidget* field)
{
    Look* const look = looks().value(field);
    return look != nullptr ? look : new Look(field);
}

void Look::setBackground(QColor const& color)
{
    if (m_hasBackground && m_background == color) return;
    m_changing = true;
    qth_setWidgetColor(m_field, color, false);
    m_changing = false;
    m_background = color;
    m_hasBackground = true;
    keepReadable();
}

bool Look::eventFilter(QObject* watched, QEvent* event)
{
    bool const palette =
        event->type() == QEvent::PaletteChange || event->type() == QEvent::ApplicationPaletteChange;
    if (palette && watched == m_field && !m_changing) {
        // Somebody else may have given the field another background: then the next call is none of the same.
        QPalette const now = m_field->palette();
        for (auto const group : groups) {
            m_hasBackground = m_hasBackground && now.color(group, m_field->backgroundRole()) == m_background;
        }
        keepReadable();
    }
    return QObject::eventFilter(watched, event);
}

std::array<QPalette::ColorRole, 2> Look::textRoles() const
{
    return {m_field->foregroundRole(), QPalette::PlaceholderText};
}

void Look::keepReadable()
{
    m_changing = true;
    giveBackText();
    QPalette const callers = m_field->palette();
    QPalette readable = callers;
    bool differs = false;
    for (auto const group : groups) {
        QColor const background =
            seen(callers.color(group, m_field->backgroundRole()), callers.color(group, QPalette::Window));
        for (auto const role : textRoles()) {
            QColor const text = seen(callers.color(group, role), background);
            if (contrast(text, background) >= wantedContrast) continue;
            bool const muted = group == QPalette::Disabled || role == QPalette::PlaceholderText;
            readable.setColor(group, role, muted ? mutedTextOn(background) : strongTextOn(background));
            differs = true;
        }
    }
    if (differs) {
        m_field->setPalette(readable);
        m_callers = callers;
        m_taken = readable;
        m_tookText = true;
    }
    m_changing = false;
}

/// Text and placeholder get the colours back that they had before, or would have by now: those that the field
/// was given itself, and for the rest those that it inherits. A colour that is not the one that we gave is
/// somebody else's, and stays.
void Look::giveBackText()
{
    if (!m_tookText) return;
    m_tookText = false;

    QPalette const now = m_field->palette();
    QPalette inherited = now;
    for (auto const role : textRoles()) {
        uint const bit = 1U << role;
        if ((m_callers.resolve() & bit) == 0) inherited.resolve(inherited.resolve() & ~bit);
    }
    m_field->setPalette(inherited);

    // A role that the field has of its own it has in every group: so does one that is ours in some of them.
    QPalette palette = m_field->palette();
    for (auto const role : textRoles()) {
        uint const bit = 1U << role;
        if ((now.resolve() & bit) == 0) continue;
        for (auto const group : groups) {
            bool const isOurs = now.color(group, role) == m_taken.color(group, role);
            if (!isOurs) {
                palette.setBrush(group, role, now.brush(group, role));
            } else if ((m_callers.resolve() & bit) != 0) {
                palette.setBrush(group, role, m_callers.brush(group, role));
            }
        }
    }
    m_field->setPalette(palette);
}

} // namespace

void fieldlook::setBackground(QWidget* field, QColor const& color)
{
    Look::of(field)->setBackground(color);
}
