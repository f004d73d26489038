#include "core/rackthread.h"
#include "core/threadcollection.h"

#include <gtest/gtest.h>

using namespace taskrack;

TEST(RackThreadTest, ProviderRawValuesAreWireNamesNotCaseNames)
{
    EXPECT_EQ(rawValue(RackProvider::claudeDesktop), "claude");
    EXPECT_EQ(providerFromRaw("claude"), RackProvider::claudeDesktop);
    EXPECT_EQ(providerFromRaw("claudeDesktop"), std::nullopt);
    for (RackStatus status : allStatuses)
        EXPECT_EQ(statusFromRaw(rawValue(status)), status);
}

TEST(RackThreadTest, RankPutsRunningAboveBlocked)
{
    EXPECT_LT(statusRank(RackStatus::working), statusRank(RackStatus::requiresInput));
    EXPECT_LT(int(RackStatus::requiresInput), int(RackStatus::working));
}

TEST(RackThreadTest, LabelsDistinguishRecordedDesktopThreads)
{
    RackThread thread;
    thread.status = RackStatus::completed;
    EXPECT_EQ(thread.shortLabel(), "Done");
    EXPECT_EQ(thread.accessibilityLabel(), "completed and unread");

    thread.status = RackStatus::recent;
    thread.codexDesktopIdentity = CodexDesktopIdentity{"scope"};
    EXPECT_EQ(thread.shortLabel(), "Recorded");
    EXPECT_EQ(thread.accessibilityLabel(), "Recorded task; current execution status unavailable");

    thread.hasLiveCloudStatus = true;
    EXPECT_EQ(thread.shortLabel(), "Recent");
}

TEST(RackThreadTest, SearchTextJoinsFieldsInOrder)
{
    RackThread thread;
    thread.title = "Fix login";
    thread.preview = "crash";
    thread.provider = RackProvider::claudeDesktop;
    thread.projectIdentity.name = "web";
    thread.workspacePath = "/src/web";
    thread.projectIdentity.workspacePath = "/src/web";
    thread.checkoutMetadata.kind = RackCheckoutKind::linkedWorktree;
    EXPECT_EQ(thread.searchText(), "Fix login crash Claude web /src/web /src/web Git worktree");
}

TEST(RackThreadTest, FailureKeysScopeComponentsByProvider)
{
    ThreadSourceFailure plain{"Codex",      ThreadSourceFailureState::degraded,
                              false,        RackProvider::codex,
                              std::nullopt, false};
    ThreadSourceFailure component = plain;
    component.component = ThreadSourceHealthComponent::desktopMetadata;
    EXPECT_EQ(plain.mergeKey(), "source:Codex");
    EXPECT_EQ(component.mergeKey(), "component:codex:desktopMetadata");
    component.provider.reset();
    EXPECT_EQ(component.mergeKey(), "component:unscoped:desktopMetadata");
}
