#include "panel/rackdemosource.h"

#include "core/clock.h"

namespace taskrack {

namespace {

struct DemoProject
{
    const char *id;
    const char *name;
};

const DemoProject taskrackProject{"/home/demo/src/taskrack", "taskrack"};
const DemoProject atlasProject{"/home/demo/src/atlas-api", "atlas-api"};
const DemoProject notesProject{"/home/demo/src/notes-site", "notes-site"};

RackProjectIdentity identity(const DemoProject *project)
{
    RackProjectIdentity identity;
    if (!project) {
        identity.id = RackProjectIdentity::chatsID;
        identity.name = QStringLiteral("Chats");
        identity.aliases = {identity.id};
        return identity;
    }
    identity.id = QString::fromUtf8(project->id);
    identity.name = QString::fromUtf8(project->name);
    identity.workspacePath = identity.id;
    identity.aliases = {identity.id};
    if (project == &atlasProject) {
        RackDotAppearance appearance;
        appearance.tint = RackDotAppearance::Tint::teal;
        appearance.silhouette = RackDotAppearance::Silhouette::sixLobedFlower;
        identity.dot = CodexDesktopDot{QStringLiteral("atlas"), identity.name, appearance};
    }
    return identity;
}

RackThread makeDemoThread(int n, RackProvider provider, const QString &title, RackStatus status,
                          const DemoProject *project, int minutesAgo, const QDateTime &now)
{
    RackThread thread;
    const QString uuid =
        QStringLiteral("0199a213-81c0-7800-8aa1-%1").arg(n, 12, 10, QLatin1Char('0'));
    thread.provider = provider;
    if (provider == RackProvider::codex) {
        thread.providerThreadID = uuid;
        thread.id = codexThreadPrefix + uuid;
    } else {
        thread.providerThreadID = QStringLiteral("local_") + uuid;
        thread.id = thread.providerThreadID;
    }
    thread.title = title;
    thread.status = status;
    thread.projectIdentity = identity(project);
    thread.workspacePath = thread.projectIdentity.workspacePath;
    thread.updatedAt = now.addSecs(-60 * minutesAgo);
    thread.recencyAt = thread.updatedAt;
    thread.source = QStringLiteral("demo");
    return thread;
}

} // namespace

RackDemoSource::RackDemoSource(RackDemoOptions options, Clock &clock, QObject *parent)
    : QObject(parent), m_options(options), m_clock(clock)
{
    const QDateTime now = clock.now();
    using S = RackStatus;
    constexpr auto codex = RackProvider::codex;
    constexpr auto claude = RackProvider::claudeDesktop;
    auto add = [&](RackProvider provider, const char *title, RackStatus status,
                   const DemoProject *project, int minutesAgo) -> RackThread & {
        m_threads.append(makeDemoThread(int(m_threads.size()) + 1, provider,
                                        QString::fromUtf8(title), status, project, minutesAgo,
                                        now));
        return m_threads.last();
    };
    if (options.data == RackDemoOptions::Data::none ||
        options.data == RackDemoOptions::Data::failing)
        return;
    if (options.data == RackDemoOptions::Data::readOnly) {
        add(codex, "Investigate the nightly build timeout", S::recent, &taskrackProject, 300);
        add(claude, "Document the hook installer", S::recent, &notesProject, 900);
        return;
    }
    add(codex, "Speed up the first frame of the panel", S::working, &taskrackProject, 1);
    add(claude, "Approve the migration plan for settings", S::requiresInput, &taskrackProject, 3);
    add(codex, "Fix flaky integration test in payments", S::error, &atlasProject, 6);
    add(claude, "Write the release notes for 2.3", S::completed, &notesProject, 9);
    RackThread &worktree =
        add(codex, "Add rate limiting to the public API", S::working, &atlasProject, 12);
    worktree.checkoutMetadata.kind = RackCheckoutKind::linkedWorktree;
    worktree.workspacePath = QStringLiteral("/home/demo/src/atlas-api-rate-limits");
    add(claude,
        "Rewrite the entire onboarding flow so that new contributors can set up the project, run "
        "every test suite and publish a preview build without asking anyone for help",
        S::working, &notesProject, 15);
    add(claude, "検索結果のページ送りを修正する", S::idle, &taskrackProject, 25);
    add(codex, "Исправить утечку памяти в обработчике событий", S::completed, nullptr, 40);
    add(codex,
        "تحسين أداء استعلامات قاعدة البيانات وتقليل زمن الاستجابة في لوحة التحكم الرئيسية للعملاء",
        S::recent, &atlasProject, 70);
    RackThread &recorded =
        add(codex, "Investigate the nightly build timeout", S::recent, &taskrackProject, 95);
    recorded.codexDesktopIdentity = CodexDesktopIdentity{QStringLiteral("demo-account")};
    RackThread &splitting =
        add(codex, "Split the monolith into services", S::idle, &taskrackProject, 120);
    splitting.lineage.childCount = 2;
    RackThread &child = add(codex, "Extract the billing service", S::recent, &taskrackProject, 130);
    child.lineage.parentTitle = QStringLiteral("Split the monolith into services");
    add(codex, "Summarise yesterday's incident review", S::requiresInput, nullptr, 150);
    add(claude, "Document the hook installer", S::recent, &taskrackProject, 600);

    static const RackStatus cycle[] = {S::working, S::completed, S::idle, S::recent,
                                       S::requiresInput};
    static const DemoProject *projects[] = {&taskrackProject, &atlasProject, &notesProject,
                                            nullptr};
    for (int n = int(m_threads.size()); n < options.taskCount; ++n) {
        add(n % 2 ? claude : codex, "Generated task", cycle[n % 5], projects[n % 4], 200 + n);
        m_threads.last().title = QStringLiteral("Generated task %1").arg(n + 1);
    }
}

QString RackDemoSource::failingThreadID() const
{
    return m_threads.size() > 2 ? m_threads.at(2).id : QString();
}

ThreadCollection RackDemoSource::collection() const
{
    ThreadCollection collection;
    collection.threads = m_threads;
    collection.sourceDescription = QStringLiteral("Demo");
    collection.isLive = true;
    if (m_options.data == RackDemoOptions::Data::partialClaude) {
        ThreadSourceFailure failure;
        failure.sourceName = QStringLiteral("Claude");
        failure.state = ThreadSourceFailureState::degraded;
        failure.provider = RackProvider::claudeDesktop;
        collection.sourceFailures.append(failure);
    } else if (m_options.data == RackDemoOptions::Data::cachedCodex) {
        ThreadSourceFailure failure;
        failure.sourceName = QStringLiteral("Codex");
        failure.state = ThreadSourceFailureState::degraded;
        failure.isUsingCachedSnapshot = true;
        failure.provider = RackProvider::codex;
        collection.sourceFailures.append(failure);
        collection.isLive = false;
    }
    return collection;
}

QCoro::Task<ThreadCollection> RackDemoSource::fetchThreads(int limit, std::stop_token)
{
    if (m_options.data == RackDemoOptions::Data::failing)
        throw TaskrackError(QStringLiteral("The demo source is switched off."));
    ThreadCollection answer = collection();
    if (answer.threads.size() > limit)
        answer.threads.resize(limit);
    co_return answer;
}

void RackDemoSource::advance()
{
    if (m_threads.isEmpty())
        return;
    static const RackStatus cycle[] = {RackStatus::working, RackStatus::requiresInput,
                                       RackStatus::working, RackStatus::completed};
    ++m_tick;
    RackThread &thread = m_threads.first();
    thread.status = cycle[m_tick % 4];
    thread.updatedAt = m_clock.now();
    thread.recencyAt = thread.updatedAt;
    emit statusUpdated(
        RackStatusUpdate{thread.id, thread.status, thread.updatedAt, thread.recencyAt});
}

RackDemoOpener::RackDemoOpener(QString failingThreadID,
                               std::function<void(const RackThread &)> report)
    : m_failingThreadID(std::move(failingThreadID)), m_report(std::move(report))
{
}

QCoro::Task<void> RackDemoOpener::open(RackThread thread)
{
    if (thread.id == m_failingThreadID)
        throw ThreadOpeningError(ThreadOpeningError::Kind::noHandler, thread.provider);
    if (m_report)
        m_report(thread);
    co_return;
}

} // namespace taskrack
