// Replacing and deleting files that are in use, locked, or not alone in their folder.
#include "common/KzComn_File.h"
#include "common/KzComn_FileReplace.h"
#include "common/KzComn_LockedFolder.h"
#include "common/KzComn_WholeFile.h"
#include "support/Testing.h"

using namespace Storage;

namespace {

constexpr DWORD kLocked = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN;

/// Every way to read or change a file: applies it to "new" and "old" of the folder; the content of "old" on success.
struct Way {
    const char* szName;
    std::function<bool(const TempFolder&, DWORD*)> act;
    std::optional<std::string> expected;
    bool bUnlocks;  // works on a read-only file
};
std::string s_strRead;
enum { eRead, eCopy, eBackup, eReplaceWhole, eDelete, eDeleteFiles };
const Way kWays[] = {
    // clang-format off
    {"ReadWhole", [](const TempFolder& f, DWORD* p) { return File::ReadWhole(f.PathOf(L"old"), 1, s_strRead, p); }, "o", true},
    {"Copy", [](const TempFolder& f, DWORD* p) { return File::Copy(f.PathOf(L"old"), f.PathOf(L"new"), true, p); }, "n", false},
    {"Backup", [](const TempFolder& f, DWORD* p) { return File::Backup(f.PathOf(L"old"), f.PathOf(L"new"), p); }, "n", true},
    {"ReplaceWhole", [](const TempFolder& f, DWORD* p) { return File::ReplaceWhole(f.PathOf(L"old"), "n", p); }, "n", false},
    {"Delete", [](const TempFolder& f, DWORD* p) { return File::Delete(f.PathOf(L"old"), p); }, std::nullopt, true},
    {"DeleteFiles", [](const TempFolder& f, DWORD* p) { return Directory::DeleteFiles(f.Path(), L"o*", p); }, std::nullopt, true}};
// clang-format on

/// A temporary file's name created by the process with that id.
std::wstring TemporaryName(DWORD dwProcess, unsigned uNumber)
{
    wchar_t szName[40] = {};
    ::_snwprintf_s(szName, _TRUNCATE, L"~kzcomn-%08lx-%02u.tmp", dwProcess, uNumber);
    return szName;
}

/// Whether the process has its restore privilege enabled.
bool MayRestore()
{
    UniqueKernelHandle token;
    PRIVILEGE_SET wanted{1, PRIVILEGE_SET_ALL_NECESSARY, {}};
    BOOL bHeld = FALSE;
    EXPECT_TRUE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.Receive()));
    EXPECT_TRUE(::LookupPrivilegeValueW(nullptr, SE_RESTORE_NAME, &wanted.Privilege[0].Luid));
    EXPECT_TRUE(::PrivilegeCheck(token.Get(), &wanted, &bHeld));
    return bHeld;
}

}  // namespace

TEST(Replace, FilesInUseAreRetriedAndFailWithTheirCode)
{
    for (const Way& way : kWays) {
        SCOPED_TRACE(way.szName);
        const TempFolder folder;
        for (const wchar_t* szHeld : {L"old", L"new"}) {  // the file, its source
            folder.Write(L"new", "n");
            folder.Write(L"old", "o");
            DWORD dwError = 77;
            const std::jthread holder = HoldForAMoment(folder.PathOf(szHeld));
            EXPECT_TRUE(way.act(folder, &dwError)) << dwError;
            EXPECT_EQ(way.expected, folder.Read(L"old"));
        }
        // Waiting for two files in use takes no longer than for one, and both keep their attributes.
        UniqueFile held = HoldFile(folder.Write(L"old", "o"));
        if (way.bUnlocks) ::SetFileAttributesW(folder.PathOf(L"old").c_str(), kLocked);
        const UniqueFile second = HoldFile(folder.Write(L"o2", "o"));
        DWORD dwError = 77;
        {
            SystemWatch watch(folder.Path());
            watch.m_bHurry = true;
            EXPECT_FALSE(way.act(folder, &dwError));
            EXPECT_EQ(kInUseRepetitions * kHeldPauseMs, watch.m_dwPausedMs);
        }
        EXPECT_THAT(dwError, AnyOf(DWORD{ERROR_ACCESS_DENIED}, DWORD{ERROR_SHARING_VIOLATION}));
        held.Reset();
        EXPECT_EQ("o", folder.Read(L"old"));
        EXPECT_EQ(way.bUnlocks ? kLocked : 0, folder.Attributes(L"old") & kLocked);
        EXPECT_THAT(folder.List(), ElementsAre(L"new", L"o2", L"old")) << "no temporary file is left";
    }
}

