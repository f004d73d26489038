// taskrack-launch: what the terminal runs for a new Quick Task. It gets only the path of a
// private FIFO on its command line; the command to run and its folder come through the FIFO, so
// that the prompt never passes through the terminal's own parsing or a shell.
//
// It takes the request only from a FIFO of its own user that nobody else may open, removes the
// FIFO once Taskrack is connected, reads a bounded amount, enters the folder and starts the
// command. When the folder is gone or the command fails at once, the terminal stays open with the
// reason and the prompt, so the text is not lost.

#include "quicktask/quicktasklaunchrequest.h"

#include <QFile>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using taskrack::QuickTaskLaunchRequest;

namespace {

// A command that ends with an error within this time "failed at once".
constexpr auto immediateFailure = std::chrono::seconds(10);
constexpr int readTimeoutMs = 20000;

void say(const std::string &text)
{
    std::fputs(text.c_str(), stderr);
    std::fputs("\n", stderr);
}

int holdOpen(const std::string &reason, const QString &prompt)
{
    say(reason);
    if (!prompt.isEmpty()) {
        say("\nYour task (nothing was lost):\n");
        say(prompt.toStdString());
    }
    say("\nPress Return to close this window.");
    int c;
    while ((c = std::getchar()) != EOF && c != '\n') {
    }
    return 1;
}

std::optional<QByteArray> readRequest(const char *path)
{
    const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return std::nullopt;
    struct stat info
    {
    };
    if (::fstat(fd, &info) != 0 || !S_ISFIFO(info.st_mode) || info.st_uid != ::getuid() ||
        (info.st_mode & 077) != 0) {
        ::close(fd);
        return std::nullopt;
    }
    QByteArray bytes;
    char buffer[65536];
    while (true) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n > 0) {
            // Taskrack is connected now: nobody else may reach this request.
            if (bytes.isEmpty())
                ::unlink(path);
            bytes.append(buffer, n);
            if (bytes.size() > taskrack::quickTaskLaunchRequestMaximumBytes)
                break;
            continue;
        }
        if (n == 0 && !bytes.isEmpty())
            break; // the writer finished
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && errno != EAGAIN)
            break;
        // Nothing yet (no writer so far, or it has more to send): wait for it.
        pollfd waiting{fd, POLLIN, 0};
        const int ready = ::poll(&waiting, 1, readTimeoutMs);
        if (ready <= 0)
            break;
        if ((waiting.revents & POLLIN) == 0 && (waiting.revents & POLLHUP) != 0 && bytes.isEmpty())
            break;
    }
    ::close(fd);
    ::unlink(path);
    return bytes;
}

int run(const QuickTaskLaunchRequest &request)
{
    std::vector<QByteArray> arguments;
    for (const QString &argument : request.argv)
        arguments.push_back(argument.toUtf8());
    std::vector<char *> argv;
    for (QByteArray &argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    int report[2];
    if (::pipe2(report, O_CLOEXEC) != 0)
        return holdOpen("The task could not be started.", request.prompt);
    const auto started = std::chrono::steady_clock::now();
    const pid_t child = ::fork();
    if (child < 0)
        return holdOpen("The task could not be started.", request.prompt);
    if (child == 0) {
        ::close(report[0]);
        ::execv(argv[0], argv.data());
        const int error = errno;
        (void)!::write(report[1], &error, sizeof error);
        ::_exit(127);
    }
    ::close(report[1]);
    // The command owns the terminal now; Ctrl+C is for it, not for us.
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGQUIT, SIG_IGN);
    int execError = 0;
    const bool execFailed = ::read(report[0], &execError, sizeof execError) == sizeof execError;
    ::close(report[0]);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    const QString program = QFile::decodeName(arguments.front());
    if (execFailed)
        return holdOpen("The command " + program.toStdString() + " could not be started (" +
                            std::strerror(execError) + ").",
                        request.prompt);
    const bool failed = !WIFEXITED(status) || WEXITSTATUS(status) != 0;
    if (failed && std::chrono::steady_clock::now() - started < immediateFailure) {
        const std::string how = WIFEXITED(status)
                                    ? "with status " + std::to_string(WEXITSTATUS(status))
                                    : "by signal " + std::to_string(WTERMSIG(status));
        return holdOpen("The command " + program.toStdString() + " ended at once " + how + ".",
                        request.prompt);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        say("Usage: taskrack-launch FIFO (Taskrack runs this in a terminal to start a task).");
        return 2;
    }
    const std::optional<QByteArray> bytes = readRequest(argv[1]);
    if (!bytes)
        return holdOpen("This launch request is not Taskrack's own; nothing was started.", {});
    const std::optional<QuickTaskLaunchRequest> request = QuickTaskLaunchRequest::decode(*bytes);
    if (!request)
        return holdOpen("Taskrack's request did not arrive; nothing was started.", {});
    const QByteArray folder = QFile::encodeName(request->folder);
    if (::chdir(folder.constData()) != 0)
        return holdOpen("The folder " + request->folder.toStdString() +
                            " is no longer there; nothing was started.",
                        request->prompt);
    return run(*request);
}
