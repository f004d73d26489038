// Feeds arbitrary bytes to the parsers of the small git files a checkout probe reads (".git"
// pointers, "commondir", ".gitmodules") and to the origin normaliser.

#include "core/rackprojectidentity.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));

    if (const auto gitdir = taskrack::parseGitdirFile(bytes)) {
        if (gitdir->isEmpty() || gitdir->trimmed() != *gitdir ||
            gitdir->contains(QLatin1Char('\n')))
            std::abort();
    }
    if (const auto commondir = taskrack::parseCommondirFile(bytes)) {
        if (commondir->isEmpty() || commondir->trimmed() != *commondir)
            std::abort();
    }
    for (const QString &path : taskrack::parseGitmodulesPaths(bytes)) {
        if (path.isEmpty() || path.startsWith(QLatin1Char('/')) || path.endsWith(QLatin1Char('/')))
            std::abort();
    }
    if (const auto key = taskrack::repositoryKey(QString::fromUtf8(bytes))) {
        if (key->isEmpty())
            std::abort();
    }
    return 0;
}
