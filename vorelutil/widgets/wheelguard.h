#pragma once

#include <vorelutil/platform/export.h>

#include <QObject>

/// Keeps the mouse wheel from stepping value fields that it only passes over.
///
/// Without it a `UnitEdit` or `DblEdit` steps whenever the wheel turns above it. With it only the field that
/// has the focus does; above any other the page scrolls, as if no field were there. Opt-in: nothing in the
/// library makes one.
///
///     new WheelGuard(page);   // the fields on this page or window, also those that are added later
///     new WheelGuard(qApp);   // all fields of the application
///
/// It guards as long as it lives; `scope` owns it. Other widgets that take the wheel are none of its
/// business. GUI thread only.
class VORELUTIL_EXPORT WheelGuard : public QObject
{
    Q_OBJECT

public:
    /// Guards the fields within `scope`: a widget (the fields in its dialogs included), or the
    /// application object. `scope` is not null, and the application object exists.
    explicit WheelGuard(QObject* scope);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
};
