#pragma once

// Edits a JSON settings file that belongs to another program and to the person: Claude Code's
// settings, Codex's hooks file. Every edit is read, change, write, and the rules that keep the
// person's bytes safe live here once: a bounded read of a regular file, a byte scan that stops a
// hostile document before it is decoded, a lossless decoding, a one-time backup, and an atomic
// replace with the same mode, owner and group that goes ahead only if nobody wrote meanwhile.
// Whenever an edit is refused the file keeps its bytes.

#include "core/jsonvalue.h"
#include "platform/filesystem.h"

#include <QString>
#include <functional>
#include <optional>

namespace taskrack {

// Why an edit did not happen. The owner turns each into its own words.
enum class SettingsFileFault {
    tooComplex,          // nested too deeply, too many containers, or too large once written
    tooLarge,            // over the read bound
    changedDuringUpdate, // another program wrote while the edit was prepared, twice
    invalidJSON,
    notAnObject,
    backupFailed,
    writeFailed,
    danglingLink,
    isLink, // a symbolic link where links are refused
    isDirectory,
    notRegular,
    unreadable,
    readOnly,
    ownedByOtherUser,
    folderMissing, // the file does not exist and neither does its folder
};

struct SettingsFileFailure
{
    SettingsFileFault fault;
    // The settings path, or its folder for folderMissing; empty where the path says nothing.
    QString path;
};

// The byte-level scan run before any decoding: nesting of at most 64 levels, fewer than
// 10,001 containers, balanced brackets outside strings, no open string at the end.
bool jsonWithinComplexityLimits(QByteArrayView bytes);

struct JsonSettingsSnapshot
{
    QString filePath; // where the bytes live: the settings path, or the target of its link
    std::optional<FileAttributes> attributes; // none when the file does not exist
    QByteArray data;
    JSONValue::Object root;
};

class JsonSettingsFile
{
public:
    struct Options
    {
        qsizetype maximumBytes = 1024 * 1024;
        // Edit where a link points (dotfile managers keep the real file elsewhere), or refuse.
        bool followLinks = true;
        // Edit a file that belongs to another user, keeping its owner.
        bool allowOtherOwner = false;
        // The mode of a file created from nothing.
        quint32 newFileMode = 0600;
    };

    JsonSettingsFile(QString path, FileSystem &fileSystem, Options options);

    const QString &path() const { return m_path; }
    // Written once, before the first change: the person's original.
    QString backupPath() const;

    // Throws SettingsFileFailure.
    JsonSettingsSnapshot load() const;
    // Whether the file now holds `root` (nothing is written when it already did); false when it
    // changed since the snapshot was taken. Throws SettingsFileFailure.
    bool write(const JSONValue::Object &root, const JsonSettingsSnapshot &snapshot);

    // Runs `change` on a fresh snapshot and writes the root it leaves, once more when another
    // program wrote meanwhile. `change` may throw to refuse; nothing is written then.
    template <typename Result>
    Result
    update(const std::function<Result(const JsonSettingsSnapshot &, JSONValue::Object &)> &change)
    {
        // The provider and the person edit this file without any lock: when one of them wrote
        // while Taskrack prepared its version, theirs is kept and Taskrack starts over once.
        for (int attempt = 0; attempt < 2; ++attempt) {
            const JsonSettingsSnapshot snapshot = load();
            JSONValue::Object root = snapshot.root;
            Result result = change(snapshot, root);
            if (write(root, snapshot))
                return result;
        }
        throw SettingsFileFailure{SettingsFileFault::changedDuringUpdate, {}};
    }

private:
    QString m_path;
    FileSystem &m_fileSystem;
    Options m_options;
};

// Hook files of both providers share one shape: an object of event names, each a list of
// groups `{"matcher": …, "hooks": [entry, …]}`.

// The entries of a group, when it has the shape of one.
const JSONValue::Array *hookGroupEntries(const JSONValue &group);

// The hooks object without the entries `isOwned` picks. Every other group, entry and key stays
// where it was; groups left empty and events left empty disappear.
JSONValue::Object removingHookEntries(const JSONValue::Object &hooks,
                                      const std::function<bool(const JSONValue &)> &isOwned);

} // namespace taskrack
