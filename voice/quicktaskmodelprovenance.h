#pragma once

// What the application pins about the optional Whisper speech model: for the model repository
// and the tokenizer repository, the revision and every file's size and SHA-256. The record ships
// inside the program; a record that names anything else is not trusted at all. The install
// manifest ties an installed model to the record that verified it.

#include <QByteArray>
#include <QList>
#include <QString>
#include <optional>
#include <variant>

namespace taskrack {

struct QuickTaskModelFileDigest
{
    QString path;
    qint64 byteCount = 0;
    QString sha256; // lower-case hexadecimal

    bool operator==(const QuickTaskModelFileDigest &) const = default;
};

struct QuickTaskModelArtifact
{
    QString repository;
    QString revision;
    QString directory;
    QList<QuickTaskModelFileDigest> files;

    bool operator==(const QuickTaskModelArtifact &) const = default;
};

struct QuickTaskModelProvenance
{
    enum class Error { manifestMissing, manifestInvalid, unsupportedSchema, catalogMismatch };
    static const QString unavailableText;

    int schemaVersion = 1;
    QuickTaskModelArtifact model;
    QuickTaskModelArtifact tokenizer;

    // The pinned identifiers and the exact file sets.
    static const QuickTaskModelArtifact &expectedModel();     // files: paths only
    static const QuickTaskModelArtifact &expectedTokenizer(); // files: paths only
    static const QString variant;

    // Decodes and checks a record; empty bytes are a missing record.
    static std::variant<QuickTaskModelProvenance, Error> decode(const QByteArray &bytes);
    QByteArray encode() const;
    // SHA-256 (hex) of one canonical line per field, files in sorted order.
    QString identifier() const;

    bool operator==(const QuickTaskModelProvenance &) const = default;
};

struct QuickTaskModelManifest
{
    int version = 1;
    QString variant;
    QString relativePath;
    std::optional<QString> provenanceIdentifier;

    static std::optional<QuickTaskModelManifest> decode(const QByteArray &bytes);
    QByteArray encode() const;
    bool operator==(const QuickTaskModelManifest &) const = default;
};

} // namespace taskrack
