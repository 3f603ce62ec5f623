#include "common/KzComn_Process.h"
#include "support/watch/SystemWatch.h"
#include "unit/check/VerifyFixture.h"

using KzCommon::String::ToUtf8;

namespace {

constexpr char kLost[] = "MISSING a.exe (the file that the restart should move there is missing)";

class PendingTest : public VerifyTest {};

/// A machine that lets its caller read neither registry nor INI files.
struct ClosedMachine : KzCommon::WindowsMachine {
    bool ReadValue(const KzCommon::RegistryPlace& /*place*/, KzCommon::RegistryData& /*data*/,
                   DWORD* pdwError) const override
    {
        return KzCommon::Storage::Fail(ERROR_ACCESS_DENIED, pdwError);
    }
    bool ReadIniValue(const std::wstring& /*tstrFile*/, const std::wstring& /*tstrSection*/,
                      const std::wstring& /*tstrKey*/, const std::wstring& /*tstrDefault*/, std::wstring& /*tstrValue*/,
                      DWORD* pdwError) const override
    {
        return KzCommon::Storage::Fail(ERROR_ACCESS_DENIED, pdwError);
    }
};

}  // namespace

TEST_F(PendingTest, EveryStateOfAFile)
{
    Write(L"Component\\p1\\64bit\\p1\\a.exe", "new");
    const ExpectedState expected = Collect();
    ASSERT_EQ(expected.files.size(), 1u);
    m_machine.Write(L"a.exe0", "new");
    m_machine.Write(L"other.exe", "other");
    m_machine.Write(L"full\\x.txt", "");
    const std::wstring tstrDelivery = L"@Component\\p1\\64bit\\p1\\a.exe|!@A.EXE|";
    // The installed content (null: no file), whether the file is still in the download folder, and the pending moves.
    const std::tuple<const char*, bool, std::wstring, std::vector<const char*>> rows[] = {
        {"new", false, L"", {"0", "ARRIVED a.exe"}},
        {"new", true, L"", {"0", "ARRIVED a.exe"}},  // staged on another drive
        {nullptr, false, L"", {"1", "MISSING a.exe"}},
        {"old", false, L"", {"1", "DIFFERENT a.exe (another content)"}},
        {"newer", false, L"", {"1", "DIFFERENT a.exe (another content)"}},
        {"old", true, L"@b.exe||@a.exe|@c.exe||", {"1", "LEFT IN DOWNLOAD a.exe (another content)"}},
        {nullptr, true, L"@a.exe|||", {"1", "LEFT IN DOWNLOAD a.exe (nothing is there)"}},
        // files that the restart brings
        {"new", true, tstrDelivery, {"3010", "STILL WAITING a.exe"}},
        {"old", true, tstrDelivery, {"3010", "STILL WAITING a.exe"}},
        {nullptr, false, L"*1@a.exe0|*2!@a.exe|", {"3010", "STILL WAITING a.exe"}},
        {"old", false, L"@a.exe||@a.exe0|@a.exe|", {"3010", "STILL WAITING a.exe"}},
        {"old", false, L"@a.exe0|@b.exe|@b.exe|!@a.exe|", {"3010", "STILL WAITING a.exe"}},
        {"old", false, L"@other.exe|!@a.exe|@a.exe0|!@a.exe|", {"3010", "STILL WAITING a.exe"}},
        {"old", false, L"@a.exe0|@a.exe|", {"1", "DIFFERENT a.exe (another content)"}},
        {"old", true, L"@none|!@a.exe|@other.exe|!@a.exe|", {"1", "LEFT IN DOWNLOAD a.exe (another content)"}},
        {nullptr, false, L"@a.exe0|@none\\b.exe|@none\\b.exe|@a.exe|", {"1", kLost}},
        // files that it removes again
        {"new", false, L"@A.exe||", {"1", "TO BE DELETED a.exe (at the restart)"}},
        {"new", false, L"|@x|@a.exe||", {"1", "TO BE DELETED a.exe (at the restart)"}},
        {"new", false, L"@a.exe|@c.exe|", {"1", "TO BE DELETED a.exe (at the restart)"}},
        {"new", false, L"@|\\??\\C:\\elsewhere|", {"1", "TO BE DELETED a.exe (at the restart)"}},
        {"old", true, tstrDelivery + L"@a.exe||", {"1", "TO BE DELETED a.exe (at the restart)"}},
        {"new", false, L"@a.exe|@c.exe|@c.exe|@a.exe|", {"0", "ARRIVED a.exe"}},
        {"new", false, L"@other.exe|!@a.exe|", {"1", "TO BE REPLACED a.exe (at the restart, by other.exe)"}},
        {"new", false, L"@other.exe|@a.exe|", {"0", "ARRIVED a.exe"}},
        {"new", false, L"@a.exe|!@full|@full||", {"0", "ARRIVED a.exe"}},
        {"new", false, L"@full\\x.txt||@full||@a.exe|@full|", {"1", "TO BE DELETED a.exe (at the restart)"}},
        // files that it cannot bring are missing
        {"old", false, tstrDelivery, {"1", kLost}},
        {nullptr, false, tstrDelivery, {"1", kLost}},
        {nullptr, true, L"@other.exe||@other.exe|!@a.exe|", {"1", kLost}},
        {"new", false, tstrDelivery, {"0", "ARRIVED a.exe"}},
    };
    for (const auto& [szInstalled, bDownloaded, tstrPending, found] : rows) {
        const std::wstring tstrSource = m_machine.Write(L"Component\\p1\\64bit\\p1\\a.exe", "new");
        const std::wstring tstrTarget = m_machine.Write(L"a.exe", szInstalled ? szInstalled : "");
        if (!bDownloaded) ::DeleteFileW(tstrSource.c_str());
        if (!szInstalled) ::DeleteFileW(tstrTarget.c_str());
        EXPECT_THAT(Verify(expected, tstrPending), ElementsAreArray(found)) << ToUtf8(tstrPending);
    }
    m_machine.Write(L"Component\\p1\\64bit\\p1\\a.exe", "new");
    const std::wstring tstrOld = m_machine.Write(L"a.exe", "old");
    ::SetFileAttributesW(tstrOld.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_THAT(Verify(expected, tstrDelivery),
                ElementsAre("1", "LEFT IN DOWNLOAD a.exe (read-only, so the restart does not replace it)"));
    EXPECT_THAT(Verify(expected, L"@a.exe||" + tstrDelivery), ElementsAre("3010", "STILL WAITING a.exe"));
    ::SetFileAttributesW(tstrOld.c_str(), FILE_ATTRIBUTE_NORMAL);
    ExpectedState copied = expected;
    copied.files[0].bAtRestart = false;
    EXPECT_THAT(Verify(copied), ElementsAre("1", "DIFFERENT a.exe (another content)")) << "copied, not moved";
}

TEST_F(PendingTest, APendingMoveIsKnownByAnySpellingOfItsPath)
{
    Write(L"Component\\p1\\64bit\\p1\\a.exe", "new");
    const ExpectedState expected = Collect();
    m_machine.Write(L"a.exe", "new");
    m_machine.Write(L"other.exe", "other");
    const std::wstring tstrPath = m_machine.Path();
    wchar_t szVolume[MAX_PATH] = {};
    ASSERT_TRUE(::GetVolumeNameForVolumeMountPointW(tstrPath.substr(0, 3).c_str(), szVolume, MAX_PATH));
    const std::wstring tstrVolume = std::wstring(szVolume).substr(4);
    wchar_t szShort[MAX_PATH] = {};
    ASSERT_NE(::GetShortPathNameW(tstrPath.c_str(), szShort, MAX_PATH), 0U);
    for (const std::wstring& tstrFolder :
         {L"\\DosDevices\\" + tstrPath, L"\\GLOBAL??\\" + tstrPath, tstrPath, std::wstring(L"\\??\\") + szShort,
          L"\\??\\" + tstrVolume + tstrPath.substr(3)}) {
        EXPECT_THAT(Verify(expected, tstrFolder + L"other.exe|!" + tstrFolder + L"A.EXE|"),
                    ElementsAre("1", StartsWith("TO BE REPLACED a.exe")))
            << ToUtf8(tstrFolder);
        EXPECT_THAT(Verify(expected, L"*1" + tstrFolder + L"A.EXE||"),
                    ElementsAre("1", StartsWith("TO BE DELETED a.exe")))
            << ToUtf8(tstrFolder);
    }
    ::DeleteFileW(m_machine.PathOf(L"a.exe").c_str());
    EXPECT_THAT(Verify(expected, tstrPath + L"other.exe|!" + tstrPath + L"a.exe|" + szShort + L"a.exe||"),
                ElementsAre("1", StartsWith("TO BE DELETED a.exe")))
        << "which an earlier move brings";
    for (const auto& [szRaw, tstrPlain] : {
             std::pair(L"\\SystemRoot\\Temp\\x", KzCommon::Process::WindowsFolder() + L"Temp\\x"),
             {L"\\??\\UNC\\server\\share\\x", L"\\\\server\\share\\x"},
             {L"\\??\\Volume{0}\\x", L"\\\\?\\Volume{0}\\x"},
         }) {
        EXPECT_EQ(ParsePendingMoves(szRaw).front().tstrSource, tstrPlain);
    }
}

TEST_F(PendingTest, AFolderThatMayNotBeListedIsUnknown)
{
    Instruct(
        "[QOR_DIR]\ndelete={InstalledDir}Closed\ndelete={InstalledDir}Above\n"
        "[QOR_FILE]\ndelete={InstalledDir}Closed\\*.tmp\ndelete={InstalledDir}*.tmp\n");
    m_update.MakeFolder(L"Component\\p1");
    m_machine.Write(L"Closed\\a.txt", "");
    m_machine.Write(L"Above\\Closed\\a.txt", "");
    m_machine.Write(L"Above\\b.txt", "");
    ExpectedState expected = Collect();
    SystemWatch watch(m_machine.Path().substr(0, 3));
    watch.m_fault = [](std::string_view strCall, const std::wstring& tstrPlace) -> DWORD {
        const bool bClosed = strCall == "FindFirstFileW" && tstrPlace.find(L"Closed\\") != std::wstring::npos;
        return bClosed ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
    };
    const auto unknown = [](const std::string& strPlace) {
        return StartsWith("UNKNOWN " + strPlace + " (access denied");
    };
    EXPECT_THAT(Verify(expected), UnorderedElementsAre("1", "NOT DELETED Above\\ (1 file)", unknown("Closed\\"),
                                                       unknown("Closed\\*.tmp"), "DELETED *.tmp"));
    EXPECT_THAT(Verify(expected, L"@Above\\b.txt||@Above\\Closed||@Above||"), Contains(unknown("Above\\")));
    std::erase_if(expected.deletions, [](const ExpectedDeletion& deletion) { return deletion.bFolder; });
    EXPECT_THAT(Verify(expected), UnorderedElementsAre("1", unknown("Closed\\*.tmp"), "DELETED *.tmp"));
}

TEST_F(PendingTest, AValueThatMayNotBeReadIsUnknown)
{
    Instruct("[QOR_REGISTRY_PATCH]\nadd=@!N!REG_SZ!x\ndelete=@!Gone\n[UPDATE_INFO]\nmodify=S!K!a\n");
    Bring({L"p1\\Share\\Setting\\x.txt"});
    ExpectedState expected = Collect();
    expected.files.clear();
    EXPECT_THAT(
        Verify<ClosedMachine>(expected),
        AllOf(Contains(StartsWith("UNKNOWN N (access denied")), Contains(StartsWith("UNKNOWN Gone (access denied")),
              Contains(StartsWith("UNKNOWN UpdateInfo.ini: [S] K (access denied"))));
}