TEST(Replace, AFailedStepHasItsCodeAndLeavesNoHalfFile)
{
    for (const Way& way : kWays) {
        for (const char* szCall : {"FlushFileBuffers", "SetEndOfFile", "GetFileSizeEx", "SetFileSecurityW"}) {
            const TempFolder folder;
            folder.Write(L"new", "n");
            folder.Write(L"old", "o");
            DWORD dwError = 0;
            {
                SystemWatch watch(folder.Path());
                watch.Fail(szCall, ERROR_NOT_READY);
                const bool bDone = way.act(folder, &dwError);
                EXPECT_EQ(bDone, dwError == 0);
            }
            EXPECT_THAT(folder.List(), Not(Contains(EndsWith(L".tmp"))));
            const std::string strTold = way.szName + std::string(", ") + szCall + ": " + std::to_string(dwError) + ", ";
            Trace(kTraceInfo, L"%s", String::FromAnsi(strTold + folder.Read(L"old").value_or("deleted")).c_str());
        }
    }
}

TEST(Replace, ALockedOrMisplacedTargetFailsAtOnceUnlessItIsACopyOfOurs)
{
    const std::tuple<int, DWORD, bool> rows[] = {// clang-format off
        {eRead, kLocked, true}, {eRead, FILE_ATTRIBUTE_DIRECTORY, false}, {eCopy, FILE_ATTRIBUTE_READONLY, false},
        {eCopy, FILE_ATTRIBUTE_HIDDEN, false}, {eCopy, FILE_ATTRIBUTE_SYSTEM, false},
        {eCopy, FILE_ATTRIBUTE_DIRECTORY, false}, {eReplaceWhole, FILE_ATTRIBUTE_READONLY, false},
        {eReplaceWhole, FILE_ATTRIBUTE_HIDDEN, true}, {eReplaceWhole, FILE_ATTRIBUTE_DIRECTORY, false},
        {eBackup, kLocked, true}, {eBackup, FILE_ATTRIBUTE_DIRECTORY, false}, {eDelete, kLocked, true},
        {eDelete, FILE_ATTRIBUTE_DIRECTORY, false}, {eDeleteFiles, kLocked, true}};  // clang-format on
    for (const auto& [nWay, dwAttributes, bDone] : rows) {
        const Way& way = kWays[nWay];
        SCOPED_TRACE(way.szName + std::to_string(dwAttributes));
        const TempFolder folder;
        folder.Write(L"new", "n");
        const bool bFolder = dwAttributes == FILE_ATTRIBUTE_DIRECTORY;
        bFolder ? folder.MakeFolder(L"old") : folder.Write(L"old", "o", dwAttributes);
        DWORD dwError = 0;
        EXPECT_LT(TimeOf([&] { EXPECT_EQ(bDone, way.act(folder, &dwError)); }), 1500U);
        EXPECT_EQ(bDone ? 0 : DWORD{ERROR_ACCESS_DENIED}, dwError);
        EXPECT_EQ(bDone && nWay == eBackup ? 0 : dwAttributes, folder.Attributes(L"old") & (dwAttributes | kLocked));
        EXPECT_EQ(bFolder ? std::nullopt : bDone ? way.expected : "o", folder.Read(L"old"));
    }
    const TempFolder folder;
    folder.MakeFolder(L"folder");
    folder.Write(L"new", "n");
    for (const DWORD dwAttributes : {DWORD{FILE_ATTRIBUTE_READONLY}, kLocked | FILE_ATTRIBUTE_SYSTEM}) {
        EXPECT_TRUE(File::MakeWritable(folder.Write(L"old", "o", dwAttributes), nullptr));
        EXPECT_TRUE(kWays[eCopy].act(folder, nullptr)) << "made writable";
    }
    for (const auto& [szName, dwCode] :
         {std::pair(L"none", DWORD{0}), {L"none\\old", 0}, {L"folder", ERROR_DIRECTORY}}) {
        DWORD dwError = 0;
        EXPECT_EQ(dwCode == 0, File::MakeWritable(folder.PathOf(szName), &dwError));
        EXPECT_EQ(dwCode, dwError);
    }
}

