#include "voice/quicktaskmodelprovenance.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>
#include <algorithm>
#include <openssl/evp.h>

namespace taskrack {

const QString QuickTaskModelProvenance::unavailableText =
    QStringLiteral("Taskrack's speech model security information is unavailable. You can still "
                   "type Quick Tasks.");
const QString QuickTaskModelProvenance::variant = QStringLiteral("large-v3-v20240930_626MB");

namespace {

QuickTaskModelArtifact makeExpectedModel()
{
    QuickTaskModelArtifact artifact{QStringLiteral("argmaxinc/whisperkit-coreml"),
                                    QStringLiteral("0f63a7800b00dd0226abd051b906c246e1907482"),
                                    QStringLiteral("openai_whisper-large-v3-v20240930_626MB"),
                                    {}};
    for (const char *name : {"MelSpectrogram", "AudioEncoder", "TextDecoder"})
        for (const char *file : {"analytics/coremldata.bin", "coremldata.bin", "metadata.json",
                                 "model.mil", "weights/weight.bin"})
            artifact.files.append(
                {QStringLiteral("%1.mlmodelc/%2").arg(QLatin1String(name), QLatin1String(file)),
                 0,
                 {}});
    artifact.files.append({QStringLiteral("config.json"), 0, {}});
    artifact.files.append({QStringLiteral("generation_config.json"), 0, {}});
    return artifact;
}

QSet<QString> pathsOf(const QuickTaskModelArtifact &artifact)
{
    QSet<QString> paths;
    for (const QuickTaskModelFileDigest &file : artifact.files)
        paths.insert(file.path);
    return paths;
}

std::optional<QuickTaskModelArtifact> artifactFrom(const QJsonValue &value)
{
    static const QRegularExpression hex(QStringLiteral("^[0-9a-f]{64}$"));
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    QuickTaskModelArtifact artifact;
    for (auto [key, field] :
         {std::pair{"repository", &artifact.repository}, std::pair{"revision", &artifact.revision},
          std::pair{"directory", &artifact.directory}}) {
        const QJsonValue v = object.value(QLatin1String(key));
        if (!v.isString())
            return std::nullopt;
        *field = v.toString();
    }
    const QJsonValue files = object.value(QLatin1String("files"));
    if (!files.isArray())
        return std::nullopt;
    for (const QJsonValue &entry : files.toArray()) {
        const QJsonObject file = entry.toObject();
        const QJsonValue path = file.value(QLatin1String("path"));
        const QJsonValue size = file.value(QLatin1String("byteCount"));
        const QJsonValue digest = file.value(QLatin1String("sha256"));
        if (!path.isString() || !size.isDouble() || !digest.isString() ||
            !hex.match(digest.toString()).hasMatch() || size.toDouble() < 0 ||
            size.toDouble() != double(size.toInteger()))
            return std::nullopt;
        artifact.files.append({path.toString(), size.toInteger(), digest.toString()});
    }
    return artifact;
}

QJsonObject artifactJson(const QuickTaskModelArtifact &artifact)
{
    QJsonArray files;
    for (const QuickTaskModelFileDigest &file : artifact.files)
        files.append(QJsonObject{{QStringLiteral("path"), file.path},
                                 {QStringLiteral("byteCount"), file.byteCount},
                                 {QStringLiteral("sha256"), file.sha256}});
    return {{QStringLiteral("repository"), artifact.repository},
            {QStringLiteral("revision"), artifact.revision},
            {QStringLiteral("directory"), artifact.directory},
            {QStringLiteral("files"), files}};
}

bool matches(const QuickTaskModelArtifact &artifact, const QuickTaskModelArtifact &expected)
{
    return artifact.repository == expected.repository && artifact.revision == expected.revision &&
           artifact.directory == expected.directory &&
           artifact.files.size() == expected.files.size() && pathsOf(artifact) == pathsOf(expected);
}

} // namespace

const QuickTaskModelArtifact &QuickTaskModelProvenance::expectedModel()
{
    static const QuickTaskModelArtifact artifact = makeExpectedModel();
    return artifact;
}

const QuickTaskModelArtifact &QuickTaskModelProvenance::expectedTokenizer()
{
    static const QuickTaskModelArtifact artifact{
        QStringLiteral("openai/whisper-large-v3"),
        QStringLiteral("06f233fe06e710322aca913c1bc4249a0d71fce1"),
        QStringLiteral("models/openai/whisper-large-v3"),
        {{QStringLiteral("tokenizer.json"), 0, {}},
         {QStringLiteral("tokenizer_config.json"), 0, {}}}};
    return artifact;
}

std::variant<QuickTaskModelProvenance, QuickTaskModelProvenance::Error>
QuickTaskModelProvenance::decode(const QByteArray &bytes)
{
    if (bytes.isEmpty())
        return Error::manifestMissing;
    const QJsonDocument document = QJsonDocument::fromJson(bytes);
    if (!document.isObject())
        return Error::manifestInvalid;
    const QJsonObject object = document.object();
    const QJsonValue schema = object.value(QLatin1String("schemaVersion"));
    auto model = artifactFrom(object.value(QLatin1String("model")));
    auto tokenizer = artifactFrom(object.value(QLatin1String("tokenizer")));
    if (!schema.isDouble() || !model || !tokenizer)
        return Error::manifestInvalid;
    if (schema.toDouble() != 1.0)
        return Error::unsupportedSchema;
    if (!matches(*model, expectedModel()) || !matches(*tokenizer, expectedTokenizer()))
        return Error::catalogMismatch;
    return QuickTaskModelProvenance{1, std::move(*model), std::move(*tokenizer)};
}

QByteArray QuickTaskModelProvenance::encode() const
{
    return QJsonDocument(QJsonObject{{QStringLiteral("schemaVersion"), schemaVersion},
                                     {QStringLiteral("model"), artifactJson(model)},
                                     {QStringLiteral("tokenizer"), artifactJson(tokenizer)}})
        .toJson(QJsonDocument::Indented);
}

QString QuickTaskModelProvenance::identifier() const
{
    QByteArray text = "schemaVersion=" + QByteArray::number(schemaVersion) + '\n';
    for (const auto &[name, artifact] :
         {std::pair{"model", &model}, std::pair{"tokenizer", &tokenizer}}) {
        const QByteArray prefix = QByteArray(name) + '.';
        text += prefix + "repository=" + artifact->repository.toUtf8() + '\n';
        text += prefix + "revision=" + artifact->revision.toUtf8() + '\n';
        text += prefix + "directory=" + artifact->directory.toUtf8() + '\n';
        QList<QuickTaskModelFileDigest> files = artifact->files;
        std::sort(files.begin(), files.end(),
                  [](const auto &a, const auto &b) { return a.path < b.path; });
        for (const QuickTaskModelFileDigest &file : files)
            text += prefix + "file=" + file.path.toUtf8() + '\t' +
                    QByteArray::number(file.byteCount) + '\t' + file.sha256.toUtf8() + '\n';
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(text.constData(), size_t(text.size()), digest, &length, EVP_sha256(), nullptr);
    return QString::fromLatin1(
        QByteArray(reinterpret_cast<const char *>(digest), int(length)).toHex());
}

std::optional<QuickTaskModelManifest> QuickTaskModelManifest::decode(const QByteArray &bytes)
{
    const QJsonDocument document = QJsonDocument::fromJson(bytes);
    if (!document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();
    const QJsonValue version = object.value(QLatin1String("version"));
    const QJsonValue variant = object.value(QLatin1String("variant"));
    const QJsonValue relativePath = object.value(QLatin1String("relativePath"));
    const QJsonValue identifier = object.value(QLatin1String("provenanceIdentifier"));
    if (!version.isDouble() || version.toDouble() != 1.0 || !variant.isString() ||
        !relativePath.isString() ||
        !(identifier.isString() || identifier.isUndefined() || identifier.isNull()))
        return std::nullopt;
    return QuickTaskModelManifest{1, variant.toString(), relativePath.toString(),
                                  identifier.isString() ? std::optional(identifier.toString())
                                                        : std::nullopt};
}

QByteArray QuickTaskModelManifest::encode() const
{
    QJsonObject object{{QStringLiteral("version"), version},
                       {QStringLiteral("variant"), variant},
                       {QStringLiteral("relativePath"), relativePath}};
    if (provenanceIdentifier)
        object.insert(QStringLiteral("provenanceIdentifier"), *provenanceIdentifier);
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

} // namespace taskrack
