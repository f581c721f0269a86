#pragma once

#include <QColor>
#include <QIcon>
#include <QString>
#include <string>
#include <vorelutil/platform/export.h>

class QLayout;
class QSpinBox;
class QWidget;

/// Small chores of widgets: texts, colours, spin boxes, layouts, icons; and the product icon.
///
/// GUI thread only, but for `qth_q2s`. Pointers may not be null where nothing else is said. Nothing is
/// thrown, but for std::bad_alloc.

/// `s` in Latin-1. Characters that Latin-1 does not have become "?". Any thread may call it.
VORELUTIL_EXPORT std::string qth_q2s(const QString& s);

/// Paints the widget's foreground role (`foreground` true) or background role (false) in `c`, plainly, and
/// in all colour groups; the rest of its palette stays.
///
/// For the background, automatic filling is switched on if `c` is valid, and off if not; for the foreground
/// it stays as it is. Kept: the brush of the role is then of an invalid colour, too; widgets that paint that
/// role themselves (line edits, push buttons) turn black.
VORELUTIL_EXPORT void qth_setWidgetColor(QWidget* w, const QColor& c, bool foreground);

/// A new spin box with range and single step. A `maximum` below `minimum` counts as `minimum`; a negative
/// `step` is ignored (the step is 1). The caller's layout takes it over; until then `parent`, which may be
/// null, owns it. It is not shown by itself.
VORELUTIL_EXPORT QSpinBox* qth_makeSpinBox(int minimum, int maximum, int step, QWidget* parent);

/// Sets all four contents margins, and the spacing; a negative `spacing` stands for `margin`. A negative
/// `margin` gives what the style has for the layout.
/// Examples: (l, 6, -1) -> margins 6, spacing 6; (l, 0, 4) -> margins 0, spacing 4.
VORELUTIL_EXPORT void qth_setLayoutParams(QLayout* l, int margin, int spacing);

/// An icon of two images in XPM form, for the normal and for the disabled mode, both for the state "off".
/// Either may be null and is then left out, as is a damaged one, of which the toolkit warns; if both are, the
/// icon is null. Each array must have all the lines that its first line announces.
VORELUTIL_EXPORT QIcon qth_makeIcon(char const** normal, char const** disabled);

/// The product icon in XPM form: 48 x 48 pixels, 234 colours (one of them transparent), two characters per
/// pixel.
extern VORELUTIL_EXPORT char const* vorel48[];