TEST(Replace, TheOverwrittenFilesRightsStayAndTheSourcesAttributesCome)
{
    const TempFolder folder;
    const std::wstring tstrNew = folder.Write(L"new", "n"), tstrOld = folder.Write(L"old", "o");
    void* pDescriptor = nullptr;
    ASSERT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;;FA;;;BA)(A;;FA;;;IU)", SDDL_REVISION_1,
                                                                       &pDescriptor, nullptr));
    EXPECT_TRUE(::SetFileSecurityW(tstrOld.c_str(), DACL_SECURITY_INFORMATION, pDescriptor));
    ::LocalFree(pDescriptor);
    const std::wstring tstrClosed = AccessOf(tstrOld);
    ASSERT_NE(tstrClosed, AccessOf(tstrNew));
    {
        File::Replacement replacement(folder.PathOf(L"target"));
        ASSERT_TRUE(replacement.Create(tstrOld, FILE_ATTRIBUTE_NORMAL, nullptr));
        EXPECT_EQ(tstrClosed, AccessOf(folder.PathOf(TemporaryName(::GetCurrentProcessId(), 0)))) << "from the start";
    }
    for (const Way& way : {kWays[eCopy], kWays[eReplaceWhole]}) {
        // A hard link to the old file shows that its content is replaced, not overwritten.
        ASSERT_TRUE(::CreateHardLinkW(folder.PathOf(L"second").c_str(), tstrOld.c_str(), nullptr));
        EXPECT_TRUE(way.act(folder, nullptr)) << way.szName;
        EXPECT_EQ(tstrClosed, AccessOf(tstrOld)) << way.szName;
        EXPECT_EQ("o", folder.Read(L"second")) << way.szName;
        EXPECT_TRUE(File::Delete(folder.PathOf(L"second"), nullptr));
        folder.Write(L"old", "o");
    }
    ::SetFileAttributesW(tstrNew.c_str(), kLocked);
    EXPECT_TRUE(File::Backup(folder.PathOf(L"kept"), tstrOld, nullptr));
    EXPECT_EQ(tstrClosed, AccessOf(folder.PathOf(L"kept")));
    EXPECT_TRUE(File::Copy(tstrOld, tstrNew, true, nullptr));
    EXPECT_EQ(kLocked, folder.Attributes(L"old") & kLocked);
    EXPECT_THAT(folder.List(), ElementsAre(L"kept", L"new", L"old"));
}

TEST(Replace, WithoutATemporaryFileTheTargetIsOverwrittenOrItsCodeReported)
{
    const TempFolder folder;
    const std::wstring tstrNew = folder.Write(L"new", "n"), tstrOld = folder.Write(L"old", "o");
    folder.MakeFolder(TemporaryName(::GetCurrentProcessId(), 0));
    EXPECT_TRUE(File::Backup(tstrOld, tstrNew, nullptr)) << "the next name is free";
    for (unsigned uNumber = 1; uNumber < 100; ++uNumber)
        folder.MakeFolder(TemporaryName(::GetCurrentProcessId(), uNumber));
    folder.Write(L"old", "o");
    EXPECT_TRUE(File::Copy(tstrOld, tstrNew, true, nullptr));
    EXPECT_EQ("n", folder.Read(L"old"));
    DWORD dwError = 0;
    EXPECT_FALSE(File::Backup(tstrOld, tstrNew, &dwError));
    EXPECT_EQ(DWORD{ERROR_FILE_EXISTS}, dwError);
    EXPECT_FALSE(File::Copy(folder.PathOf(L"none\\old"), tstrNew, true, &dwError));
    EXPECT_EQ(DWORD{ERROR_PATH_NOT_FOUND}, dwError);
    EXPECT_FALSE(File::Copy(tstrOld, folder.PathOf(L"none"), true, &dwError));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, dwError);
}

