#include "sources/codex/codexappserverframe.h"

#include <QJsonObject>
#include <QRandomGenerator>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

using Kind = CodexAppServerError::Kind;
using Limit = CodexAppServerError::ResourceLimit;

QList<QByteArray> drain(CodexAppServerFramer &framer)
{
    QList<QByteArray> lines;
    while (std::optional<QByteArray> line = framer.takeLine())
        lines.append(*line);
    framer.checkUnfinishedLine();
    return lines;
}

template <typename F> CodexAppServerError thrownBy(F &&f)
{
    try {
        f();
    } catch (const CodexAppServerError &error) {
        return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return CodexAppServerError::disconnected();
}

TEST(CodexAppServerFramerTest, ReassemblesLinesFromAnyChunking)
{
    QByteArray stream;
    QList<QByteArray> expected;
    for (int i = 0; i < 200; ++i) {
        expected.append(QByteArray(i % 37, 'a' + char(i % 26)));
        stream += expected.last() + '\n';
    }
    QRandomGenerator random(42);
    for (int round = 0; round < 20; ++round) {
        CodexAppServerFramer framer(64);
        QList<QByteArray> lines;
        for (qsizetype at = 0; at < stream.size();) {
            const qsizetype size = std::min<qsizetype>(random.bounded(1, 90), stream.size() - at);
            framer.append(QByteArrayView(stream).sliced(at, size));
            lines += drain(framer);
            at += size;
        }
        ASSERT_EQ(lines, expected) << "round " << round;
        EXPECT_EQ(framer.bufferedBytes(), 0);
    }
}

TEST(CodexAppServerFramerTest, LinesAndUnfinishedLinesFailOnlyOnePastTheLimit)
{
    CodexAppServerFramer framer(8);
    framer.append("12345678\nok\n1234");
    EXPECT_EQ(drain(framer), (QList<QByteArray>{"12345678", "ok"}));
    framer.append("5678");
    EXPECT_NO_THROW(drain(framer)); // exactly 8 bytes waiting is still fine
    framer.append("9");
    const CodexAppServerError unfinished = thrownBy([&] { drain(framer); });
    EXPECT_EQ(unfinished.resourceLimit(), Limit::frame);
    EXPECT_EQ(unfinished.category(), "resource-limit-frame");

    CodexAppServerFramer complete(8);
    complete.append("123456789\n");
    EXPECT_EQ(thrownBy([&] { drain(complete); }).kind(), Kind::resourceLimitExceeded);
}

TEST(CodexAppServerMessageTest, ClassifiesTheThreeShapes)
{
    const auto notification = parseCodexAppServerMessage(
        R"({"method":"turn/started","params":{"a":1},"emittedAtMs":17})");
    EXPECT_EQ(notification.kind, CodexAppServerMessage::Kind::notification);
    EXPECT_EQ(notification.method, "turn/started");
    EXPECT_EQ(notification.params.toObject().value("a").toInt(), 1);

    // The server numbers its own requests from 0; the id must survive as it came.
    const auto request =
        parseCodexAppServerMessage(R"({"method":"item/x/requestApproval","id":0,"params":{}})");
    EXPECT_EQ(request.kind, CodexAppServerMessage::Kind::serverRequest);
    EXPECT_EQ(request.requestId, QJsonValue(0));
    EXPECT_EQ(parseCodexAppServerMessage(R"({"method":"m","id":"s-1"})").requestId,
              QJsonValue("s-1"));

    const auto response = parseCodexAppServerMessage(R"({"id":3.0,"result":null})");
    EXPECT_EQ(response.kind, CodexAppServerMessage::Kind::response);
    EXPECT_EQ(response.responseId, 3);
    EXPECT_TRUE(response.result.isNull());
    EXPECT_FALSE(response.error);

    const auto big = parseCodexAppServerMessage(R"({"id":9007199254740993,"result":{}})");
    EXPECT_EQ(big.responseId, 9007199254740993LL);

    EXPECT_EQ(parseCodexAppServerMessage("").kind, CodexAppServerMessage::Kind::empty);
    EXPECT_EQ(parseCodexAppServerMessage(" \r").kind, CodexAppServerMessage::Kind::empty);
}

TEST(CodexAppServerMessageTest, ErrorResponsesCompleteTheRequestWithARemoteError)
{
    const struct
    {
        const char *line;
        qint64 code;
        const char *message;
    } cases[] = {
        {R"({"id":1,"error":{"code":-32600,"message":"bad"}})", -32600, "bad"},
        {R"({"id":1,"error":{"message":"no code"}})", -1, "no code"},
        {R"({"id":1,"error":{"code":"x","message":5}})", -1, "Unknown error"},
        // An error object wins over a result.
        {R"({"id":1,"error":{},"result":{}})", -1, "Unknown error"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        const auto message = parseCodexAppServerMessage(c.line);
        ASSERT_TRUE(message.error);
        EXPECT_EQ(message.error->kind(), Kind::remote);
        EXPECT_EQ(message.error->remoteCode(), c.code);
        EXPECT_EQ(message.error->description(),
                  QString("Codex app-server returned an error: ") + c.message);
    }
}

TEST(CodexAppServerMessageTest, AnythingElseIsMalformed)
{
    for (const char *line :
         {"not json", "[1,2]", "42", R"({"id":1.5,"result":{}})", R"({"result":{}})",
          R"({"method":7,"result":{}})", R"({"id":1e300,"result":{}})", "{\"id\":1,", "\xff\xfe"}) {
        EXPECT_EQ(thrownBy([&] { parseCodexAppServerMessage(line); }).kind(),
                  Kind::malformedMessage)
            << line;
    }
    // A response without a usable result or error fails only its own request.
    const auto unusable = parseCodexAppServerMessage(R"({"id":4,"error":"text"})");
    EXPECT_EQ(unusable.kind, CodexAppServerMessage::Kind::response);
    ASSERT_TRUE(unusable.error);
    EXPECT_EQ(unusable.error->kind(), Kind::malformedMessage);
    // A non-string method with an integral id still reads as a response.
    EXPECT_EQ(parseCodexAppServerMessage(R"({"method":7,"id":2,"result":{}})").kind,
              CodexAppServerMessage::Kind::response);
}

TEST(CodexAppServerErrorTest, CategoriesTextsAndRetryability)
{
    struct Row
    {
        CodexAppServerError error;
        const char *category;
        const char *description;
        bool retryable;
    };
    const Row rows[] = {
        {CodexAppServerError::launchFailed("no exec"), "launch-failed",
         "Codex app-server could not start: no exec", false},
        {CodexAppServerError::timedOut("thread/list"), "request-timeout",
         "Codex app-server did not answer thread/list in time.", true},
        {CodexAppServerError::resourceLimitExceeded(Limit::inputQueue), "resource-limit-inputQueue",
         "Codex app-server sent more data than Taskrack can safely process.", true},
        {CodexAppServerError::remote(3, "m"), "remote-error",
         "Codex app-server returned an error: m", false},
        {CodexAppServerError::transport("pipe"), "transport-error",
         "Codex app-server communication failed: pipe", true},
        {CodexAppServerError::binaryNotFound(), "binary-not-found",
         "The Codex command-line tool could not be found.", false},
        {CodexAppServerError::disconnected(), "disconnected", "Codex app-server disconnected.",
         true},
        {CodexAppServerError::malformedMessage(), "malformed-message",
         "Codex app-server returned an unreadable response.", false},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(row.error.category(), row.category);
        EXPECT_EQ(row.error.description(), row.description);
        EXPECT_EQ(row.error.isRetryable(), row.retryable) << row.category;
        EXPECT_EQ(codexAppServerErrorCategory(std::make_exception_ptr(row.error)), row.category);
    }
    EXPECT_EQ(codexAppServerErrorCategory(std::make_exception_ptr(std::runtime_error("x"))),
              "unexpected-error");
    EXPECT_FALSE(isRetryableCodexAppServerError(std::make_exception_ptr(std::runtime_error("x"))));
}

} // namespace
