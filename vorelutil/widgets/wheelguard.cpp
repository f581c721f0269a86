#include "wheelguard.h"

#include "dbledit.h"
#include "unitedit.h"

#include <QCoreApplication>
#include <QEvent>

namespace {

bool isWithin(QObject const* object, QObject const* scope)
{
    while (object != nullptr && object != scope) object = object->parent();
    return object != nullptr;
}

} // namespace

WheelGuard::WheelGuard(QObject* scope)
    : QObject(scope)
{
    // On the application, so that fields are guarded that come later.
    QCoreApplication::instance()->installEventFilter(this);
}

bool WheelGuard::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() != QEvent::Wheel || !watched->isWidgetType()) return false;
    auto* const field = qobject_cast<QLineEdit*>(watched);
    bool const isField = qobject_cast<UnitEdit*>(field) || qobject_cast<DblEdit*>(field);
    if (!isField || field->hasFocus()) return false;
    if (parent() != QCoreApplication::instance() && !isWithin(field, parent())) return false;
    event->ignore(); // and so offered to the widget below, up to the one that scrolls
    return true;
}
