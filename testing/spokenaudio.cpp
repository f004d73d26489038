#include "testing/spokenaudio.h"

#include <QProcess>
#include <QRegularExpression>
#include <QStringList>

namespace taskrack::testing {

namespace {

bool run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    return process.waitForFinished(120000) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

QStringList wordsOf(const QString &text)
{
    static const QRegularExpression separators(QStringLiteral("[^a-z']+"));
    return text.toLower().split(separators, Qt::SkipEmptyParts);
}

} // namespace

QString speakToWav(const QString &text, const QString &folder, const QString &name)
{
    const QString raw = folder + QLatin1Char('/') + name + QStringLiteral("-22k.wav");
    const QString wav = folder + QLatin1Char('/') + name + QStringLiteral(".wav");
    // The klatt voice at 130 words a minute is the one the recogniser understands best.
    if (!run(QStringLiteral("espeak-ng"),
             {QStringLiteral("-v"), QStringLiteral("en-us+klatt"), QStringLiteral("-s"),
              QStringLiteral("130"), QStringLiteral("-w"), raw, text}) ||
        // No dither: sox's random dither alone moved the recogniser's recall of one sentence
        // between 33% and 83%; a test hears the same audio every time.
        !run(QStringLiteral("sox"),
             {QStringLiteral("-D"), raw, QStringLiteral("-r"), QStringLiteral("16000"),
              QStringLiteral("-c"), QStringLiteral("1"), QStringLiteral("-b"), QStringLiteral("16"),
              wav, QStringLiteral("pad"), QStringLiteral("1"), QStringLiteral("1")}))
        return {};
    return wav;
}

QString synthesizeToWav(const QString &synth, const QString &folder, const QString &name)
{
    const QString wav = folder + QLatin1Char('/') + name + QStringLiteral(".wav");
    QStringList arguments{
        QStringLiteral("-n"),   QStringLiteral("-r"), QStringLiteral("16000"), QStringLiteral("-c"),
        QStringLiteral("1"),    QStringLiteral("-b"), QStringLiteral("16"),    wav,
        QStringLiteral("synth")};
    arguments += synth.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    return run(QStringLiteral("sox"), arguments) ? wav : QString();
}

double wordRecall(const QString &reference, const QString &text)
{
    const QStringList expected = wordsOf(reference);
    QStringList heard = wordsOf(text);
    int found = 0;
    for (const QString &word : expected)
        if (heard.removeOne(word))
            ++found;
    return expected.isEmpty() ? 0 : double(found) / double(expected.size());
}

} // namespace taskrack::testing
