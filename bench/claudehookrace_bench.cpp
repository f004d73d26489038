// How many of another program's edits to Claude's settings survive Taskrack's enable/remove
// cycles, while a writer edits the file every 2 ms and the installer enables and removes its
// hooks 10,000 times. Two writers:
//  - Append: opens the file by path and appends a blank, as `echo " " >> settings.json` does.
//    A blank the installer read is absorbed into its rewrite; lost = appended - absorbed - left.
//  - ReadModifyWrite: reads the file, increments a counter and writes it back in place through
//    one descriptor, as an editor saving in place does; lost = increments - final counter.

#include "platform/linux/linuxfilesystem.h"
#include "sources/claude/claudehookinstaller.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <atomic>
#include <benchmark/benchmark.h>
#include <chrono>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

using namespace taskrack;

namespace {

qint64 trailingBlanks(const QByteArray &bytes)
{
    qint64 count = 0;
    for (qsizetype i = bytes.size() - 1; i >= 0 && bytes[i] == ' '; --i)
        ++count;
    return count;
}

// Counts the blanks each replacement absorbed: those it read, and so kept in its own way.
class AbsorbingFileSystem : public LinuxFileSystem
{
public:
    std::optional<FileError> replace(const QString &path, const QByteArray &bytes,
                                     const FileAttributes &like,
                                     const ReplaceExpectation &expected) override
    {
        const auto result = LinuxFileSystem::replace(path, bytes, like, expected);
        if (!result)
            absorbed += trailingBlanks(expected.bytes);
        return result;
    }
    qint64 absorbed = 0;
};

bool appendBlank(const QByteArray &path)
{
    const int fd = ::open(path.constData(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool written = ::write(fd, " ", 1) == 1;
    ::close(fd);
    return written;
}

bool incrementCounter(const QByteArray &path)
{
    const int fd = ::open(path.constData(), O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return false;
    QByteArray bytes(1 << 20, Qt::Uninitialized);
    const ssize_t got = ::pread(fd, bytes.data(), size_t(bytes.size()), 0);
    bool edited = false;
    if (got > 0) {
        bytes.truncate(got);
        QJsonObject root = QJsonDocument::fromJson(bytes).object();
        if (!root.isEmpty()) {
            root[QStringLiteral("counter")] = root.value(QStringLiteral("counter")).toInt() + 1;
            const QByteArray written = QJsonDocument(root).toJson(QJsonDocument::Compact);
            edited = ::pwrite(fd, written.constData(), size_t(written.size()), 0) ==
                         ssize_t(written.size()) &&
                     ::ftruncate(fd, off_t(written.size())) == 0;
        }
    }
    ::close(fd);
    return edited;
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}

template <bool append> void BM_EnableRemoveAgainstAWriter(benchmark::State &state)
{
    QTemporaryDir home;
    QDir(home.path()).mkpath(QStringLiteral(".claude"));
    const QString helper = home.filePath(QStringLiteral("taskrack-hook-bridge"));
    QFile helperFile(helper);
    helperFile.open(QIODevice::WriteOnly);
    helperFile.write("#!/bin/sh\n");
    helperFile.close();
    helperFile.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QString path = home.filePath(QStringLiteral(".claude/settings.json"));
    QFile settings(path);
    settings.open(QIODevice::WriteOnly);
    settings.write(R"({"counter": 0, "model": "opus"})");
    settings.close();

    AbsorbingFileSystem fileSystem;
    ClaudeHookInstaller installer(path, fileSystem);
    const QString token(72, 'a');

    std::atomic<bool> running{true};
    std::atomic<qint64> edits{0};
    std::thread writer([&] {
        const QByteArray native = QFile::encodeName(path);
        while (running.load()) {
            if (append ? appendBlank(native) : incrementCounter(native))
                ++edits;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });

    qint64 refusals = 0;
    for (auto _ : state) {
        for (int step = 0; step < 2; ++step) {
            try {
                if (step == 0)
                    installer.installNow(helper, token);
                else
                    installer.removeNow();
            } catch (const ClaudeHookInstallerError &) {
                ++refusals; // refused, nothing overwritten: the writer won this round
            }
        }
    }
    running = false;
    writer.join();

    const QByteArray last = readAll(path);
    const qint64 kept =
        append ? fileSystem.absorbed + trailingBlanks(last)
               : QJsonDocument::fromJson(last).object().value(QStringLiteral("counter")).toInt();
    state.counters["edits"] = double(edits.load());
    state.counters["lost"] = double(edits.load() - kept);
    state.counters["refusals"] = double(refusals);
}
BENCHMARK(BM_EnableRemoveAgainstAWriter<true>)
    ->Name("BM_EnableRemoveAgainstAWriter/Append")
    ->Iterations(10'000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EnableRemoveAgainstAWriter<false>)
    ->Name("BM_EnableRemoveAgainstAWriter/ReadModifyWrite")
    ->Iterations(10'000)
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
