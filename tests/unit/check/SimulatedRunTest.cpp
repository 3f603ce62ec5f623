// Windows-specific rules of a machine in memory, its recorded changes, and the results of its restart.
#include "check/simulate/PlanMachine.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"
#include "support/TempFolder.h"

#include "agent/RunOnce.h"

#include <gmock/gmock.h>

using namespace testing;
using namespace KzCommon;
using namespace Check;

namespace {

Storage::Patience s_runPatience;

constexpr wchar_t kVault[] = L"SOFTWARE\\Vault";

/// A change in one line: outcome, target, name, values, source, staged copy, reason.
std::string Shown(const Change& change)
{
    std::wstring tstrLine(1, L"+~-=!"[static_cast<int>(change.eOutcome)]);
    const auto add = [&](const wchar_t* szBefore, const std::wstring& tstrText) {
        if (!tstrText.empty()) tstrLine += szBefore + tstrText;
    };
    add(L" ", change.tstrTarget);
    add(L" ", change.tstrName);
    add(L": ", change.optOld.value_or(L""));
    add(L" -> ", change.optNew.value_or(L""));
    add(L" <- ", change.tstrSource);
    add(L" by ", change.tstrStaged);
    if (change.bAtRestart) tstrLine += L" later";
    add(L"; ", change.tstrReason);
    return String::ToUtf8(tstrLine);
}

class SimulatedRunTest : public Test {
protected:
    [[nodiscard]] std::vector<std::string> Changes()
    {
        std::vector<std::string> lines;
        for (const PlanStep& step : m_machine.Steps()) {
            for (const Change& change : step.changes) lines.push_back(Shown(change));
        }
        return lines;
    }
    [[nodiscard]] bool Copy(const wchar_t* szTo, const wchar_t* szFrom, CopyMode eMode = CopyMode::eNew)
    {
        return m_machine.CopyNow(szTo, szFrom, eMode, &m_dwError);
    }
    [[nodiscard]] bool Later(const wchar_t* szFrom, const wchar_t* szTo)
    {
        return m_machine.MoveAtRestart(szFrom, szTo, &m_dwError);
    }

    SimulatedMachine m_machine{nullptr};
    DWORD m_dwError = ERROR_SUCCESS;
};

}  // namespace

