#include "voice/quicktaskmodelprovenance.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace taskrack;
using Error = QuickTaskModelProvenance::Error;

namespace {

QuickTaskModelProvenance pinned()
{
    QuickTaskModelProvenance record{1, QuickTaskModelProvenance::expectedModel(),
                                    QuickTaskModelProvenance::expectedTokenizer()};
    for (auto *artifact : {&record.model, &record.tokenizer})
        for (QuickTaskModelFileDigest &file : artifact->files) {
            file.byteCount = file.path.size();
            file.sha256 = QString(64, QLatin1Char('a'));
        }
    return record;
}

QByteArray edited(const std::function<void(QuickTaskModelProvenance &)> &edit)
{
    QuickTaskModelProvenance record = pinned();
    edit(record);
    return record.encode();
}

} // namespace

TEST(ModelProvenance, OnlyThePinnedRecordIsTrusted)
{
    struct Case
    {
        const char *name;
        QByteArray bytes;
        std::optional<Error> error;
    };
    const Case cases[] = {
        {"pinned", pinned().encode(), std::nullopt},
        {"missing", {}, Error::manifestMissing},
        {"notJson", "{", Error::manifestInvalid},
        {"badDigest", edited([](auto &r) { r.model.files[0].sha256 = "ABC"; }),
         Error::manifestInvalid},
        {"schema2", edited([](auto &r) { r.schemaVersion = 2; }), Error::unsupportedSchema},
        {"otherRevision", edited([](auto &r) { r.model.revision = "main"; }),
         Error::catalogMismatch},
        {"missingFile", edited([](auto &r) { r.tokenizer.files.removeLast(); }),
         Error::catalogMismatch},
        {"duplicateFile", edited([](auto &r) { r.model.files.last() = r.model.files.first(); }),
         Error::catalogMismatch},
        {"extraFile", edited([](auto &r) { r.model.files.append(r.model.files.first()); }),
         Error::catalogMismatch},
    };
    for (const Case &c : cases) {
        const auto decoded = QuickTaskModelProvenance::decode(c.bytes);
        if (c.error)
            EXPECT_EQ(std::get<Error>(decoded), *c.error) << c.name;
        else
            EXPECT_EQ(std::get<QuickTaskModelProvenance>(decoded), pinned()) << c.name;
    }
}

TEST(ModelProvenance, IdentifierFollowsContentNotOrder)
{
    QuickTaskModelProvenance reordered = pinned();
    std::reverse(reordered.model.files.begin(), reordered.model.files.end());
    EXPECT_EQ(reordered.identifier(), pinned().identifier());
    QuickTaskModelProvenance changed = pinned();
    changed.model.files[3].byteCount += 1;
    EXPECT_NE(changed.identifier(), pinned().identifier());
    EXPECT_EQ(pinned().identifier().size(), 64);

    const QuickTaskModelManifest manifest{1, QuickTaskModelProvenance::variant,
                                          QStringLiteral("models/x"), pinned().identifier()};
    EXPECT_EQ(QuickTaskModelManifest::decode(manifest.encode()), manifest);
    EXPECT_EQ(
        QuickTaskModelManifest::decode("{\"version\":2,\"variant\":\"v\",\"relativePath\":\"p\"}"),
        std::nullopt);
}
