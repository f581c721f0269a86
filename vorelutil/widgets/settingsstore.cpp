#include "settingsstore.h"

#include "savable.h"
#include "settingstext.h"

#include <new>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QSaveFile>
#include <QSet>
#include <QVector>

using settingstext::Changes;
using settingstext::Values;

namespace {

constexpr int lockWaitMs = 3000;
// A process that was killed between making its lock and signing it leaves one that only age betrays. One of a
// living process, which has the file locked with the system, too, is not removed, however old.
constexpr int unsignedLockMs = 500;

/// The file that a save starts from.
struct Base
{
    bool isReadable = true; ///< else `note` says why
    bool isMain = false;    ///< `bytes` is the file itself, not empty
    QByteArray bytes;
    QByteArray damaged;  ///< the file itself, if it is damaged; empty else
    bool isLost = false; ///< damaged, and the backup as well
    QString note;
};

bool readFile(const QString& path, QByteArray* bytes, QString* why)
{
    const QFileInfo info(path);
    QFile file(path);
    if (info.exists() && !info.isFile()) {
        *why = QStringLiteral("it is not a file");
    } else if (info.size() > SettingsStore::maximumFileSize) {
        *why = QStringLiteral("it is larger than %1 bytes").arg(SettingsStore::maximumFileSize);
    } else if (info.exists() && !file.open(QIODevice::ReadOnly)) {
        *why = file.errorString();
    } else if (info.exists()) {
        *bytes = file.read(SettingsStore::maximumFileSize);
        if (file.error() != QFileDevice::NoError) *why = file.errorString();
    }
    return why->isEmpty();
}

Base readBase(const QString& path)
{
    Base base;
    QString why;
    if (!readFile(path, &base.bytes, &why)) {
        base.isReadable = false;
        base.note = QStringLiteral("The settings file %1 cannot be read: %2.").arg(path, why);
        return base;
    }
    const bool isThere = QFileInfo::exists(path);
    const bool isWhole = settingstext::isWhole(base.bytes);
    base.isMain = isWhole && !base.bytes.isEmpty();
    if (base.isMain || !isThere) return base;

    const QString backupPath = path + QStringLiteral(".bak");
    QByteArray backup;
    const bool hasBackup =
        readFile(backupPath, &backup, &why) && !backup.isEmpty() && settingstext::isWhole(backup);
    if (isWhole && !hasBackup) return base; // empty
    base.damaged = base.bytes;
    base.bytes = hasBackup ? backup : QByteArray();
    base.isLost = !hasBackup;
    const QString state = isWhole ? QStringLiteral("empty") : QStringLiteral("damaged");
    base.note =
        hasBackup ? QStringLiteral("The settings file %1 is %2; its backup %3 is used.")
                        .arg(path, state, backupPath)
                  : QStringLiteral("The settings file %1 is damaged, and there is no good backup.").arg(path);
    return base;
}

/// What a save has to change in a file that holds `values`. `lastSaved` gives a setting's value at the last
/// save, null if it was not there.
template <typename LastSaved>
Changes changesAgainst(const Values& values, const LastSaved& lastSaved, bool isMain)
{
    Changes changes;
    QSet<settingstext::Key> wanted, leaving;
    for (const Savable* setting : Savable::_savableList) {
        if (setting->isFrozen()) continue;
        const settingstext::Key key(setting->getOwner(), setting->getName());
        const QString value = setting->getValue();
        const QString saved = lastSaved(setting);
        const auto stored = values.find(key);
        const bool isStored = stored != values.end() && *stored == value;
        if (setting->getToBeSaved()) {
            wanted.insert(key);
            // One that lost against another of the same key does not come back at the next save.
            const bool hasLost = isMain && !saved.isNull() && saved == value;
            if (!isStored && !hasLost) changes.insert(key, value.isNull() ? QStringLiteral("") : value);
        } else if (stored != values.end() && !isStored) {
            if (setting->hasAcceptedExt() || (!saved.isNull() && saved != value)) leaving.insert(key);
        }
    }
    for (const settingstext::Key& key : leaving - wanted) changes.insert(key, QString());
    return changes;
}

/// Writes to a new file, which takes the name only by its commit. Returns what went wrong, or nothing.
QString fill(QSaveFile* file, const QByteArray& bytes)
{
    if (!file->open(QIODevice::WriteOnly)) return file->errorString();
    if (file->write(bytes) == bytes.size() && file->flush()) return QString();
    // The toolkit knows no reason when the disk took a part.
    return QStringLiteral("it could not be written as a whole, perhaps the disk is full (%1)")
        .arg(file->errorString());
}

} // namespace

SettingsStore::SettingsStore(const QString& path)
    : m_path(QFileInfo(path).absoluteFilePath())
{
}