TEST_F(SimulatedRunTest, WhatOnlyWindowsRefuses)
{
    m_machine.AddFile(L"C:\\ro.ini", "[S]\r\nk=v\r\n", FILE_ATTRIBUTE_READONLY);
    m_machine.AddFile(L"C:\\a.ini", "[S]\r\nk=vv\r\n");
    m_machine.AddFile(L"C:\\b.ini", "[S]\r\nk=vvv\r\n");
    m_machine.AddFile(L"C:\\file", "");
    m_machine.AddFile(L"C:\\hidden", "", FILE_ATTRIBUTE_HIDDEN);
    const std::wstring tstrLong(255, L'n');
    const auto store = [&](const std::wstring& tstrKey, const std::wstring& tstrName) {
        return m_machine.StoreValue({.tstrKeyPath = tstrKey, .tstrName = tstrName}, DWORD{1}, &m_dwError);
    };
    const auto create = [&](const std::wstring& tstrPath) {
        return m_machine.CreateFolder(tstrPath, &m_dwError);
    };
    const auto list = [&](const wchar_t* szFolder, const wchar_t* szPattern) {
        return m_machine.ForEachEntry(
            szFolder, szPattern, [](const auto&) {}, &m_dwError);
    };
    const std::pair<DWORD, std::function<bool()>> rows[] = {
        // clang-format off
        {ERROR_INVALID_PARAMETER, [&] { return store(L"Vault\\Deep", L""); }},
        {ERROR_INVALID_PARAMETER, [&] { return store(L"SOFTWARE\\" + tstrLong + L"n", L""); }},
        {ERROR_SUCCESS, [&] { return store(L"SOFTWARE\\" + tstrLong, L""); }},
        {ERROR_SUCCESS, [&] { return m_machine.ReadIniSection(L"C:\\a.ini", L"S", {8, 8, 9}).entries.size() == 1; }},
        {ERROR_SUCCESS, [&] { return m_machine.ReadIniSection(L"C:\\b.ini", L"S", {8, 8, 9}).entries.empty(); }},
        {ERROR_INVALID_PARAMETER, [&] { return store(kVault, std::wstring(16384, L'n')); }},
        {ERROR_ACCESS_DENIED,
         [&] { return m_machine.StoreIniValue(L"C:\\ro.ini", L"S", L"k", L"w", s_runPatience, &m_dwError); }},
        {ERROR_PATH_NOT_FOUND, [&] { return Copy((L"C:\\" + tstrLong + L"xyz").c_str(), L"C:\\file"); }},
        {ERROR_ACCESS_DENIED, [&] { return Copy(L"C:\\hidden", L"C:\\file", CopyMode::eOverwrite); }},
        {ERROR_FILENAME_EXCED_RANGE, [&] { return create(L"C:\\" + tstrLong.substr(0, 245)); }},
        {ERROR_SUCCESS, [&] { return create(L"C:\\" + tstrLong.substr(0, 244)); }},
        {ERROR_PATH_NOT_FOUND, [&] { return create(L"Q:\\a"); }}, {ERROR_DIRECTORY, [&] { return create(L"C:\\nul"); }},
        {ERROR_DIRECTORY, [&] { return list(L"C:\\file\\", L"*"); }},
        {ERROR_INVALID_NAME, [&] { return list(L"C:\\", L"a|"); }}};  // clang-format on
    for (const auto& [dwCode, request] : rows) {
        m_dwError = ERROR_SUCCESS;
        EXPECT_EQ(dwCode == ERROR_SUCCESS, request()) << &request - &rows[0].second;
        EXPECT_EQ(dwCode, m_dwError);
    }
    // A character that the code page lacks, and a UTF-16 file.
    EXPECT_TRUE(m_machine.StoreIniValue(L"C:\\a.ini", L"s", L"K", L"\u4e00", s_runPatience, nullptr));
    m_machine.AddFile(L"C:\\u.ini", "\xFF\xFE");
    EXPECT_TRUE(m_machine.StoreIniValue(L"C:\\u.ini", L"s", L"K", L"\u4e00", s_runPatience, nullptr));
    EXPECT_THAT(Changes(),
                IsSupersetOf({"! HKEY_LOCAL_MACHINE\\Vault\\Deep; Windows allows no key directly below the root",
                              "! C:\\ro.ini [S] k; the file there is read-only", "! Q:\\a; there is no such drive",
                              "! C:\\nul; a device has that name", "~ C:\\a.ini [s] K: vv -> ?",
                              "+ C:\\u.ini [s] K -> \u4e00"}));
}

TEST_F(SimulatedRunTest, LongPathsNeedTheSettingOfTheMachine)
{
    m_machine.AddFile(L"C:\\file", "");
    m_machine.SetValue(
        {.tstrKeyPath = L"SYSTEM\\CurrentControlSet\\Control\\FileSystem", .tstrName = L"LongPathsEnabled"},
        ToStored(DWORD{1}));
    const std::wstring tstrFolder = L"C:\\" + std::wstring(250, L'n') + L"\\";
    EXPECT_TRUE(m_machine.CreateFolder(tstrFolder, nullptr));
    EXPECT_TRUE(Copy((tstrFolder + L"deep.txt").c_str(), L"C:\\file"));
    EXPECT_FALSE(Copy((L"C:\\" + std::wstring(256, L'n')).c_str(), L"C:\\file"));
    EXPECT_EQ(DWORD{ERROR_INVALID_NAME}, m_dwError);
}

