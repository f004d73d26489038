#pragma once

// Recordings for the speech path, made on the spot by the sound tools: a sentence spoken by
// espeak-ng, or a noise, hum or tone from sox; 16 kHz mono 16-bit WAV with silence either side
// of speech, as a microphone would hear it.

#include <QString>

namespace taskrack::testing {

// The WAV's path in `folder`, or empty when espeak-ng or sox is missing.
QString speakToWav(const QString &text, const QString &folder, const QString &name);
// `synth` is what follows "sox -n -r 16000 -c 1 -b 16 FILE synth", e.g. "5 pinknoise vol 0.3".
QString synthesizeToWav(const QString &synth, const QString &folder, const QString &name);

// Share of `reference`'s words (each counted once per occurrence) found in `text`, ignoring case
// and punctuation.
double wordRecall(const QString &reference, const QString &text);

} // namespace taskrack::testing
