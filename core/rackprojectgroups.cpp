#include "core/rackprojectgroups.h"

#include "core/rackranking.h"

#include <QCollator>
#include <algorithm>
#include <limits>
#include <numeric>
#include <vector>

namespace taskrack {

namespace {

// A forest over thread positions with path compression and union by rank, so that uniting
// over every alias stays (nearly) linear.
class DisjointSets
{
public:
    explicit DisjointSets(qsizetype count) : parent(size_t(count)), rank(size_t(count), 0)
    {
        std::iota(parent.begin(), parent.end(), qsizetype(0));
    }

    qsizetype find(qsizetype element)
    {
        qsizetype root = element;
        while (parent[size_t(root)] != root)
            root = parent[size_t(root)];
        while (parent[size_t(element)] != root) {
            const qsizetype next = parent[size_t(element)];
            parent[size_t(element)] = root;
            element = next;
        }
        return root;
    }

    void unite(qsizetype a, qsizetype b)
    {
        a = find(a);
        b = find(b);
        if (a == b)
            return;
        if (rank[size_t(a)] < rank[size_t(b)])
            std::swap(a, b);
        parent[size_t(b)] = a;
        if (rank[size_t(a)] == rank[size_t(b)])
            ++rank[size_t(a)];
    }

private:
    std::vector<qsizetype> parent;
    std::vector<int> rank;
};

// The platform's "localised standard" order: case-insensitive and numbers by value, in the
// default locale. The collator is costly to open, so it is made only when a tie needs it.
class LocalizedOrder
{
public:
    bool less(const QString &a, const QString &b)
    {
        if (!collator) {
            collator.emplace(QLocale());
            collator->setCaseSensitivity(Qt::CaseInsensitive);
            collator->setNumericMode(true);
        }
        return collator->compare(a, b) < 0;
    }

private:
    std::optional<QCollator> collator;
};

bool isAgentWorktree(const QString &path)
{
    return path.contains(QLatin1String("/.codex/worktrees/")) ||
           path.contains(QLatin1String("/.claude/worktrees/"));
}

int identityTier(const QString &id)
{
    if (id.startsWith(QLatin1String("repository:")))
        return 2;
    if (id.startsWith(QLatin1String("git-directory:")))
        return 1;
    return 0;
}

bool isPreferred(const RackProjectIdentity &challenger, const RackProjectIdentity &incumbent,
                 LocalizedOrder &order)
{
    // A throwaway agent worktree never names a project that has a real checkout.
    const bool challengerInWorktree = isAgentWorktree(challenger.workspacePath);
    const bool incumbentInWorktree = isAgentWorktree(incumbent.workspacePath);
    if (challengerInWorktree != incumbentInWorktree)
        return incumbentInWorktree;

    if (challenger.isChats() != incumbent.isChats())
        return challenger.isChats();

    const int challengerTier = identityTier(challenger.id);
    const int incumbentTier = identityTier(incumbent.id);
    if (challengerTier != incumbentTier)
        return challengerTier > incumbentTier;

    const qsizetype challengerLength = challenger.workspacePath.size();
    const qsizetype incumbentLength = incumbent.workspacePath.size();
    if (challengerLength != incumbentLength)
        return challengerLength < incumbentLength;
    return order.less(challenger.workspacePath, incumbent.workspacePath);
}

qint64 recencyKey(const QDateTime &moment)
{
    return moment.isValid() ? moment.toMSecsSinceEpoch() : std::numeric_limits<qint64>::min();
}

bool keepsWithoutPadding(const RackThread &thread)
{
    return thread.status != RackStatus::recent || thread.codexDesktopIdentity.has_value();
}

RackProjectGroup makeGroup(const QList<RackThread> &threads, const std::vector<qsizetype> &members,
                           LocalizedOrder &order)
{
    const RackProjectIdentity *chosen = &threads[members.front()].projectIdentity;
    for (size_t i = 1; i < members.size(); ++i) {
        const RackProjectIdentity &candidate = threads[members[i]].projectIdentity;
        if (isPreferred(candidate, *chosen, order))
            chosen = &candidate;
    }

    RackProjectGroup group;
    group.id = chosen->id;
    group.name = chosen->name;
    group.workspacePath = chosen->workspacePath;
    group.dot = chosen->dot;

    int keptCount = 0;
    for (qsizetype member : members) {
        const RackThread &thread = threads[member];
        group.aliases.unite(thread.projectIdentity.aliases);
        group.providers.insert(thread.provider);
        if (keepsWithoutPadding(thread))
            ++keptCount;
    }

    // Members arrive in thread order, so filtering keeps that order. A busy project shows only
    // what is live; a quiet one is filled up with history so that its row is not empty.
    int padding =
        group.isChats() ? int(members.size()) : std::max(0, projectGroupFillCount - keptCount);
    group.threads.reserve(qsizetype(members.size()));
    for (qsizetype member : members) {
        const RackThread &thread = threads[member];
        if (group.isChats() || keepsWithoutPadding(thread)) {
            group.threads.append(thread);
        } else if (padding > 0) {
            group.threads.append(thread);
            --padding;
        }
    }

    const RackThread *lastUsed = nullptr;
    for (qsizetype member : members) {
        const RackThread &thread = threads[member];
        if (!lastUsed)
            lastUsed = &thread;
        const qint64 candidate = recencyKey(thread.recencyAt);
        const qint64 best = recencyKey(lastUsed->recencyAt);
        if (candidate > best || (candidate == best && thread.id < lastUsed->id))
            lastUsed = &thread;
    }
    group.lastUsedProvider = lastUsed->provider;
    return group;
}

void sortInGroupOrder(QList<RackProjectGroup> &groups, LocalizedOrder &order)
{
    struct Key
    {
        bool hasDot;
        int statusRank;
        qint64 recency;
    };
    std::vector<Key> keys;
    keys.reserve(size_t(groups.size()));
    for (const RackProjectGroup &group : groups) {
        keys.push_back({group.dot.has_value(), statusRank(groupStatus(group)),
                        group.threads.isEmpty() ? std::numeric_limits<qint64>::min()
                                                : recencyKey(group.threads.front().recencyAt)});
    }
    std::vector<qsizetype> positions(size_t(groups.size()));
    std::iota(positions.begin(), positions.end(), qsizetype(0));
    std::stable_sort(positions.begin(), positions.end(), [&](qsizetype a, qsizetype b) {
        const Key &left = keys[size_t(a)];
        const Key &right = keys[size_t(b)];
        if (left.hasDot != right.hasDot)
            return left.hasDot;
        if (left.statusRank != right.statusRank)
            return left.statusRank < right.statusRank;
        if (left.recency != right.recency)
            return left.recency > right.recency;
        const QString &leftName = groups[a].name;
        const QString &rightName = groups[b].name;
        if (order.less(leftName, rightName))
            return true;
        if (order.less(rightName, leftName))
            return false;
        return groups[a].id < groups[b].id;
    });
    QList<RackProjectGroup> sorted;
    sorted.reserve(groups.size());
    for (qsizetype position : positions)
        sorted.append(std::move(groups[position]));
    groups = std::move(sorted);
}

} // namespace

bool isPreferredProjectIdentity(const RackProjectIdentity &challenger,
                                const RackProjectIdentity &incumbent)
{
    LocalizedOrder order;
    return isPreferred(challenger, incumbent, order);
}

RackStatus groupStatus(const RackProjectGroup &group)
{
    if (group.threads.isEmpty())
        return RackStatus::recent;
    RackStatus best = group.threads.front().status;
    for (const RackThread &thread : group.threads) {
        if (statusRank(thread.status) < statusRank(best))
            best = thread.status;
    }
    return best;
}

QList<RackProjectGroup> projectGroups(const QList<RackThread> &rankedThreads)
{
    const qsizetype count = rankedThreads.size();
    DisjointSets sets(count);
    QHash<QString, qsizetype> firstClaimant;
    for (qsizetype i = 0; i < count; ++i) {
        for (const QString &alias : rankedThreads[i].projectIdentity.aliases) {
            auto claimed = firstClaimant.constFind(alias);
            if (claimed == firstClaimant.constEnd())
                firstClaimant.insert(alias, i);
            else
                sets.unite(i, *claimed);
        }
    }

    // Components in the order of their first member; members keep thread order.
    std::vector<qsizetype> componentOfRoot(size_t(count), -1);
    std::vector<std::vector<qsizetype>> components;
    for (qsizetype i = 0; i < count; ++i) {
        qsizetype &component = componentOfRoot[size_t(sets.find(i))];
        if (component < 0) {
            component = qsizetype(components.size());
            components.emplace_back();
        }
        components[size_t(component)].push_back(i);
    }

    LocalizedOrder order;
    QList<RackProjectGroup> groups;
    groups.reserve(qsizetype(components.size()));
    for (const auto &members : components)
        groups.append(makeGroup(rankedThreads, members, order));
    sortInGroupOrder(groups, order);
    return groups;
}

QList<RackProjectGroup> frozenProjectGroups(const QList<RackProjectGroup> &old,
                                            const QList<RackProjectGroup> &fresh,
                                            const QHash<QString, RackThread> &current)
{
    QHash<QString, qsizetype> freshByAlias;
    for (qsizetype i = 0; i < fresh.size(); ++i) {
        freshByAlias.insert(fresh[i].id, i);
        for (const QString &alias : fresh[i].aliases)
            freshByAlias.insert(alias, i);
    }
    auto lookup = [&](const QString &key) -> std::optional<qsizetype> {
        auto found = freshByAlias.constFind(key);
        if (found == freshByAlias.constEnd())
            return std::nullopt;
        return *found;
    };

    auto groupOf = [&](const RackProjectIdentity &identity) {
        std::optional<qsizetype> group = lookup(identity.id);
        for (auto alias = identity.aliases.constBegin();
             !group && alias != identity.aliases.constEnd(); ++alias)
            group = lookup(*alias);
        return group;
    };

    // Which fresh group each group on screen continues: its id first, else the earliest fresh
    // group among its aliases, so that the answer does not depend on hash order.
    std::vector<qsizetype> matchOfOld(size_t(old.size()), -1);
    std::vector<QList<RackThread>> frozenThreads(size_t(fresh.size()));
    for (qsizetype i = 0; i < old.size(); ++i) {
        std::optional<qsizetype> match = lookup(old[i].id);
        if (!match) {
            for (const QString &alias : old[i].aliases) {
                if (auto candidate = lookup(alias); candidate && (!match || *candidate < *match))
                    match = candidate;
            }
        }
        if (!match)
            continue;
        matchOfOld[size_t(i)] = *match;
        // Groups that merged keep the cards of each, in the order they stood.
        frozenThreads[size_t(*match)] += old[i].threads;
    }

    QList<RackProjectGroup> result;
    result.reserve(fresh.size());
    std::vector<bool> placed(size_t(fresh.size()), false);
    for (qsizetype i = 0; i < old.size(); ++i) {
        const qsizetype match = matchOfOld[size_t(i)];
        if (match < 0 || placed[size_t(match)])
            continue;
        placed[size_t(match)] = true;
        // Only the cards on screen are looked up: each keeps its place when it still belongs
        // here, and a thread that moved to another project leaves.
        const QList<RackThread> &onScreen = frozenThreads[size_t(match)];
        QHash<QString, RackThread> stillMembers;
        stillMembers.reserve(onScreen.size());
        for (const RackThread &shown : onScreen) {
            auto now = current.constFind(shown.id);
            if (now != current.constEnd() && groupOf(now->projectIdentity) == match)
                stillMembers.insert(shown.id, *now);
        }
        RackProjectGroup group = fresh[match];
        group.threads = frozenMerge(onScreen, group.threads, stillMembers);
        result.append(std::move(group));
    }
    for (qsizetype i = 0; i < fresh.size(); ++i) {
        if (!placed[size_t(i)])
            result.append(fresh[i]);
    }
    return result;
}

ProjectSelectionChange bringSelectedProjectUpToDate(const QList<RackProjectGroup> &groups,
                                                    const std::optional<QString> &selectedProjectID,
                                                    const std::optional<QString> &selectedThreadID)
{
    using Persistence = ProjectSelectionChange::Persistence;
    if (groups.isEmpty())
        return {std::nullopt, Persistence::remove};
    if (selectedProjectID) {
        for (const RackProjectGroup &group : groups) {
            if (group.id == *selectedProjectID)
                return {selectedProjectID, Persistence::unchanged};
        }
        // The project's identity changed (an origin arrived, two groups merged): follow it.
        for (const RackProjectGroup &group : groups) {
            if (group.aliases.contains(*selectedProjectID))
                return {group.id, Persistence::write};
        }
    }
    if (selectedThreadID) {
        for (const RackProjectGroup &group : groups) {
            for (const RackThread &thread : group.threads) {
                if (thread.id == *selectedThreadID)
                    return {group.id, Persistence::write};
            }
        }
    }
    return {groups.front().id, Persistence::write};
}

} // namespace taskrack