TEST_F(SimulatedRunTest, TheRestartDecidesWhatArrives)
{
    for (const wchar_t* const szFile : {L"C:\\up\\a", L"C:\\up\\b", L"C:\\up\\c", L"C:\\up\\d", L"C:\\up\\e",
                                        L"C:\\up\\f", L"C:\\in\\ro", L"C:\\in\\new", L"C:\\task\\old"}) {
        m_machine.AddFile(szFile, "x", szFile[4] == L'n' ? FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_ARCHIVE);
    }
    m_machine.AddFolder(L"C:\\in\\folder");
    m_machine.AddMountPoint(L"C:\\other");
    EXPECT_TRUE(Later(L"C:\\up\\a", L"C:\\in\\ro"));
    EXPECT_TRUE(Later(L"C:\\up\\b", L"C:\\in\\RO"));
    EXPECT_TRUE(Later(L"C:\\in\\new", L"C:\\task\\new"));  // read-only itself
    EXPECT_TRUE(Later(L"C:\\up\\c", L"C:\\task\\new"));
    EXPECT_TRUE(Later(L"C:\\up\\c", L"C:\\none\\c"));
    EXPECT_TRUE(Later(L"C:\\up\\d", L"C:\\in\\folder"));
    EXPECT_TRUE(Later(L"C:\\up\\d", L"C:\\other\\d"));
    EXPECT_TRUE(Later(L"C:\\up\\e", L"C:\\in\\e"));
    EXPECT_TRUE(Later(L"C:\\up\\f", L"C:\\task\\f"));
    EXPECT_TRUE(m_machine.DeleteMatchingNow(L"C:\\up\\", L"e", nullptr, &Storage::Directory::SpareNone));
    EXPECT_TRUE(m_machine.DeleteTreeAtRestart(L"C:\\task\\", nullptr, &Storage::Directory::SpareNone));
    EXPECT_TRUE(m_machine.DeleteTreeAtRestart(L"C:\\up\\", nullptr, &Storage::Directory::SpareNone));
    EXPECT_FALSE(m_machine.DeleteMatchingAtRestart(L"C:\\in\\", L"*.none", nullptr, &Storage::Directory::SpareNone));
    m_machine.Restart();
    EXPECT_THAT(
        Changes(),
        ElementsAre(
            "~ C:\\in\\ro <- C:\\up\\a later", "~ C:\\in\\RO <- C:\\up\\b later; replaces C:\\up\\a",
            "+ C:\\task\\new <- C:\\in\\new later",
            "! C:\\task\\new <- C:\\up\\c later; the file there is read-only then",
            "! C:\\none\\c <- C:\\up\\c later; the folder is missing",
            "! C:\\in\\folder <- C:\\up\\d later; a folder has that name",
            "! C:\\other\\d <- C:\\up\\d later; on another volume: Windows cannot move files there at the restart",
            "! C:\\in\\e <- C:\\up\\e later; the file to move is gone by then", "+ C:\\task\\f <- C:\\up\\f later",
            "- C:\\up\\e", "- C:\\task\\old later", "! C:\\task later; the folder is not empty by then",
            "- C:\\up\\a later", "- C:\\up\\b later", "- C:\\up\\c later", "- C:\\up\\d later", "- C:\\up\\f later",
            "- C:\\up later", "= C:\\in\\*.none later; no file matches"));
    EXPECT_TRUE(m_machine.HasFile(L"C:\\task\\f"));
    EXPECT_FALSE(m_machine.HasAny(L"C:\\up"));
    EXPECT_TRUE(m_machine.PendingMoves().empty());
}

TEST_F(SimulatedRunTest, WhatItMakesAndDeletesAgainIsNoChange)
{
    m_machine.AddFile(L"C:\\file", "");
    for (const wchar_t* const szMade : {L"C:\\a", L"C:\\b", L"C:\\c"}) EXPECT_TRUE(Copy(szMade, L"C:\\file"));
    for (const wchar_t* const szDeleted : {L"C:\\a", L"C:\\b"}) EXPECT_TRUE(m_machine.DeleteNow(szDeleted, nullptr));
    EXPECT_THAT(Changes(), ElementsAre("+ C:\\c <- C:\\file"));
}

TEST_F(SimulatedRunTest, APlannedRunIsTracedOnlyInThePlan)
{
    const TempFolder folder;
    folder.Write(L"a.txt", "");
    const WindowsMachine real;
    const auto run = [&](Machine& machine) {
        machine.BeginOperation(L"Operation");
        EXPECT_TRUE(machine.DeleteNow(folder.PathOf(L"a.txt"), nullptr));
        Trace(kTraceError, L"deleted");
    };
    for (const bool bTrace : {true, false}) {
        const PlannedRun planned = PlanRun(real, {folder.Path(), folder.Path(), false}, run, bTrace);
        ASSERT_EQ(std::size_t{1}, planned.steps.size());
        EXPECT_EQ(L"Operation", planned.steps[0].tstrName);
        EXPECT_EQ(Outcome::eRemove, planned.steps[0].changes.at(0).eOutcome);
        EXPECT_EQ(bTrace, planned.tstrTrace.find(L"!!! <Brevant> deleted - ") != std::wstring::npos);
    }
    EXPECT_THAT(folder.List(), ElementsAre(L"a.txt"));
    EXPECT_FALSE(GlobalDebugLog().Trace("a.cpp", 1, kTraceError, L"after it"));
}
