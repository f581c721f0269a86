#include "savable.h"

namespace {

// Made before the static objects of any other source may make settings, and never destroyed, as the last
// setting may go after the statics of this file.
union Registry {
    Registry()
        : settings()
    {
    }
    ~Registry() {}

    QList<Savable*> settings;
};

__attribute__((init_priority(101))) Registry registry;

} // namespace

QList<Savable*>& Savable::_savableList = registry.settings;

Savable::Savable(QObject* parent, const QString& name, const QString& owner, bool flag, char const* slot,
                 QObject* receiver)
    : QObject(parent)
    , m_name(name)
    , m_owner(owner)
    , m_flag(flag)
    , m_isFrozen(name.isEmpty() || owner.isEmpty())
{
    _savableList.append(this);
    QObject* const target = receiver != nullptr ? receiver : parent;
    if (slot != nullptr && *slot != '\0' && target != nullptr) {
        connect(this, SIGNAL(notifyChanged(QString, QString)), target, slot);
    }
}

Savable::Savable() = default;

Savable::~Savable()
{
    _savableList.removeOne(this);
}

Savable& Savable::operator=(const Savable& other)
{
    m_name = other.m_name;
    m_owner = other.m_owner;
    m_value = other.m_value;
    m_previousValue = other.m_previousValue;
    m_defaultValue = other.m_defaultValue;
    m_flag = other.m_flag;
    m_isFromOutside = other.m_isFromOutside;
    m_isFrozen = other.m_isFrozen;
    return *this;
}

QString Savable::getName() const
{
    return m_name;
}

QString Savable::getOwner() const
{
    return m_owner;
}

QString Savable::getValue() const
{
    return m_value;
}

bool Savable::getFlag() const
{
    return m_flag;
}

bool Savable::isFrozen() const
{
    return m_isFrozen;
}

bool Savable::hasAcceptedExt() const
{
    return m_isFromOutside;
}

void Savable::setValue(double value)
{
    m_value = QString::number(value, 'g', 6);
}

void Savable::setValue(int value)
{
    m_value = QString::number(value);
}

void Savable::setValue(const Savable& other)
{
    m_value = other.m_value;
}

void Savable::setValueDefault()
{
    m_defaultValue = m_value;
}

bool Savable::getToBeSaved() const
{
    return !m_isFrozen && m_value != m_defaultValue;
}

void Savable::freeze()
{
    m_isFrozen = true;
}

bool Savable::hasValueFromExt() const
{
    return !m_previousValue.isEmpty();
}

void Savable::setValue(const QString& value)
{
    m_value = value;
}

void Savable::setValueFromExt(const QString& plugin, const QString& name, const QString& value)
{
    if (m_isFrozen || m_isFromOutside) return;
    if (name != m_name || plugin != m_owner || value.isNull()) return;
    m_isFromOutside = true;
    if (value == m_value) return;
    m_previousValue = m_value;
    m_value = value;
    // The signal's arguments are copies; a slot may delete the setting.
    emit notifyChanged(name, value);
}

void Savable::restore()
{
    m_value = m_previousValue;
}
