#pragma once

// The production cloud status: the person's switch and endpoint from the preferences, the
// credentials from the Codex home, Qt WebSockets underneath.

#include "core/clock.h"
#include "platform/filesystem.h"
#include "platform/preferences.h"
#include "sources/codex/codexcloudstatusprovider.h"

#include <memory>

namespace taskrack {

inline const QString codexCloudLiveStatusEnabledKey = QStringLiteral("codexCloudLiveStatusEnabled");
inline const QString codexCloudStatusEndpointKey = QStringLiteral("codexCloudStatusEndpoint");

// Absent means on.
bool isCodexCloudLiveStatusEnabled(const Preferences &preferences);

std::shared_ptr<CodexCloudStatusProvider> makeCodexCloudStatusProvider(const QString &codexHome,
                                                                       const FileSystem &fileSystem,
                                                                       Clock &clock,
                                                                       Preferences &preferences);

} // namespace taskrack
