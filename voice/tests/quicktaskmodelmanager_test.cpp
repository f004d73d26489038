#include "voice/quicktaskmodelmanager.h"

#include "testing/testsupport.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace taskrack;
using Kind = QuickTaskModelState::Kind;

namespace {

// A hub (testing/fakemodelhub.py) serving a made-up snapshot whose digests the record pins.
class ModelManagerTest : public ::testing::Test
{
protected:
    ModelManagerTest()
    {
        record = {1, QuickTaskModelProvenance::expectedModel(),
                  QuickTaskModelProvenance::expectedTokenizer()};
        for (auto *artifact : {&record.model, &record.tokenizer})
            for (QuickTaskModelFileDigest &file : artifact->files) {
                const QByteArray bytes = file.path.toUtf8().repeated(7);
                const bool model = artifact == &record.model;
                const QString path =
                    hub.path() + QLatin1Char('/') + artifact->repository + QLatin1Char('/') +
                    (model ? artifact->directory + QLatin1Char('/') : QString()) + file.path;
                QDir().mkpath(QFileInfo(path).path());
                QFile out(path);
                out.open(QIODevice::WriteOnly);
                out.write(bytes);
                file.byteCount = bytes.size();
                file.sha256 = QString::fromLatin1(
                    QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
            }
        server.start(QStringLiteral("python3"),
                     {taskrack::testing::sourceDir() + QStringLiteral("/testing/fakemodelhub.py"),
                      hub.path(), log(), hub.path() + QStringLiteral("/behaviour.json")});
        server.waitForReadyRead(30000);
        port = server.readLine().trimmed().toInt();
    }
    ~ModelManagerTest() override
    {
        server.kill();
        server.waitForFinished();
    }

    void behave(const QJsonObject &rules)
    {
        QFile file(hub.path() + QStringLiteral("/behaviour.json"));
        file.open(QIODevice::WriteOnly);
        file.write(QJsonDocument(rules).toJson());
    }
    QString log() const { return hub.path() + QStringLiteral("/requests.log"); }
    QString base() const { return home.path() + QStringLiteral("/WhisperLargeV3"); }
    std::unique_ptr<QuickTaskModelManager>
    manager(std::chrono::milliseconds stall = std::chrono::seconds(30))
    {
        return std::make_unique<QuickTaskModelManager>(QuickTaskModelManager::Dependencies{
            network, QUrl(QStringLiteral("http://127.0.0.1:%1").arg(port)), preferences, base(),
            record.encode(), stall});
    }
    static void download(QuickTaskModelManager &m)
    {
        taskrack::testing::awaitVoid(m.download(), 60000);
    }

    QTemporaryDir hub;
    QTemporaryDir home;
    QProcess server;
    int port = 0;
    QNetworkAccessManager network;
    InMemoryPreferences preferences;
    QuickTaskModelProvenance record;
};

} // namespace

TEST_F(ModelManagerTest, DownloadsThroughARedirectAndIsReadyAfterARestart)
{
    behave({{QStringLiteral("redirect"), true}});
    auto first = manager();
    EXPECT_EQ(first->statusText(), "Not downloaded");
    download(*first);
    EXPECT_EQ(first->state().kind, Kind::ready) << qPrintable(first->statusText());
    EXPECT_EQ(first->installedModelPath(), QFileInfo(first->modelFolder()).canonicalFilePath());
    EXPECT_EQ(manager()->state().kind, Kind::ready);

    // Another record does not fit the install.
    record.model.files[0].byteCount += 1;
    EXPECT_EQ(manager()->state().kind, Kind::notDownloaded);
}

TEST_F(ModelManagerTest, ServerFaultsFailTheDownload)
{
    const QString failed = QuickTaskModelManager::downloadFailedText;
    const std::pair<QJsonObject, QString> cases[] = {
        {{{QStringLiteral("status"), QJsonObject{{QStringLiteral("config.json"), 404}}}}, failed},
        {{{QStringLiteral("status"), QJsonObject{{QStringLiteral("tokenizer.json"), 500}}}},
         failed},
        {{{QStringLiteral("extra"), QJsonArray{QStringLiteral("config.json")}}}, failed},
        {{{QStringLiteral("stall"), QJsonArray{QStringLiteral("model.mil")}}}, failed},
    };
    for (const auto &[rules, message] : cases) {
        behave(rules);
        auto m = manager(std::chrono::milliseconds(300));
        download(*m);
        EXPECT_EQ(m->state(), (QuickTaskModelState{Kind::failed, 0, message}))
            << qPrintable(QJsonDocument(rules).toJson());
        QDir(base()).removeRecursively();
    }
}

TEST_F(ModelManagerTest, ADroppedDownloadResumesWhereItStopped)
{
    behave({{QStringLiteral("drop"), QJsonObject{{QStringLiteral("weight.bin"), 10}}}});
    download(*manager());
    auto restarted = manager();
    EXPECT_EQ(restarted->statusText(), "Download incomplete");
    behave({});
    download(*restarted);
    EXPECT_EQ(restarted->state().kind, Kind::ready);
    QFile requests(log());
    requests.open(QIODevice::ReadOnly);
    EXPECT_TRUE(requests.readAll().contains("bytes=10-"));
}

TEST_F(ModelManagerTest, AFileThatFailsItsCheckTakesEverythingWithIt)
{
    record.tokenizer.files[0].sha256 = QString(64, QLatin1Char('0'));
    auto m = manager();
    download(*m);
    EXPECT_EQ(m->state().message, QuickTaskModelManager::integrityCheckFailedText);
    EXPECT_FALSE(QFileInfo::exists(base()));
}

TEST_F(ModelManagerTest, StorageAndRemoval)
{
    // A file where the folder should be: nothing can be saved.
    QFile blocker(base());
    blocker.open(QIODevice::WriteOnly);
    blocker.close();
    auto m = manager();
    download(*m);
    EXPECT_EQ(m->state().message, QuickTaskModelManager::storageFailedText);
    QFile::remove(base());

    // Removal deletes the link inside the base, never the folder it points to.
    QTemporaryDir outside;
    QFile kept(outside.path() + QStringLiteral("/kept"));
    kept.open(QIODevice::WriteOnly);
    kept.close();
    QDir().mkpath(base());
    QFile::link(outside.path(), base() + QStringLiteral("/linked"));
    auto fresh = manager();
    taskrack::testing::awaitVoid(fresh->remove());
    EXPECT_FALSE(QFileInfo::exists(base()));
    EXPECT_TRUE(QFileInfo::exists(outside.path() + QStringLiteral("/kept")));
    EXPECT_EQ(fresh->state().kind, Kind::notDownloaded);
}

TEST(ModelManagerRecord, WithoutAPinnedRecordNothingDownloads)
{
    QNetworkAccessManager network;
    InMemoryPreferences preferences;
    QuickTaskModelManager m({network, QUrl(QStringLiteral("https://hub.invalid")), preferences,
                             QStringLiteral("/nonexistent/base"), std::nullopt});
    taskrack::testing::awaitVoid(m.download());
    EXPECT_EQ(m.state().message, QuickTaskModelProvenance::unavailableText);
}
