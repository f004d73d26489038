#pragma once

// Value types that say which project a task belongs to and what kind of git checkout its
// folder is. The operations that build them from the file system live in
// rackprojectidentity.h; the grouping of threads by these values in rackprojectgroups.h.

#include <QSet>
#include <QString>
#include <optional>

namespace taskrack {

struct RackDotAppearance
{
    enum class Tint { gray, cyan, yellow, orchid, lime, pink, coral, teal, blue, violet };
    enum class Silhouette {
        capsule,
        circle,
        heart,
        circleTwoEars,
        fourLobedButterfly,
        roundedCube,
        roundedDiamond,
        roundedHeadTwoEars,
        roundedTriangle,
        sixLobedFlower,
        twelveScallopedRosette,
    };

    Tint tint = Tint::gray;
    Silhouette silhouette = Silhouette::circle;
    std::optional<QString> rootThreadID;

    bool operator==(const RackDotAppearance &) const = default;

    static QString rawValue(Tint tint);
    static QString rawValue(Silhouette silhouette);
    static std::optional<Tint> tintFromRaw(const QString &raw);
    static std::optional<Silhouette> silhouetteFromRaw(const QString &raw);
};

// The Codex desktop application's avatar of a project.
struct CodexDesktopDot
{
    QString key;
    QString name;
    RackDotAppearance appearance;

    bool operator==(const CodexDesktopDot &) const = default;
};

struct RackProjectIdentity
{
    static inline const QString chatsID = QStringLiteral("__chats__");

    QString id;
    QString name;
    QString workspacePath;
    QSet<QString> aliases;
    std::optional<CodexDesktopDot> dot;

    bool operator==(const RackProjectIdentity &) const = default;

    bool isChats() const { return id == chatsID; }
};

enum class RackCheckoutKind {
    primaryCheckout,
    linkedWorktree,
    submodule,
    separateGitDirectory,
    unknown
};

QString rawValue(RackCheckoutKind kind);
// The label a person reads (and searches) for a kind of checkout.
QString checkoutLabel(RackCheckoutKind kind);

struct RackCheckoutMetadata
{
    RackCheckoutKind kind = RackCheckoutKind::unknown;
    std::optional<QString> checkoutRootPath;
    std::optional<QString> gitDirectoryPath;
    std::optional<QString> commonDirectoryPath;

    bool operator==(const RackCheckoutMetadata &) const = default;
};

struct RackThreadLineage
{
    std::optional<QString> parentTitle;
    int childCount = 0;

    bool operator==(const RackThreadLineage &) const = default;
};

} // namespace taskrack
