#include "quicktask/quicktaskautosubmitservice.h"

#include "core/rackthreadopener.h"
#include "quicktask/quicktasklog.h"

#include <QCoro/QCoroFuture>
#include <QPointer>
#include <QtConcurrent>

namespace taskrack {

namespace {

const QStringList acceptedRoles{QStringLiteral("AXTextArea"), QStringLiteral("AXTextField")};

QString normalized(QString text)
{
    text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    text.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    return text.trimmed();
}

enum class Handoff { handed, notReady, failed };

} // namespace

bool quickTaskComposerMatches(const QuickTaskFocusedComposer &composer, RackProvider provider,
                              const QString &prompt)
{
    const QString text = normalized(composer.value);
    return composer.bundleIdentifier ==
               RackProviderApplication::forProvider(provider).bundleIdentifier &&
           acceptedRoles.contains(composer.role) && composer.isEnabled && !text.isEmpty() &&
           text == normalized(prompt);
}

QuickTaskAutoSubmitService::QuickTaskAutoSubmitService(Dependencies dependencies, QObject *parent)
    : QObject(parent), m_d(std::move(dependencies))
{
}

QCoro::Task<void>
QuickTaskAutoSubmitService::submit(QString prompt, RackProvider provider,
                                   std::optional<QuickTaskCodexSubmissionContext> context,
                                   bool autoSend)
{
    // The loop runs on by itself; a newer submission ends this one at its next step.
    run(++m_generation, std::move(prompt), provider, std::move(context), autoSend);
    co_return;
}

void QuickTaskAutoSubmitService::cancel()
{
    ++m_generation;
}

bool QuickTaskAutoSubmitService::pressReturnIfVerified(const QString &prompt, RackProvider provider)
{
    const RackProviderApplication &expected = RackProviderApplication::forProvider(provider);
    const std::optional<FrontmostApplication> front = m_d.reader.frontmostApplication();
    if (!front || front->identifier != expected.bundleIdentifier || front->processId <= 0 ||
        !m_d.workspace.isTrusted(front->application, expected.bundleIdentifier))
        return false;
    if (provider == RackProvider::codex)
        m_d.reader.prepare(front->processId);
    const std::optional<FocusedElement> element = m_d.reader.focusedElement(front->processId);
    if (!element)
        return false;
    const QuickTaskFocusedComposer composer{front->identifier, element->role, element->value,
                                            element->isEnabled};
    if (!quickTaskComposerMatches(composer, provider, prompt))
        return false;
    return m_d.keyPoster.postReturn(front->processId);
}

QCoro::Task<void>
QuickTaskAutoSubmitService::run(quint64 generation, QString prompt, RackProvider provider,
                                std::optional<QuickTaskCodexSubmissionContext> context,
                                bool autoSend)
{
    QPointer<QuickTaskAutoSubmitService> self(this);
    const auto current = [&] { return self && m_generation == generation; };
    Clock &clock = m_d.clock;
    const double deadline = clock.uptime() + double(m_d.submissionTimeout.count()) / 1000.0;
    bool handedOver = !context;
    bool verified = !context;
    while (current()) {
        if (clock.uptime() >= deadline) {
            qCInfo(lcQuickTask) << "Auto-send timed out and left the provider composer prefilled";
            co_return;
        }
        if (!handedOver) {
            // The exchange blocks for up to seconds: a worker thread runs it, holding only what
            // it shares.
            auto updater = m_d.settingsUpdater;
            const QuickTaskCodexSubmissionContext handed = *context;
            QFuture<std::pair<Handoff, QString>> future = QtConcurrent::run([updater, handed] {
                try {
                    if (!updater)
                        throw CodexDesktopIPCError::unavailable(
                            QStringLiteral("no settings handoff"));
                    updater->updateThreadSettings(handed);
                    return std::pair(Handoff::handed, QString());
                } catch (const CodexDesktopIPCError &error) {
                    const bool waiting = error.kind() == CodexDesktopIPCError::Kind::unavailable ||
                                         error.kind() == CodexDesktopIPCError::Kind::timedOut;
                    return std::pair(waiting ? Handoff::notReady : Handoff::failed,
                                     error.category());
                } catch (...) {
                    return std::pair(Handoff::failed, QStringLiteral("unexpected-error"));
                }
            });
            const auto [outcome, category] = co_await future;
            if (!current())
                co_return;
            if (outcome == Handoff::failed) {
                qCWarning(lcQuickTask,
                          "Codex per-task settings handoff failed closed; leaving the task "
                          "prefilled [category: %s]: <private>",
                          qPrintable(category));
                co_return;
            }
            handedOver = outcome == Handoff::handed;
        }
        if (handedOver && !verified)
            verified = m_d.rolloutMatches && m_d.rolloutMatches(*context);
        if (verified) {
            if (context && !autoSend) {
                qCInfo(lcQuickTask)
                    << "Codex applied and verified the configured per-task settings; leaving "
                       "the composer prefilled for review";
                co_return;
            }
            if (!m_d.reader.isTrusted()) {
                qCInfo(lcQuickTask) << "Auto-send left the task prefilled because Accessibility "
                                       "access is unavailable";
                co_return;
            }
            if (pressReturnIfVerified(prompt, provider)) {
                qCInfo(lcQuickTask) << "Auto-send submitted the verified provider composer";
                co_return;
            }
        }
        auto sleeping = clock.sleep(m_d.pollInterval);
        co_await sleeping;
    }
}

} // namespace taskrack
