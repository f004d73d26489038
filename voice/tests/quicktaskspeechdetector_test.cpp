#include "voice/quicktaskspeechdetector.h"

#include "testing/testsupport.h"

#include <gtest/gtest.h>

using namespace taskrack;

namespace {

// Answers every analyse() with the windows a test scripted for it.
struct ScriptedClassifier : SoundClassifier
{
    std::vector<std::vector<SoundClassification>> *script;
    std::vector<SoundClassification> analyse(std::span<const float>) override
    {
        if (script->empty())
            return {};
        auto next = script->front();
        script->erase(script->begin());
        return next;
    }
    std::vector<SoundClassification> finish() override { return {}; }
};

struct GateCase
{
    const char *name;
    std::vector<SoundClassification> results; // after the third buffer of 100 frames
    std::vector<float> activity;
};

class SpeechDetectorTest : public ::testing::TestWithParam<GateCase>
{
};

// Waits until the analysis thread has seen everything appended so far.
void settle(QuickTaskSpeechDetector &detector)
{
    std::atomic<bool> done = false;
    detector.afterAnalysis([&] { done = true; });
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return done.load(); }));
}

} // namespace

TEST_P(SpeechDetectorTest, MarksBuffersThatOverlapASpeechWindow)
{
    std::vector<std::vector<SoundClassification>> script{{}, {}, GetParam().results};
    auto created = QuickTaskSpeechDetector::create([&] {
        auto classifier = std::make_unique<ScriptedClassifier>();
        classifier->script = &script;
        return classifier;
    });
    auto &detector = *std::get<std::unique_ptr<QuickTaskSpeechDetector>>(created);
    const std::vector<float> buffer(100, 0.0f);
    for (int i = 0; i < 3; ++i)
        detector.append(buffer);
    settle(detector);
    EXPECT_EQ(detector.activity(4), GetParam().activity);
    const bool any = std::find(GetParam().activity.begin(), GetParam().activity.end(), 1.0f) !=
                     GetParam().activity.end();
    EXPECT_EQ(detector.containsSpeech(), any);

    // After the end of analysis nothing more is counted.
    detector.finish();
    detector.append(buffer);
    settle(detector);
    EXPECT_EQ(detector.activity(5).back(), 0.0f);
    EXPECT_EQ(detector.activity(2).size(), 2u);
}

INSTANTIATE_TEST_SUITE_P(
    Windows, SpeechDetectorTest,
    ::testing::Values(GateCase{"silence", {}, {0, 0, 0, 0}},
                      GateCase{"exactlyHalfCounts", {{0, 150, 0.5}}, {1, 1, 0, 0}},
                      GateCase{"justBelowHalf", {{0, 300, 0.49}}, {0, 0, 0, 0}},
                      GateCase{"oneFrameOfOverlap", {{199, 199, 0.9}}, {0, 1, 0, 0}},
                      GateCase{"lastBuffer", {{250, 400, 1.0}}, {0, 0, 1, 0}}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(SpeechDetector, WithoutAClassifierVoiceIsUnavailable)
{
    auto created = QuickTaskSpeechDetector::create([] { return nullptr; });
    EXPECT_EQ(std::get<QString>(created),
              "This computer does not provide the required on-device speech detector.");
}
