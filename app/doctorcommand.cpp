#include "app/doctorcommand.h"

#include "app/taskrackbusservice.h"
#include "app/taskrackdoctor.h"
#include "app/terminaloutput.h"
#include "platform/linux/linuxfilesystem.h"
#include "platform/linux/settingspreferences.h"
#include "sources/claude/claudedesktopthreadsource.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonDocument>

namespace taskrack {

int runDoctorCommand(const CommandLine &line)
{
    LinuxFileSystem fileSystem;
    SettingsPreferences preferences;
    DoctorContext context;
    context.paths = ProviderPaths::resolve(line.home);
    context.searchPath = qEnvironmentVariable("PATH");
    context.hookHelperPath =
        QCoreApplication::applicationDirPath() + QStringLiteral("/taskrack-hook-bridge");
    context.preferencesFile = preferences.filePath();
    // Taskrack's data folder is where the Claude source keeps its evidence file.
    context.dataFolder =
        QFileInfo(ClaudeSourcePaths::forHome(context.paths.home).observedStatusesPath).path();
    context.session = HotkeyEnvironment::fromProcess();
    context.fileSystem = &fileSystem;
    context.preferences = &preferences;
    context.displayProbe = probeDisplayInput;
    context.sessionBus = [] {
        return probeSessionBus(QString::fromLatin1(taskrackBusName), std::chrono::seconds(1));
    };

    const DoctorReport report = runDoctor(context);
    if (line.json)
        writeOut(QString::fromUtf8(QJsonDocument(report.json()).toJson(QJsonDocument::Compact)) +
                 QLatin1Char('\n'));
    else
        writeOut(report.text());
    return report.exitCode();
}

} // namespace taskrack