TEST(Replace, OnlyLeftoversOfEndedRunsAreDeleted)
{
    const IdleProcess running;
    const TempFolder folder;
    const std::wstring tstrRunning = TemporaryName(running.Id(), 0);
    std::vector<std::wstring> others{L"~kzcomn-0000002g-00.tmp",
                                     L"~kzcomn-00000020-00.tmp0",
                                     L"~kzcomn-00000020-0x.tmp",
                                     L"~kzcomn-00000020_00.tmp",
                                     L"~kzcomn-mine.tmp",
                                     tstrRunning,
                                     L"x~kzcomn-00000020-00.tmp",
                                     L"new",
                                     L"old"};
    for (const std::wstring& tstrName : others) folder.Write(tstrName, "x", FILE_ATTRIBUTE_READONLY);
    folder.Write(L"old", "o");
    for (const DWORD dwProcess : {DWORD{0xFFFFFFF0}, ::GetCurrentProcessId()})
        folder.Write(TemporaryName(dwProcess, 0), "x", FILE_ATTRIBUTE_READONLY);
    EXPECT_TRUE(kWays[eCopy].act(folder, nullptr));
    EXPECT_THAT(folder.List(), UnorderedElementsAreArray(others));
    running.End();
    folder.Write(L"old", "o");
    EXPECT_TRUE(kWays[eCopy].act(folder, nullptr));
    std::erase(others, tstrRunning);
    EXPECT_THAT(folder.List(), UnorderedElementsAreArray(others));
}

TEST(Replace, ALockedFolderCannotBeExchangedAndKnowsItsOwnFiles)
{
    const TempFolder folder;
    UniqueFile inside = HoldFile(folder.Write(L"a\\b\\file", ""));
    const UniqueFile outside = HoldFile(folder.Write(L"a\\other\\file", ""));
    DWORD dwError = 0;
    {
        Directory::LockedFolder held;
        EXPECT_FALSE(held.Hold(folder.PathOf(L"a\\none\\"), &dwError));
        EXPECT_EQ(DWORD{ERROR_PATH_NOT_FOUND}, dwError);
        ASSERT_TRUE(held.Hold(folder.PathOf(L"A\\b\\"), nullptr));
        EXPECT_TRUE(held.IsHomeOf(inside.Get()));
        EXPECT_FALSE(held.IsHomeOf(outside.Get()));
        inside.Reset();
        EXPECT_FALSE(::MoveFileW(folder.PathOf(L"a\\b").c_str(), folder.PathOf(L"c").c_str()));
    }
    EXPECT_TRUE(::MoveFileW(folder.PathOf(L"a\\b").c_str(), folder.PathOf(L"c").c_str()));

    const std::wstring tstrLong = folder.MakeFolder(L"A long name of a folder\\And another in it");
    wchar_t szShort[MAX_PATH] = {};
    ASSERT_NE(::GetShortPathNameW(tstrLong.c_str(), szShort, MAX_PATH), 0U);
    ASSERT_EQ(std::wstring(szShort).find(L' '), std::wstring::npos);
    EXPECT_TRUE(File::Copy(std::wstring(szShort) + L"copy", folder.Write(L"new", "n"), true, &dwError)) << dwError;
    EXPECT_EQ(folder.Read(L"A long name of a folder\\And another in it\\copy"), "n");
}

TEST(Replace, ARestrictedOwnerIsSetLastOrTraced)
{
    ASSERT_FALSE(MayRestore()) << "the privilege is disabled by default";
    for (const DWORD dwRefused : {ERROR_SUCCESS, ERROR_INVALID_OWNER, ERROR_ACCESS_DENIED}) {
        for (const int nWay : {eCopy, eReplaceWhole, eBackup}) {
            SCOPED_TRACE(kWays[nWay].szName + std::to_string(dwRefused));
            const TempFolder folder;
            folder.Write(L"new", "n");
            ASSERT_TRUE(
                ::CreateHardLinkW(folder.PathOf(L"second").c_str(), folder.Write(L"old", "o").c_str(), nullptr));
            SystemWatch watch(folder.Path());
            watch.m_tstrForeign = nWay == eBackup ? L"new" : L"old";
            unsigned cGiven = 0;
            watch.m_fault = [&](std::string_view strCall, auto&&) -> DWORD {
                if (strCall == "CreateFileW owner") return ERROR_INVALID_OWNER;
                if (strCall != "SetKernelObjectSecurity owner") return ERROR_SUCCESS;
                ++cGiven;
                return MayRestore() ? dwRefused : ERROR_INVALID_OWNER;
            };
            DWORD dwError = 0;
            EXPECT_TRUE(kWays[nWay].act(folder, &dwError)) << dwError;
            EXPECT_EQ("n", folder.Read(L"old"));
            EXPECT_EQ("o", folder.Read(L"second")) << "replaced, not overwritten";
            EXPECT_EQ(1U, cGiven);
            EXPECT_FALSE(MayRestore()) << "for that call only";
        }
    }
}

