#pragma once

#include <memory>
#include <QHash>
#include <QPair>
#include <QPointer>
#include <QString>
#include <vorelutil/platform/export.h>

class Savable;

/// Keeps all settings (`Savable`) of an application in one file between runs.
///
/// Opt-in: nothing in the library calls it. Load and offer when the widgets stand, offer again whenever
/// windows with settings were made later, and save at the end or whenever it suits:
///
///     SettingsStore store(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation) + "/app.ini");
///     if (!store.load()) warn(store.errorText());
///     store.offer();
///     ...
///     if (!store.save()) warn(store.errorText());
///
/// The file is text in UTF-8, whatever the locale: a line "[owner]", then lines "name=value"
/// (docs/formats/settings.md). Any value survives, with line breaks, "=" or ";" in it, or an empty one. The
/// file may be edited by hand; comments, and lines that mean nothing, stay. It counts as damaged when its
/// first line says that a last line was written, and that one is missing; when it contains a NUL; when it
/// ends within the first line; and, if it has no such first line, when it is not UTF-8 or begins with text
/// that is neither comment nor section.
///
/// Beside FILE there may be, if FILE is a symbolic link beside what it leads to: FILE.bak, the file before it
/// was last replaced; FILE.damaged, the last one that was found damaged, kept when a save replaced it;
/// FILE.lock, while one process saves; and FILE.XXXXXX (six letters), left when a process was killed while it
/// wrote. The file is never changed in place: a new one takes its name when it is complete, so that after a
/// kill at any moment a good one is there.
///
/// Several instances of an application may share the file: a save changes only the keys whose settings
/// changed in its own process since they took their stored value, or were saved last. What other instances
/// wrote stays, whether it was loaded meanwhile or not, as do keys that belong to no present setting. What a
/// slot makes of a value while it is offered ("0.0" becomes "0") is no change; nor is the value of a setting
/// that took one from elsewhere before a load.
///
/// Ownership: the store owns no setting and keeps no file open. Thread: GUI thread only. Failures: `load` and
/// `save` return false and `errorText` says why; they throw nothing, the others at most std::bad_alloc. A
/// failed save leaves the file and all settings as they were, and may be tried again. Files above 4 MiB are
/// refused, for reading and for writing.
class VORELUTIL_EXPORT SettingsStore
{
public:
    static constexpr qint64 maximumFileSize = 4 << 20; ///< bytes

    /// Nothing is read yet. A relative `path` is meant from the directory that is the current one now. A save
    /// waits at most `lockWaitMs` (not negative) for another one to end. One that was killed while it made
    /// its lock holds up the others for half a second.
    explicit SettingsStore(const QString& path, int lockWaitMs = 3000);

    /// Changes how long a save waits for another one: short while a window must not stand still, long at the
    /// end.
    void setLockWait(int lockWaitMs) { m_lockWaitMs = lockWaitMs; }

    /// Reads the file; settings are not touched. True when there are values to offer, which may be none: an
    /// absent file is fine, even beside a backup (who removes it wants to begin anew), and so is an empty one
    /// without a good backup.
    ///
    /// Of a damaged file, and of an empty one beside a good backup, the backup's values are taken: the result
    /// is true, and `errorText` says so; the file itself is replaced by the next save. False when the file
    /// cannot be read or is too large, and the values loaded before then stay; or when it is damaged and so
    /// is the backup, and there are no values.
    bool load();

    /// Offers each loaded or saved value to all registered settings; each takes at most one in its life, so
    /// that it may be called again for new settings.
    ///
    /// Their slots may destroy and create settings, and destroy the store. Settings that are created
    /// meanwhile get no offer.
    void offer();

    /// Writes what changed: the values of settings that are to be saved, while keys of settings that went
    /// back to their default go. True when the file now has it, or nothing had changed.
    ///
    /// Where nothing changed, nothing is locked or written, but to replace a damaged file, or an empty one
    /// beside a good backup. Where the file is absent, empty or damaged, every setting that is to be saved
    /// counts as changed (against what the backup holds, if that is used), so that an absent file comes to be
    /// as soon as there is anything to save.
    ///
    /// A key whose settings are frozen, or were never offered its value (they were created after `offer`) and
    /// stand at their default, stays as it is. Of several settings with one key the last changed one in
    /// `Savable::_savableList` counts. The key goes only when none of them is to be saved; when one goes back
    /// to its default, the value of the last that is to be saved is written.
    ///
    /// Blocks while another process saves; a lock that a killed process left does not count. The folder must
    /// exist. Write permission that nobody has is respected for root, too.
    bool save();

    /// Why the last `load` or `save` failed, or what was amiss with the file; empty if nothing was. English,
    /// but for a reason that the system gives.
    QString errorText() const;

    /// Absolute.
    QString path() const;

private:
    using Key = QPair<QString, QString>; ///< owner and name
    using Baselines = QHash<const Savable*, QPair<QPointer<Savable>, QString>>;

    QString baselineOf(const Savable* setting) const;
    bool doLoad();
    bool doSave();
    bool fail(const QString& text);

    const QString m_path;
    int m_lockWaitMs;
    QString m_errorText;
    QHash<Key, QString> m_values; ///< what the file held, as far as this process knows: loaded, then saved
    /// The value from which each setting's next change counts, never null. Shared, as `offer` may outlive the
    /// store.
    std::shared_ptr<Baselines> m_baselines;
};
