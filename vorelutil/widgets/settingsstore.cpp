#include "settingsstore.h"

#include "savable.h"
#include "settingstext.h"

#include <cerrno>
#include <new>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QSaveFile>
#include <QSet>
#include <QVector>
#include <vorelutil/platform/files.h>

using settingstext::Changes;
using settingstext::Values;

namespace {

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

QString notAFile()
{
    return QStringLiteral("it is not a file");
}

/// Reads a whole file. One that is not there is empty, and `isThere` false.
bool readFile(const QString& path, QByteArray* bytes, bool* isThere, QString* why)
{
    std::FILE* const stream = platform::openFile(QFile::encodeName(path).constData(), "rb");
    const int error = errno;
    *isThere = stream != nullptr || error != ENOENT;
    QFile file;
    if (stream == nullptr) {
        if (error == EISDIR) {
            *why = notAFile();
        } else if (*isThere) {
            *why = qt_error_string(error);
        }
        return why->isEmpty();
    }
    file.open(stream, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);
    if (!QFileInfo(path).isFile()) {
        *why = notAFile();
        return false;
    }
    *bytes = file.read(SettingsStore::maximumFileSize + 1);
    if (file.error() != QFileDevice::NoError) {
        *why = file.errorString();
    } else if (bytes->size() > SettingsStore::maximumFileSize) {
        *why = QStringLiteral("it is larger than %1 bytes").arg(SettingsStore::maximumFileSize);
    }
    return why->isEmpty();
}

Base readBase(const QString& path)
{
    Base base;
    QString why;
    bool isThere = false;
    if (!readFile(path, &base.bytes, &isThere, &why)) {
        base.isReadable = false;
        base.note = QStringLiteral("The settings file %1 cannot be read: %2.").arg(path, why);
        return base;
    }
    const bool isWhole = settingstext::isWhole(base.bytes);
    base.isMain = isWhole && !base.bytes.isEmpty();
    if (base.isMain || !isThere) return base;

    const QString backupPath = path + QStringLiteral(".bak");
    QByteArray backup;
    const bool hasBackup =
        readFile(backupPath, &backup, &isThere, &why) && !backup.isEmpty() && settingstext::isWhole(backup);
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

QString notNull(const QString& text)
{
    return text.isNull() ? QStringLiteral("") : text;
}

/// What a save has to change in a file that holds `values`. `baselineOf` gives the value from which a
/// setting's changes count, null if there is none. Only the file itself (`isMain`) knows of it.
template <typename BaselineOf>
Changes changesAgainst(const Values& values, const BaselineOf& baselineOf, bool isMain)
{
    Changes changes;
    Changes wanted; // the last value of each key
    QSet<settingstext::Key> leaving;
    for (const Savable* setting : Savable::_savableList) {
        if (setting->isFrozen()) continue;
        const settingstext::Key key(setting->getOwner(), setting->getName());
        const QString value = notNull(setting->getValue());
        const QString baseline = baselineOf(setting);
        const bool hasMoved = !baseline.isNull() && baseline != value;
        const bool isComparable = isMain && !baseline.isNull();
        const auto stored = values.find(key);
        const bool differs = stored == values.end() || *stored != value;
        if (setting->getToBeSaved()) {
            wanted.insert(key, value);
            if (isComparable ? hasMoved : differs) changes.insert(key, value);
        } else if (isComparable) {
            if (hasMoved) leaving.insert(key);
        } else if (stored != values.end() && differs && (hasMoved || setting->hasAcceptedExt())) {
            leaving.insert(key);
        }
    }
    for (const settingstext::Key& key : qAsConst(leaving)) {
        if (!changes.contains(key)) changes.insert(key, wanted.value(key)); // null if nobody wants it
    }
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

QString whyNotLocked(QLockFile::LockError error)
{
    switch (error) {
    case QLockFile::LockFailedError:
        return QStringLiteral("another process holds its lock");
    case QLockFile::PermissionError:
        return QStringLiteral("its folder is write-protected");
    default:
        return QStringLiteral("its lock file could not be written, perhaps the disk is full");
    }
}

} // namespace

SettingsStore::SettingsStore(const QString& path, int lockWaitMs)
    : m_path(QFileInfo(path).absoluteFilePath())
    , m_lockWaitMs(lockWaitMs)
    , m_baselines(std::make_shared<Baselines>())
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

void SettingsStore::offer()
{
    // The store may go meanwhile, and any setting.
    const Values values = m_values;
    const std::shared_ptr<Baselines> baselines = m_baselines;
    QVector<QPointer<Savable>> settings;
    for (Savable* setting : Savable::_savableList) settings.append(setting);
    for (const QPointer<Savable>& setting : settings) {
        if (setting == nullptr || setting->hasAcceptedExt()) continue;
        const settingstext::Key key(setting->getOwner(), setting->getName());
        const auto stored = values.find(key);
        if (stored == values.end()) continue;
        setting->setValueFromExt(key.first, key.second, *stored);
        if (setting != nullptr && setting->hasAcceptedExt()) {
            baselines->insert(setting, {setting, notNull(setting->getValue())});
        }
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

QString SettingsStore::baselineOf(const Savable* setting) const
{
    const auto entry = m_baselines->constFind(setting);
    // Another setting may have been there before.
    return entry != m_baselines->constEnd() && entry->first != nullptr ? entry->second : QString();
}

bool SettingsStore::doLoad()
{
    const QFileInfo info(m_path);
    const Base base = readBase(info.exists() ? info.canonicalFilePath() : m_path);
    m_errorText = base.note;
    if (!base.isReadable) return false;
    const Values values = settingstext::read(base.bytes);
    Baselines baselines;
    for (Savable* setting : Savable::_savableList) {
        const QString value = notNull(setting->getValue());
        const QString baseline = baselineOf(setting);
        const auto holds = [&](const Values& stored) {
            const auto entry = stored.find({setting->getOwner(), setting->getName()});
            return entry != stored.end() && *entry == value;
        };
        const bool isUnchanged = baseline.isNull() && (holds(m_values) || setting->hasAcceptedExt());
        if (isUnchanged || holds(values)) {
            baselines.insert(setting, {setting, value});
        } else if (!baseline.isNull()) {
            baselines.insert(setting, {setting, baseline});
        }
    }
    m_baselines->swap(baselines);
    m_values = values;
    return !base.isLost;
}

bool SettingsStore::doSave()
{
    m_errorText.clear();
    const QFileInfo info(m_path);
    const QString target = info.exists() ? info.canonicalFilePath() : m_path;
    const auto baseline = [this](const Savable* setting) { return baselineOf(setting); };
    const auto changesOf = [&](const Base& base) {
        return changesAgainst(base.isMain ? m_values : settingstext::read(base.bytes), baseline, base.isMain);
    };

    Base base = readBase(target);
    if (!base.isReadable) return fail(base.note);
    if (base.note.isEmpty() && changesOf(base).isEmpty()) return true;

    const QString cannot = QStringLiteral("The settings file %1 cannot be saved: %2.");
    if (!QFileInfo(QFileInfo(target).absolutePath()).isDir()) {
        return fail(cannot.arg(target, QStringLiteral("its folder does not exist")));
    }
    constexpr QFile::Permissions anyWrite = QFile::WriteOwner | QFile::WriteGroup | QFile::WriteOther;
    if (info.exists() && !(QFile::permissions(target) & anyWrite)) {
        return fail(cannot.arg(target, QStringLiteral("it is write-protected")));
    }
    const QFileInfo lockInfo(target + QStringLiteral(".lock"));
    QLockFile lock(lockInfo.filePath());
    lock.setStaleLockTime(unsignedLockMs);
    if (lockInfo.exists() && !lockInfo.isFile()) {
        return fail(cannot.arg(target, lockInfo.fileName() + QStringLiteral(" is not a file")));
    }
    if (!lock.tryLock(m_lockWaitMs)) return fail(cannot.arg(target, whyNotLocked(lock.error())));

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
    Values values = base.isMain ? m_values : settingstext::read(base.bytes);
    for (auto it = changes.begin(); it != changes.end(); ++it) {
        if (it.value().isNull()) {
            values.remove(it.key());
        } else {
            values.insert(it.key(), it.value());
        }
    }
    Baselines baselines;
    for (Savable* setting : Savable::_savableList) {
        baselines.insert(setting, {setting, notNull(setting->getValue())});
    }
    if (!file.commit()) return fail(cannot.arg(target, file.errorString()));

    m_values.swap(values);
    m_baselines->swap(baselines);
    m_errorText = base.note;
    return true;
}

bool SettingsStore::fail(const QString& text)
{
    m_errorText = text;
    return false;
}