TEST(Replace, ReadersWithSharedDeletionDoNotBlockAReplacement)
{
    for (const bool bKnown : {true, false}) {
        const TempFolder folder;
        const std::wstring tstrOld = folder.Write(L"old", "o");
        SystemWatch watch(folder.Path());
        watch.m_bRenamesAtOnce = bKnown;
        unsigned cMoves = 0;
        watch.m_fault = [&](std::string_view strCall, auto&&) -> DWORD {
            cMoves += strCall == "MoveFileExW" ? 1 : 0;
            return ERROR_SUCCESS;
        };
        EXPECT_TRUE(File::ReplaceWhole(tstrOld, "n", nullptr));
        EXPECT_EQ("n", folder.Read(L"old"));
        EXPECT_EQ(bKnown ? 0U : 1U, cMoves);
        EXPECT_THAT(folder.List(), ElementsAre(L"old"));
        if (!bKnown) continue;
        // Replace if it exists, with POSIX semantics.
        EXPECT_THAT(watch.m_renames, ElementsAre(TemporaryName(::GetCurrentProcessId(), 0) + L" > " + tstrOld + L" 3"));
        const UniqueFile reader = HoldFile(tstrOld, FILE_SHARE_READ | FILE_SHARE_DELETE);
        EXPECT_TRUE(File::ReplaceWhole(tstrOld, "m", nullptr));
        EXPECT_EQ("m", folder.Read(L"old"));
    }
    const TempFolder folder;
    folder.Write(L"new", "n");
    SystemWatch watch(folder.Path());
    watch.FailFirst("CopyFileW", 2, ERROR_USER_MAPPED_FILE);
    EXPECT_TRUE(kWays[eCopy].act(folder, nullptr)) << "a mapped file counts as in use";
}

// Without rights on the file: neither to write its attributes nor SYNCHRONIZE, which CreateFileW always requests. And
// with a program that has it open in every way, shared in every way.
TEST(Replace, AFileIsDeletedWithTheRightsOfItsFolderAndUnderItsUsers)
{
    for (const int nWay : {eDelete, eDeleteFiles}) {
        for (const bool bRights : {true, false}) {
            const TempFolder folder;
            const UniqueFile user(::CreateFileW(folder.Write(L"old", "o").c_str(),
                                                GENERIC_READ | GENERIC_WRITE | DELETE, 7, nullptr, OPEN_EXISTING, 0,
                                                nullptr));
            SystemWatch watch(folder.Path());
            watch.m_bHurry = true;
            if (!bRights) watch.Fail("CreateFileW", ERROR_ACCESS_DENIED, L"\\old");
            DWORD dwError = 0;
            EXPECT_TRUE(kWays[nWay].act(folder, &dwError)) << dwError;
            EXPECT_EQ(watch.m_dwPausedMs, 0U) << "at once";
        }
    }
}

TEST(Replace, FilesOfAMountedVolumeAreDeletedButNotThroughAUsersLink)
{
    for (const std::wstring tstrFolder : {L"Mount", L"Mount\\inside", L"Link"}) {
        SCOPED_TRACE(String::ToUtf8(tstrFolder));
        const TempFolder folder;
        folder.MakeFolder(L"Volume\\inside");
        folder.Write(tstrFolder + L"\\a", "");
        SystemWatch watch(folder.Path());
        watch.m_tstrVolume = L"Volume";
        watch.m_tstrLink = L"Link";
        const bool bLink = tstrFolder == L"Link";
        EXPECT_EQ(bLink, Directory::LeadsThroughLink(folder.PathOf(tstrFolder)));
        DWORD dwError = 0;
        EXPECT_EQ(!bLink, Directory::DeleteFiles(folder.PathOf(tstrFolder) + L"\\", L"*", &dwError));
        EXPECT_EQ(bLink ? Directory::kStoppedOnLink : 0, dwError);
        EXPECT_EQ(bLink, folder.Read(tstrFolder + L"\\a").has_value());
    }
}
