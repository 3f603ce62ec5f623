// A product installed in a folder of the test's own.
#pragma once

#include "agent/PathValues.h"
#include "common/KzComn_String.h"
#include "support/RecordedTrace.h"
#include "support/RegistryFixture.h"

#include <gmock/gmock.h>

using namespace testing;

class AgentTest : public RegistryTest {
protected:
    AgentTest() { WriteProduct(L"ProductPath", m_install.Path()); }

    void Instruct(const std::string& strLines) const { m_install.Write(L"QorPaFrwk.ini", strLines); }

    /// How many lines of the trace are exactly this one.
    [[nodiscard]] std::ptrdiff_t CountTraced(const std::string& strLine) const
    {
        const std::vector<std::string> messages = m_trace.Messages();
        return std::count(messages.begin(), messages.end(), strLine);
    }

    TempFolder m_install;
    PathValues m_paths;
    RecordedTrace m_trace;
};
