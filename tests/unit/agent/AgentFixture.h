// A product installed in a folder of the test's own, and the agent that works on it.
#pragma once

#include "agent/QorDeployAgent.h"
#include "common/Frwk_Utility.h"
#include "support/RecordedTrace.h"
#include "support/RegistryFixture.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>

#include <initializer_list>

class AgentTest : public RegistryTest {
protected:
    AgentTest() { WriteRaw(HKEY_LOCAL_MACHINE, Frwk::Utility::kProductKey, L"ProductPath", RawText(m_install.Path())); }

    /// Writes the instruction file; line ends are the system's.
    void Instruct(std::string strLines) const { m_install.Write(L"QorPaFrwk.ini", strLines); }

    /// How many lines of the trace are exactly this one.
    [[nodiscard]] std::ptrdiff_t CountTraced(const std::string& strLine) const
    {
        const std::vector<std::string> messages = m_trace.Messages();
        return std::count(messages.begin(), messages.end(), strLine);
    }

    TempFolder m_install;
    FrameworkDeployAgent m_agent;
    RecordedTrace m_trace;
};
