#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <vorelutil/platform/export.h>

/// One named setting that is remembered between runs, held as text.
///
/// A widget or window creates one for each value that it wants remembered. Every setting registers itself in
/// one process-wide list, `_savableList`. The library reads and writes no settings file: the application
/// walks that list when it saves and asks each setting with `getToBeSaved`; when it loads, it offers each
/// stored value to all settings with `setValueFromExt`, and each picks its own. `SettingsStore` does both for
/// an application that wants it.
///
/// An owner creates the setting with its key, gives it the built-in value with `setValue` and
/// `setValueDefault`, connects `notifyChanged` to a slot that applies the new text, and calls `setValue`
/// whenever the user changes what is remembered:
///
///     m_step = new Savable(this, "AbsStep", "Scanner", false, SLOT(savableChanged(QString,QString)));
///     m_step->setValue(0.5);
///     m_step->setValueDefault();
///
/// Numbers are held as text: doubles with six significant digits, integers in decimal, whatever the locale;
/// read them back with `toDouble` and `toInt`.
///
/// Null and empty texts are equal wherever values are compared. Ownership: the setting is a child of the
/// object that it belongs to. Thread: GUI thread only; the list is not locked. Failures: none is reported;
/// offers that do not match, or come late or again, are ignored. A setting may be deleted in a slot of its
/// signal.
class VORELUTIL_EXPORT Savable : public QObject
{
    Q_OBJECT

public:
    /// Every setting made with the full constructor, in the order of construction. Empty before there is a
    /// setting, and never destroyed, so that a setting may be static. Only settings themselves change it.
    static QList<Savable*>& _savableList;

    /// A setting `name` of the module or group `owner`, with empty values, at the end of `_savableList`.
    ///
    /// With an empty `name` or `owner` it is frozen. `flag` is kept for the application's own use, see
    /// `getFlag`. `slot`, unless null or empty, is the toolkit's string form of a slot (what SLOT() makes,
    /// "1savableChanged(QString,QString)") of `receiver`, or of `parent` when `receiver` is null; it is
    /// connected to `notifyChanged`. Of a slot that the receiver does not have, or whose arguments do not
    /// fit, the toolkit warns; the setting is made without the connection. `parent` may be null.
    Savable(QObject* parent, const QString& name, const QString& owner, bool flag = false,
            char const* slot = nullptr, QObject* receiver = nullptr);

    /// A placeholder to be assigned later: no parent, null texts, frozen, and not registered.
    Savable();

    /// Leaves `_savableList`; writes nothing.
    ~Savable() override;

    Savable(const Savable&) = delete;

    /// Takes over the other's texts, flag and states. Parent, connections and registration stay as they are:
    /// an assigned placeholder is still not in the list. No signal.
    Savable& operator=(const Savable& other);

    QString getName() const;
    QString getOwner() const;
    QString getValue() const;

    /// The flag given to the constructor, for the code that saves and loads; the library never reads it.
    bool getFlag() const;

    /// Whether the setting takes no outside value and is never to be saved.
    bool isFrozen() const;

    /// Whether `setValueFromExt` has accepted a value, be it one that changed nothing.
    bool hasAcceptedExt() const;

    /// Six significant digits, as `QString::number(value, 'g', 6)`: 0.1 + 0.2 gives 0.3, 1234567 gives
    /// 1.23457e+06. No signal.
    void setValue(double value);

    /// The decimal text. No signal.
    void setValue(int value);

    /// The other's value, and nothing else of it. No signal.
    void setValue(const Savable& other);

    /// Makes the present value the default, at which there is nothing to save.
    void setValueDefault();

    /// False when frozen; else whether the value differs from the default.
    bool getToBeSaved() const;

    /// From now on, and for good, the setting takes no outside value and is not to be saved.
    void freeze();

    /// Whether an outside value has replaced one that was not empty.
    ///
    /// Kept: this looks at the value that was replaced, not at whether a value was accepted (for that see
    /// `hasAcceptedExt`). An outside value that replaced an empty value, or that equalled the present one,
    /// does not count. Value fields rely on it: they derive their step from the shown value until a stored
    /// step has really replaced the built-in one.
    bool hasValueFromExt() const;

public slots:
    /// Any text. No signal, so that an owner is not called back for its own change.
    void setValue(const QString& value);

    /// Offers a stored value. It is ignored when the setting is frozen, or has accepted one before, when
    /// `plugin` is not its owner or `name` not its name (case matters), or when `value` is null; an empty
    /// text that is not null is accepted.
    ///
    /// An accepted value that equals the present one changes nothing. Any other replaces it, and
    /// `notifyChanged` is emitted. Kept: a setting takes one outside value in its life, even when the first
    /// changed nothing.
    void setValueFromExt(const QString& plugin, const QString& name, const QString& value);

    /// The value that an outside value replaced becomes the value again. No signal. Kept: when none was
    /// replaced, the value becomes empty.
    void restore();

signals:
    /// An outside value has replaced a different one. Not emitted for anything else.
    void notifyChanged(QString name, QString newValue);

private:
    QString m_name;
    QString m_owner;
    QString m_value;
    QString m_previousValue; ///< what an outside value replaced; empty until then
    QString m_defaultValue;
    bool m_flag = false;
    bool m_isFromOutside = false;
    bool m_isFrozen = true;
};
