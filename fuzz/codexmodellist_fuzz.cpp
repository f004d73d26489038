// The model list comes from the Codex app-server, a child process we do not trust.

#include "quicktask/quicktaskcodexcatalog.h"

#include <QJsonDocument>
#include <QSet>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray(reinterpret_cast<const char *>(data), qsizetype(size)));
    QSet<QString> seen;
    for (const taskrack::QuickTaskCodexModel &model : taskrack::cleanedModels(document.array())) {
        if (model.model.isEmpty() || model.displayName.isEmpty() || model.hidden == true ||
            seen.contains(model.model))
            __builtin_trap();
        seen.insert(model.model);
    }
    return 0;
}
