#include "app/commandline.h"

namespace taskrack {

QString CommandLine::usage()
{
    return QStringLiteral(
        "Usage: taskrack [COMMAND] [OPTIONS]\n"
        "\n"
        "Commands:\n"
        "  (none)                    start Taskrack in the tray (without a display: watch)\n"
        "  list                      print every task once\n"
        "  watch                     print the rack again whenever it changes\n"
        "  open THREAD-ID            open a task in its provider\n"
        "  read THREAD-ID | --all    mark finished tasks as read\n"
        "  quit                      ask the running Taskrack to quit\n"
        "  hooks status|enable|disable|remove [--provider claude|codex|all]\n"
        "                            live status through Claude Code hooks (the default) or\n"
        "                            Codex hooks\n"
        "  demo [--scenario NAME] [--dark] [--tasks N] [--screenshots DIR]\n"
        "                            the rack over made-up tasks, no provider needed\n"
        "  input-trace               show global key events as they happen (X11)\n"
        "  shortcuts [set ACTION KEYS | reset [ACTION]]\n"
        "                            list or change the keyboard shortcuts\n"
        "  cloud-status [on|off|status]\n"
        "                            switch the Codex cloud live status\n"
        "  new --provider codex|claude [--project DIR | --scratch] [--model M]\n"
        "      [--effort E | --codex-default] [--] PROMPT|-\n"
        "                            start a task and send PROMPT (\"-\": read it from\n"
        "                            standard input) in the current folder or DIR\n"
        "  models [--json]           the Codex models Quick Tasks may use\n"
        "  models --set MODEL [--effort E] | --codex-default\n"
        "                            choose the model of new Codex Quick Tasks\n"
        "  doctor [--json]           what works on this machine and what to do about the rest\n"
        "  dictate [--from FILE.wav] [--json]\n"
        "                            dictate from the microphone (Enter ends) or a 16 kHz\n"
        "                            mono recording; the text goes to standard output\n"
        "  quick-task [--project DIR]\n"
        "                            show the Quick Task panel (of the running Taskrack)\n"
        "\n"
        "Options:\n"
        "  --json                    machine-readable output (one JSON object per line for watch)\n"
        "  --mode activity|projects|history\n"
        "                            which list to print (default: activity)\n"
        "  --home DIR                look for provider files under DIR instead of your home\n"
        "  -h, --help                show this help\n"
        "  --version                 show the version\n");
}

namespace {
// The demo's options that take a value, given as "--name value" or "--name=value".
QString demoOptionOf(const QString &arg)
{
    for (const char *name : {"--scenario", "--tasks", "--screenshots"}) {
        const QString option = QLatin1String(name);
        if (arg == option || arg.startsWith(option + QLatin1Char('=')))
            return option;
    }
    return {};
}
} // namespace

std::optional<CommandLine> CommandLine::parse(const QStringList &args, QString &error)
{
    CommandLine line;
    bool commandSeen = false;
    for (int i = 0; i < args.size(); ++i) {
        const QString &arg = args.at(i);
        if (arg.size() > maximumArgumentLength) {
            error = QStringLiteral("An argument of %1 characters is too long (at most %2).")
                        .arg(arg.size())
                        .arg(maximumArgumentLength);
            return std::nullopt;
        }
        auto valueOf = [&](const QString &option) -> std::optional<QString> {
            if (arg.startsWith(option + QLatin1Char('=')))
                return arg.mid(option.size() + 1);
            if (i + 1 >= args.size()) {
                error = option + QStringLiteral(" needs a value.");
                return std::nullopt;
            }
            return args.at(++i);
        };
        if (arg == QLatin1String("--json")) {
            line.json = true;
        } else if (arg == QLatin1String("-h") || arg == QLatin1String("--help")) {
            line.command = Command::help;
            return line;
        } else if (arg == QLatin1String("--version")) {
            line.command = Command::version;
            return line;
        } else if (arg == QLatin1String("--home") || arg.startsWith(QLatin1String("--home="))) {
            auto value = valueOf(QStringLiteral("--home"));
            if (!value)
                return std::nullopt;
            if (value->isEmpty()) {
                error = QStringLiteral("--home needs a folder.");
                return std::nullopt;
            }
            line.home = *value;
        } else if (arg == QLatin1String("--mode") || arg.startsWith(QLatin1String("--mode="))) {
            auto value = valueOf(QStringLiteral("--mode"));
            if (!value)
                return std::nullopt;
            // "projects" reads naturally on a command line; the mode itself is "project".
            const QString raw =
                *value == QLatin1String("projects") ? QStringLiteral("project") : *value;
            auto mode = organizationModeFromRaw(raw);
            if (!mode) {
                error = QStringLiteral("Unknown mode \"%1\": use activity, projects or history.")
                            .arg(*value);
                return std::nullopt;
            }
            line.mode = *mode;
            line.modeGiven = true;
        } else if (!commandSeen && (arg == QLatin1String("new") || arg == QLatin1String("models") ||
                                    arg == QLatin1String("dictate"))) {
            // A free-text prompt and options of their own follow: the command parses them.
            line.command = arg == QLatin1String("new")      ? Command::newTask
                           : arg == QLatin1String("models") ? Command::models
                                                            : Command::dictate;
            line.arguments = args.mid(i + 1);
            return line;
        } else if (!commandSeen && arg == QLatin1String("quick-task")) {
            line.command = Command::quickTask;
            commandSeen = true;
        } else if (commandSeen && line.command == Command::quickTask) {
            // --project DIR: the command checks its own option.
            line.arguments.append(arg);
        } else if (line.command == Command::demo && arg == QLatin1String("--dark")) {
            line.dark = true;
        } else if (const QString demoOption = demoOptionOf(arg);
                   line.command == Command::demo && !demoOption.isEmpty()) {
            auto value = valueOf(demoOption);
            if (!value)
                return std::nullopt;
            if (demoOption == QLatin1String("--scenario")) {
                line.demoScenario = *value;
            } else if (demoOption == QLatin1String("--screenshots")) {
                line.screenshotDir = *value;
            } else {
                bool ok = false;
                line.taskCount = value->toInt(&ok);
                if (!ok || line.taskCount < 0 || line.taskCount > 5000) {
                    error = QStringLiteral("--tasks needs a number from 0 to 5000.");
                    return std::nullopt;
                }
            }
        } else if (!commandSeen && !arg.startsWith(QLatin1Char('-'))) {
            static const QHash<QString, Command> commands{
                {QStringLiteral("list"), Command::list},
                {QStringLiteral("watch"), Command::watch},
                {QStringLiteral("hooks"), Command::hooks},
                {QStringLiteral("open"), Command::open},
                {QStringLiteral("read"), Command::read},
                {QStringLiteral("help"), Command::help},
                {QStringLiteral("quit"), Command::quit},
                {QStringLiteral("demo"), Command::demo},
                {QStringLiteral("input-trace"), Command::inputTrace},
                {QStringLiteral("shortcuts"), Command::shortcuts},
                {QStringLiteral("doctor"), Command::doctor},
                {QStringLiteral("cloud-status"), Command::cloudStatus},
            };
            auto it = commands.constFind(arg);
            if (it == commands.constEnd()) {
                error = QStringLiteral("Unknown command \"%1\". Run taskrack --help.").arg(arg);
                return std::nullopt;
            }
            line.command = *it;
            commandSeen = true;
        } else if (commandSeen &&
                   (line.command == Command::hooks || line.command == Command::open ||
                    line.command == Command::read || line.command == Command::shortcuts ||
                    line.command == Command::cloudStatus)) {
            if ((line.command == Command::open || line.command == Command::read) &&
                arg.size() > maximumIdLength) {
                error = QStringLiteral("A task id has at most %1 characters; taskrack list --json "
                                       "shows the ids.")
                            .arg(maximumIdLength);
                return std::nullopt;
            }
            line.arguments.append(arg);
        } else {
            error = QStringLiteral("Unexpected argument \"%1\". Run taskrack --help.").arg(arg);
            return std::nullopt;
        }
    }
    return line;
}

} // namespace taskrack
