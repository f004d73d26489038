// Messages from the Codex cloud, and the person's "auth.json": neither is ours.

#include "sources/codex/codexcloudstatusclient.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    try {
        if (const auto result =
                taskrack::CodexCloudStatusClient::resultFor(QString::fromUtf8(bytes), 2)) {
            const auto page = taskrack::CodexCloudStatusClient::decodeListResult(*result);
            for (auto it = page.records.cbegin(); it != page.records.cend(); ++it) {
                if (it.key() != it.key().toLower())
                    __builtin_trap();
            }
        }
    } catch (const taskrack::CodexCloudStatusError &) {
    }
    try {
        const auto credentials = taskrack::CodexCloudCredentialsReader::decode(
            bytes, QDateTime::fromSecsSinceEpoch(1790000000, Qt::UTC));
        if (credentials.accessToken.isEmpty() ||
            !taskrack::CodexCloudCredentialsReader::isSubprotocolSafe(credentials.accessToken))
            __builtin_trap();
    } catch (const taskrack::CodexCloudStatusError &) {
    }
    return 0;
}
