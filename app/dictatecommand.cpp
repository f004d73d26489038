#include "app/dictatecommand.h"

#include "app/dictationassembly.h"
#include "app/terminaloutput.h"
#include "core/clock.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QSocketNotifier>
#include <ctime>
#include <unistd.h>

namespace taskrack {

namespace {

double processCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

// Why the command stopped listening.
enum class Ending { endOfRecording, enter, failed };

} // namespace

QCoro::Task<int> runDictateCommand(QStringList arguments)
{
    std::optional<QString> from;
    bool json = false;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString &arg = arguments.at(i);
        if (arg == QLatin1String("--json")) {
            json = true;
        } else if (arg == QLatin1String("--from") && i + 1 < arguments.size()) {
            from = arguments.at(++i);
        } else if (arg.startsWith(QLatin1String("--from="))) {
            from = arg.mid(7);
        } else {
            writeError(QStringLiteral("Usage: taskrack dictate [--from FILE.wav] [--json]"));
            co_return 2;
        }
    }

    DictationAssembly dictation(SystemClock::shared(),
                                from ? DictationAssembly::recording(*from, false)
                                     : DictationAssembly::microphone());
    OnDeviceQuickTaskTranscriber &transcriber = dictation.onDeviceTranscriber();
    const double cpuAtStart = processCpuSeconds();
    QElapsedTimer wall;
    wall.start();

    std::optional<Ending> ending;
    QEventLoop waiting;
    auto end = [&](Ending why) {
        if (!ending) {
            ending = why;
            waiting.quit();
        }
    };
    QObject guard;
    QObject::connect(&transcriber, &QuickTaskTranscribing::stateChanged, &guard, [&] {
        if (transcriber.state().kind == QuickTaskTranscriptionState::Kind::failed)
            end(Ending::failed);
    });
    QObject::connect(&transcriber, &OnDeviceQuickTaskTranscriber::inputEnded, &guard,
                     [&] { end(Ending::endOfRecording); });
    // Enter ends a microphone session; a recording ends by itself.
    std::unique_ptr<QSocketNotifier> enter;
    if (!from) {
        enter = std::make_unique<QSocketNotifier>(STDIN_FILENO, QSocketNotifier::Read);
        QObject::connect(enter.get(), &QSocketNotifier::activated, &guard, [&] {
            char buffer[256];
            [[maybe_unused]] const ssize_t got = ::read(STDIN_FILENO, buffer, sizeof buffer);
            enter->setEnabled(false);
            end(Ending::enter);
        });
        writeNotice(QStringLiteral("Listening. Press Enter to finish."));
    }

    const QUuid session = QUuid::createUuid();
    auto starting = transcriber.start(std::nullopt, session, [](const QString &text) {
        writeNotice(QStringLiteral("… ") + visibleControls(text));
    });
    co_await starting;
    if (transcriber.state().kind == QuickTaskTranscriptionState::Kind::failed)
        end(Ending::failed);
    if (!ending)
        waiting.exec();
    if (*ending == Ending::enter) {
        auto pausing = transcriber.pause(session);
        co_await pausing;
    }
    const qint64 finalLatencyMs = transcriber.msSinceAudioEnded();
    const double cpuSeconds = processCpuSeconds() - cpuAtStart;
    const double audioSeconds = transcriber.audioSeconds();
    const QString text = transcriber.currentText();
    if (*ending == Ending::failed) {
        // What was heard before the failure is kept, as the composer keeps its draft.
        if (!text.isEmpty())
            writeOut(text + QLatin1Char('\n'));
        writeNotice(transcriber.state().message);
        co_return 1;
    }
    transcriber.cancel(session);
    if (json) {
        QJsonObject object{{QStringLiteral("text"), text},
                           {QStringLiteral("audioSeconds"), audioSeconds},
                           {QStringLiteral("cpuSeconds"), cpuSeconds},
                           {QStringLiteral("wallSeconds"), double(wall.elapsed()) / 1000.0},
                           {QStringLiteral("endOfAudioToFinalMs"), double(finalLatencyMs)}};
        writeOut(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)) +
                 QLatin1Char('\n'));
    } else {
        writeOut(text + QLatin1Char('\n'));
    }
    co_return 0;
}

} // namespace taskrack
