// A product installed in a private folder of the test.
#pragma once

#include "agent/RunContext.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_Registry.h"
#include "common/KzComn_String.h"
#include "support/RecordedTrace.h"
#include "support/RegistryFixture.h"

#include <gmock/gmock.h>

#include <set>
#include <thread>

using namespace testing;

class AgentTest : public RegistryTest {
protected:
    AgentTest() { WriteProduct(L"ProductPath", m_install.Path()); }

    void Instruct(const std::string& strLines) const { m_install.Write(L"QorPaFrwk.ini", strLines); }

    /// The number of trace lines that match.
    [[nodiscard]] std::ptrdiff_t CountTraced(const Matcher<const std::string&>& line) const
    {
        const std::vector<std::string> messages = m_trace.Messages();
        return std::count_if(messages.begin(), messages.end(),
                             [&](const std::string& strLine) { return line.Matches(strLine); });
    }
    /// Opens an installed file without sharing it.
    [[nodiscard]] KzCommon::UniqueFile Hold(const wchar_t* szName) const
    {
        return KzCommon::UniqueFile(
            ::CreateFileW(m_install.PathOf(szName).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    }
    [[nodiscard]] std::jthread HoldForAMoment(const wchar_t* szName) const
    {
        return std::jthread([held = Hold(szName)] { ::Sleep(250); });
    }
    /// The commands registered to run once; their names are unique.
    [[nodiscard]] static std::multiset<std::wstring> RunOnceCommands()
    {
        std::multiset<std::wstring> commands;
        KzCommon::Storage::Registry key;
        static_cast<void>(KzCommon::Storage::Guarded(nullptr, [&] {  // until the last one
            key.OpenForEnumerate(HKEY_LOCAL_MACHINE, kRunOnce);
            for (DWORD dwIndex = 0;; ++dwIndex) commands.insert(key.ReadString(key.EnumValue(dwIndex), L""));
        }));
        return commands;
    }

    static constexpr wchar_t kRunOnce[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
    TempFolder m_install;
    const std::string m_strInstall = KzCommon::String::ToUtf8(m_install.Path());
    RunContext m_run{m_machine};
    RecordedTrace m_trace;
};
