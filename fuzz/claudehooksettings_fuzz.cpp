// Mutated Claude settings through install and remove. A refusal must leave the file's bytes
// as they were; a success must keep every entry that isn't Taskrack's, in order, and every
// other key of the file; an install must read back as installed and be stable when repeated.

#include "platform/linux/linuxfilesystem.h"
#include "sources/claude/claudehookinstaller.h"

#include <QByteArray>
#include <QFile>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using namespace taskrack;

namespace {

struct Sandbox
{
    std::string directory;
    QString settings;
    QString helper;
    QString token = QStringLiteral("00000000-0000-4000-8000-000000000000"
                                   "11111111-1111-4111-8111-111111111111");

    Sandbox()
    {
        char pattern[] = "/tmp/claudehooksettings-fuzz-XXXXXX";
        directory = ::mkdtemp(pattern);
        settings = QString::fromStdString(directory + "/settings.json");
        helper = QString::fromStdString(directory + "/taskrack-hook-bridge");
        QFile file(helper);
        file.open(QIODevice::WriteOnly);
        file.write("#!/bin/sh\n");
        file.close();
        ::chmod(QFile::encodeName(helper).constData(), 0755);
    }
};

QByteArray readAll(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

void writeAll(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        std::abort();
    file.write(bytes);
}

// Every hook entry that isn't Taskrack's, with its event, in file order.
std::vector<std::pair<QString, JSONValue>> foreignEntries(const JSONValue::Object &root)
{
    std::vector<std::pair<QString, JSONValue>> entries;
    const auto hooks = root.find(QStringLiteral("hooks"));
    if (hooks == root.end() || !hooks->second.object())
        return entries;
    for (const auto &[event, groups] : *hooks->second.object()) {
        if (!groups.array()) {
            entries.emplace_back(event, groups);
            continue;
        }
        for (const JSONValue &group : *groups.array()) {
            const JSONValue::Object *object = group.object();
            const auto inner = object ? object->find(QStringLiteral("hooks"))
                                      : JSONValue::Object::const_iterator();
            if (!object || inner == object->end() || !inner->second.array()) {
                entries.emplace_back(event, group);
                continue;
            }
            for (const JSONValue &entry : *inner->second.array()) {
                if (!isOwnedClaudeHookEntry(entry))
                    entries.emplace_back(event, entry);
            }
        }
    }
    return entries;
}

JSONValue::Object withoutHookKeys(JSONValue::Object root)
{
    root.erase(QStringLiteral("hooks"));
    root.erase(QStringLiteral("allowedHttpHookUrls"));
    return root;
}

void check(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Sandbox sandbox;
    if (size < 1)
        return 0;
    const bool install = data[0] & 1;
    const QByteArray input(reinterpret_cast<const char *>(data + 1), qsizetype(size - 1));

    // The document type itself: whatever it reads, it writes back to the same value.
    if (std::optional<JSONValue> value = JSONValue::parse(input)) {
        const QByteArray written = value->toPrettyJSON();
        const std::optional<JSONValue> reread = JSONValue::parse(written);
        check(reread && *reread == *value && reread->toPrettyJSON() == written);
    }

    static LinuxFileSystem fileSystem;
    ClaudeHookInstaller installer(sandbox.settings, fileSystem);
    QFile::remove(installer.backupPath());
    writeAll(sandbox.settings, input);
    try {
        if (install)
            installer.installNow(sandbox.helper, sandbox.token);
        else
            installer.removeNow();
    } catch (const ClaudeHookInstallerError &) {
        check(readAll(sandbox.settings) == input);
        check(!QFile::exists(installer.backupPath()));
        return 0;
    }

    // Only a file Taskrack could read can have been accepted.
    const std::optional<JSONValue> before = JSONValue::parse(input);
    check(before && before->object());
    const QByteArray afterBytes = readAll(sandbox.settings);
    const std::optional<JSONValue> after = JSONValue::parse(afterBytes);
    check(after && after->object());
    check(foreignEntries(*before->object()) == foreignEntries(*after->object()));
    check(withoutHookKeys(*before->object()) == withoutHookKeys(*after->object()));
    if (afterBytes != input)
        check(readAll(installer.backupPath()) == input);

    if (install) {
        const ClaudeHookInstallationStatus status =
            installer.statusNow(sandbox.helper, sandbox.token);
        check(status == ClaudeHookInstallationStatus::enabled ||
              status == ClaudeHookInstallationStatus::hooksDisabled);
        installer.installNow(sandbox.helper, sandbox.token);
        check(readAll(sandbox.settings) == afterBytes);
    } else {
        check(installer.statusNow(sandbox.helper, sandbox.token) ==
              ClaudeHookInstallationStatus::disabled);
    }
    return 0;
}
