#include "agent/GuardedStep.h"
#include "support/RecordedTrace.h"

#include <gmock/gmock.h>

using namespace KzCommon;

TEST(GuardedStepTest, EveryExceptionIsTracedAndCaught)
{
    const RecordedTrace trace;
    EXPECT_TRUE(RunGuarded(L"Nothing", [] {}));
    EXPECT_FALSE(RunGuarded(L"The rename", [] { Storage::Throw(ERROR_ACCESS_DENIED); }));
    EXPECT_FALSE(RunGuarded(L"The rename", [] { throw 1; }));
    EXPECT_THAT(trace.Messages(), testing::ElementsAre("!!! *** The rename ended early. [0x00000005]",
                                                       "!!! *** The rename ended early. [0x800300fd]"));
}
