// A product installed in a private folder of the test.
#pragma once

#include "agent/RunContext.h"
#include "common/KzComn_Registry.h"
#include "support/Testing.h"

class AgentTest : public RegistryTest {
protected:
    AgentTest() { WriteProduct(L"ProductPath", m_install.Path()); }

    void Instruct(const std::string& strLines) const { m_install.Write(L"QorPaFrwk.ini", strLines); }
    /// Opens an installed file without sharing it.
    [[nodiscard]] UniqueFile Hold(const wchar_t* szName) const { return HoldFile(m_install.PathOf(szName)); }
    /// The commands registered to run once; their names are unique.
    [[nodiscard]] static std::multiset<std::wstring> RunOnceCommands()
    {
        std::multiset<std::wstring> commands;
        Storage::Registry key;
        static_cast<void>(Storage::Guarded(nullptr, [&] {  // until the last one
            key.OpenForEnumerate(HKEY_LOCAL_MACHINE, kRunOnce);
            for (DWORD dwIndex = 0;; ++dwIndex) commands.insert(key.ReadString(key.EnumValue(dwIndex), L""));
        }));
        return commands;
    }

    static constexpr wchar_t kRunOnce[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
    TempFolder m_install;
    RunContext m_run{m_machine};
};

/// Likewise with a watch; pauses of the agent take no time.
class WatchedAgentTest : public AgentTest {
protected:
    WatchedAgentTest() { m_watch.m_bHurry = true; }

    /// The delayed moves since the last call.
    [[nodiscard]] std::vector<std::wstring> Moves() { return std::exchange(m_watch.m_moves, {}); }

    SystemWatch m_watch{m_install.Path()};
};