bool SettingsStore::load()
{
    try {
        return doLoad();
    } catch (const std::bad_alloc&) {
        return fail(QStringLiteral("Out of memory while settings were read."));
    }
}

void SettingsStore::offer() const
{
    // The store may go meanwhile, and any setting.
    const Values values = m_values;
    QVector<QPointer<Savable>> settings;
    for (Savable* setting : Savable::_savableList) settings.append(setting);
    for (const QPointer<Savable>& setting : settings) {
        if (setting == nullptr) continue;
        const settingstext::Key key(setting->getOwner(), setting->getName());
        const auto stored = values.find(key);
        if (stored != values.end()) setting->setValueFromExt(key.first, key.second, *stored);
    }
}

bool SettingsStore::save()
{
    try {
        return doSave();
    } catch (const std::bad_alloc&) {
        return fail(QStringLiteral("Out of memory while settings were saved."));
    }
}

QString SettingsStore::errorText() const
{
    return m_errorText;
}

QString SettingsStore::path() const
{
    return m_path;
}

bool SettingsStore::doLoad()
{
    const QFileInfo info(m_path);
    const Base base = readBase(info.exists() ? info.canonicalFilePath() : m_path);
    m_errorText = base.note;
    if (!base.isReadable) return false;
    m_values = settingstext::read(base.bytes);
    m_saved.clear();
    return !base.isLost;
}

bool SettingsStore::doSave()
{
    m_errorText.clear();
    const QFileInfo info(m_path);
    const QString target = info.exists() ? info.canonicalFilePath() : m_path;
    const auto lastSaved = [this](const Savable* setting) {
        const auto entry = m_saved.find(setting);
        return entry != m_saved.end() && entry->first != nullptr ? entry->second : QString();
    };
    const auto changesOf = [&](const Base& base) {
        return changesAgainst(base.isMain ? m_values : settingstext::read(base.bytes), lastSaved,
                              base.isMain);
    };

    Base base = readBase(target);
    if (!base.isReadable) return fail(base.note);
    if (base.isMain && changesOf(base).isEmpty()) return true;

    const QString cannot = QStringLiteral("The settings file %1 cannot be saved: %2.");
    if (!QFileInfo(QFileInfo(target).absolutePath()).isDir()) {
        return fail(cannot.arg(target, QStringLiteral("its folder does not exist")));
    }
    constexpr QFile::Permissions anyWrite = QFile::WriteOwner | QFile::WriteGroup | QFile::WriteOther;
    if (info.exists() && !(QFile::permissions(target) & anyWrite)) {
        return fail(cannot.arg(target, QStringLiteral("it is write-protected")));
    }
    QLockFile lock(target + QStringLiteral(".lock"));
    lock.setStaleLockTime(unsignedLockMs);
    if (!lock.tryLock(lockWaitMs)) {
        return fail(cannot.arg(target, lock.error() == QLockFile::LockFailedError
                                           ? QStringLiteral("another process holds its lock")
                                           : QStringLiteral("its lock file cannot be written")));
    }

    // From here on no other store changes it.
    base = readBase(target);
    if (!base.isReadable) return fail(base.note);
    const Changes changes = changesOf(base);
    const QByteArray bytes = settingstext::merge(base.bytes, changes);
    if (bytes.size() > maximumFileSize) {
        return fail(
            cannot.arg(target, QStringLiteral("it would be larger than %1 bytes").arg(maximumFileSize)));
    }
    QSaveFile file(target);
    QString why = fill(&file, bytes);
    if (!why.isEmpty()) return fail(cannot.arg(target, why));
    const QByteArray& former = base.isMain ? base.bytes : base.damaged;
    if (!former.isEmpty()) {
        QSaveFile kept(target + QLatin1String(base.isMain ? ".bak" : ".damaged"));
        why = fill(&kept, former);
        const bool isKept = why.isEmpty() && kept.setPermissions(QFile::permissions(target)) && kept.commit();
        if (!isKept) {
            return fail(QStringLiteral("The settings file %1 cannot be kept as %2: %3.")
                            .arg(target, kept.fileName(), why.isEmpty() ? kept.errorString() : why));
        }
    }
    if (!file.commit()) return fail(cannot.arg(target, file.errorString()));

    if (!base.isMain) m_values = settingstext::read(base.bytes);
    for (auto it = changes.begin(); it != changes.end(); ++it) {
        if (it.value().isNull()) {
            m_values.remove(it.key());
        } else {
            m_values.insert(it.key(), it.value());
        }
    }
    m_saved.clear();
    for (Savable* setting : Savable::_savableList) {
        const QString value = setting->getValue();
        m_saved.insert(setting, {setting, value.isNull() ? QStringLiteral("") : value});
    }
    m_errorText = base.note;
    return true;
}

bool SettingsStore::fail(const QString& text)
{
    m_errorText = text;
    return false;
}
