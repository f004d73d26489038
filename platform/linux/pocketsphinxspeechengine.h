#pragma once

// The recogniser Debian ships: pocketsphinx with its US English model. Only the packaged model
// is ever loaded: a truncated model file crashes the library while loading, so no path a person
// or another program could point elsewhere reaches it.

#include "platform/speechengine.h"

namespace taskrack {

class PocketSphinxSpeechEngine : public SpeechEngine
{
public:
    static const QString packagedModelDirectory;
    static const QString missingModelText;

    // Tests pass a folder without the model to see the refusal.
    explicit PocketSphinxSpeechEngine(QString modelDirectory = packagedModelDirectory);

    std::variant<std::unique_ptr<SpeechRecognizer>, QString> load() override;

private:
    QString m_modelDirectory;
};

} // namespace taskrack
