#include "core/rackproject.h"

#include <array>

namespace taskrack {

namespace {
constexpr std::array tintNames{"gray", "cyan",  "yellow", "orchid", "lime",
                               "pink", "coral", "teal",   "blue",   "violet"};
constexpr std::array silhouetteNames{"capsule",
                                     "circle",
                                     "heart",
                                     "circle_two_ears",
                                     "four_lobed_butterfly",
                                     "rounded_cube",
                                     "rounded_diamond",
                                     "rounded_head_two_ears",
                                     "rounded_triangle",
                                     "six_lobed_flower",
                                     "twelve_scalloped_rosette"};

template <typename Enum, size_t N>
std::optional<Enum> fromNames(const std::array<const char *, N> &names, const QString &raw)
{
    for (size_t i = 0; i < N; ++i) {
        if (raw == QLatin1String(names[i]))
            return Enum(i);
    }
    return std::nullopt;
}
} // namespace

QString RackDotAppearance::rawValue(Tint tint)
{
    return QLatin1String(tintNames.at(size_t(tint)));
}

QString RackDotAppearance::rawValue(Silhouette silhouette)
{
    return QLatin1String(silhouetteNames.at(size_t(silhouette)));
}

std::optional<RackDotAppearance::Tint> RackDotAppearance::tintFromRaw(const QString &raw)
{
    return fromNames<Tint>(tintNames, raw);
}

std::optional<RackDotAppearance::Silhouette>
RackDotAppearance::silhouetteFromRaw(const QString &raw)
{
    return fromNames<Silhouette>(silhouetteNames, raw);
}

QString rawValue(RackCheckoutKind kind)
{
    switch (kind) {
    case RackCheckoutKind::primaryCheckout:
        return QStringLiteral("primaryCheckout");
    case RackCheckoutKind::linkedWorktree:
        return QStringLiteral("linkedWorktree");
    case RackCheckoutKind::submodule:
        return QStringLiteral("submodule");
    case RackCheckoutKind::separateGitDirectory:
        return QStringLiteral("separateGitDirectory");
    case RackCheckoutKind::unknown:
        return QStringLiteral("unknown");
    }
    return {};
}

QString checkoutLabel(RackCheckoutKind kind)
{
    switch (kind) {
    case RackCheckoutKind::primaryCheckout:
        return QStringLiteral("Primary checkout");
    case RackCheckoutKind::linkedWorktree:
        return QStringLiteral("Git worktree");
    case RackCheckoutKind::submodule:
        return QStringLiteral("Git submodule");
    case RackCheckoutKind::separateGitDirectory:
        return QStringLiteral("Separate Git directory");
    case RackCheckoutKind::unknown:
        return QStringLiteral("Unknown checkout");
    }
    return {};
}

} // namespace taskrack
