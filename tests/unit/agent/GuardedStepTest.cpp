#include "agent/GuardedStep.h"
#include "support/RecordedTrace.h"

#include <gmock/gmock.h>

#include <new>

using namespace KzCommon;

TEST(GuardedStepTest, WhateverIsThrownIsTracedAndGoesNoFurther)
{
    RecordedTrace trace;
    EXPECT_TRUE(RunGuarded(L"Nothing", [] {}));
    const std::pair<void (*)(), const char*> rows[] = {{[] { Storage::Throw(ERROR_ACCESS_DENIED); }, "0x00000005"},
                                                       {[] { throw std::bad_alloc(); }, "0x800300fd"},
                                                       {[] { throw 1; }, "0x800300fd"}};
    for (const auto& [pfnStep, szCode] : rows) {
        trace.Clear();
        EXPECT_FALSE(RunGuarded(L"The rename", pfnStep));
        EXPECT_THAT(trace.Messages(),
                    testing::ElementsAre("!!! *** The rename ended early. [" + std::string(szCode) + "]"));
    }
}
