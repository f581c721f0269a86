#include "qthelpers.h"

#include <QBrush>
#include <QLayout>
#include <QPalette>
#include <QPixmap>
#include <QSpinBox>
#include <QWidget>

#include "artwork/vorel48.xpm"

std::string qth_q2s(const QString& s)
{
    return s.toLatin1().toStdString();
}

void qth_setWidgetColor(QWidget* w, const QColor& c, bool foreground)
{
    QPalette palette = w->palette();
    palette.setBrush(foreground ? w->foregroundRole() : w->backgroundRole(), QBrush(c));
    w->setPalette(palette);
    if (!foreground) w->setAutoFillBackground(c.isValid());
}

QSpinBox* qth_makeSpinBox(int minimum, int maximum, int step, QWidget* parent)
{
    auto* box = new QSpinBox(parent);
    box->setRange(minimum, maximum);
    box->setSingleStep(step);
    return box;
}

void qth_setLayoutParams(QLayout* l, int margin, int spacing)
{
    l->setContentsMargins(margin, margin, margin, margin);
    l->setSpacing(spacing < 0 ? margin : spacing);
}

QIcon qth_makeIcon(char const** normal, char const** disabled)
{
    QIcon icon;
    if (normal != nullptr) icon.addPixmap(QPixmap(normal), QIcon::Normal, QIcon::Off);
    if (disabled != nullptr) icon.addPixmap(QPixmap(disabled), QIcon::Disabled, QIcon::Off);
    return icon;
}
