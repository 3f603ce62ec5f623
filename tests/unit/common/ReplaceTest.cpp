// Replacing and deleting files that are in use, locked, or not alone in their folder.
#include "common/KzComn_File.h"
#include "common/KzComn_FileReplace.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_LockedFolder.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WholeFile.h"
#include "support/RecordedTrace.h"
#include "support/TempFolder.h"
#include "support/watch/SystemWatch.h"

#include <gmock/gmock.h>
#include <sddl.h>

#include <functional>
#include <thread>

using namespace KzCommon;
using namespace KzCommon::Storage;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::StartsWith;

namespace {

constexpr DWORD kLocked = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN;

/// The access control list of a file as text.
std::wstring AccessOf(const std::wstring& tstrPath)
{
    BYTE descriptor[4096] = {};
    DWORD cb = sizeof(descriptor);
    EXPECT_TRUE(::GetFileSecurityW(tstrPath.c_str(), DACL_SECURITY_INFORMATION, descriptor, cb, &cb));
    wchar_t* szText = nullptr;
    EXPECT_TRUE(::ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1,
                                                                       DACL_SECURITY_INFORMATION, &szText, nullptr));
    const std::wstring tstrText = szText ? szText : L"";
    ::LocalFree(szText);
    return tstrText;
}

/// Closes a file to everyone except administrators and the interactive user.
void Close(const std::wstring& tstrPath)
{
    void* pDescriptor = nullptr;
    ASSERT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;;FA;;;BA)(A;;FA;;;IU)", SDDL_REVISION_1,
                                                                       &pDescriptor, nullptr));
    EXPECT_TRUE(::SetFileSecurityW(tstrPath.c_str(), DACL_SECURITY_INFORMATION, pDescriptor));
    ::LocalFree(pDescriptor);
}

UniqueFile Hold(const std::wstring& tstrPath)
{
    return UniqueFile(::CreateFileW(tstrPath.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

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
    {"ReadWhole", [](const TempFolder& f, DWORD* p) { return File::ReadWhole(f.PathOf(L"old"), 1, s_strRead, p); }, "o",
     true},
    {"Copy", [](const TempFolder& f, DWORD* p) { return File::Copy(f.PathOf(L"old"), f.PathOf(L"new"), true, p); }, "n",
     false},
    {"Backup", [](const TempFolder& f, DWORD* p) { return File::Backup(f.PathOf(L"old"), f.PathOf(L"new"), p); },
     "n", true},
    {"ReplaceWhole", [](const TempFolder& f, DWORD* p) { return File::ReplaceWhole(f.PathOf(L"old"), "n", p); }, "n",
     false},
    {"Delete", [](const TempFolder& f, DWORD* p) { return File::Delete(f.PathOf(L"old"), p); }, std::nullopt, true},
    {"DeleteFiles", [](const TempFolder& f, DWORD* p) { return Directory::DeleteFiles(f.Path(), L"o*", p); },
     std::nullopt, true}};  // clang-format on

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
    EXPECT_TRUE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.Receive()));
    BYTE buffer[2048] = {};
    DWORD cb = 0;
    EXPECT_TRUE(::GetTokenInformation(token.Get(), TokenPrivileges, buffer, sizeof(buffer), &cb));
    LUID restore{};
    EXPECT_TRUE(::LookupPrivilegeValueW(nullptr, SE_RESTORE_NAME, &restore));
    const auto& all = *reinterpret_cast<const TOKEN_PRIVILEGES*>(buffer);
    return std::any_of(all.Privileges, all.Privileges + all.PrivilegeCount, [&](const LUID_AND_ATTRIBUTES& one) {
        return one.Luid.LowPart == restore.LowPart && (one.Attributes & SE_PRIVILEGE_ENABLED);
    });
}

}  // namespace

TEST(Replace, FilesInUseAreRetriedAndFailWithTheirCode)
{
    for (const Way& way : kWays) {
        SCOPED_TRACE(way.szName);
        const TempFolder folder;
        folder.Write(L"new", "n");
        UniqueFile held = Hold(folder.Write(L"old", "o"));
        std::jthread release([&] { ::Sleep(300), held.Reset(); });
        DWORD dwError = 77;
        EXPECT_TRUE(way.act(folder, &dwError)) << dwError;
        release.join();
        EXPECT_EQ(way.expected, folder.Read(L"old"));

        held = Hold(folder.PathOf(L"new"));
        release = std::jthread([&] { ::Sleep(300), held.Reset(); });
        folder.Write(L"old", "o");
        EXPECT_TRUE(way.act(folder, &dwError)) << "its source is in use: " << dwError;
        release.join();

        // Waiting for two files in use takes no longer than for one, and both keep their attributes.
        const std::wstring tstrLocked = folder.Write(L"old", "o");
        held = Hold(tstrLocked);
        if (way.bUnlocks) ::SetFileAttributesW(tstrLocked.c_str(), kLocked);
        const UniqueFile second = Hold(folder.Write(L"o2", "o"));
        {
            SystemWatch watch(folder.Path());
            watch.m_bHurry = true;
            EXPECT_FALSE(way.act(folder, &dwError));
            EXPECT_EQ(kInUseRepetitions * kHeldPauseMs, watch.m_dwPausedMs);
        }
        EXPECT_THAT(dwError, AnyOf(DWORD{ERROR_ACCESS_DENIED}, DWORD{ERROR_SHARING_VIOLATION}));
        held.Reset();
        EXPECT_EQ("o", folder.Read(L"old"));
        EXPECT_EQ(way.bUnlocks ? kLocked : 0, ::GetFileAttributesW(tstrLocked.c_str()) & kLocked);
        EXPECT_THAT(folder.List(), ElementsAre(L"new", L"o2", L"old")) << "no temporary file is left";
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
        if (bFolder) folder.MakeFolder(L"old");
        if (!bFolder) ::SetFileAttributesW(folder.Write(L"old", "o").c_str(), dwAttributes);
        const ULONGLONG ullStart = ::GetTickCount64();
        DWORD dwError = 0;
        EXPECT_EQ(bDone, way.act(folder, &dwError));
        EXPECT_EQ(bDone ? 0 : DWORD{ERROR_ACCESS_DENIED}, dwError);
        EXPECT_LT(::GetTickCount64() - ullStart, 1500U);
        const DWORD dwAfter = ::GetFileAttributesW(folder.PathOf(L"old").c_str());
        EXPECT_EQ(bDone && nWay == eBackup ? 0 : dwAttributes, dwAfter & (dwAttributes | kLocked));
        if (bFolder) continue;
        EXPECT_EQ(bDone ? way.expected : "o", folder.Read(L"old"));
    }
}

TEST(Replace, AFileThatWasMadeWritableIsReplaced)
{
    const std::tuple<const wchar_t*, DWORD, DWORD> rows[] = {{L"old", 0, 0},
                                                             {L"old", FILE_ATTRIBUTE_READONLY, 0},
                                                             {L"old", kLocked | FILE_ATTRIBUTE_SYSTEM, 0},
                                                             {L"none", 0, 0},
                                                             {L"none\\old", 0, 0},
                                                             {L"folder", 0, ERROR_DIRECTORY}};
    for (const auto& [szName, dwAttributes, dwCode] : rows) {
        SCOPED_TRACE(String::ToUtf8(szName) + std::to_string(dwAttributes));
        const TempFolder folder;
        folder.Write(L"new", "n");
        folder.MakeFolder(L"folder");
        ::SetFileAttributesW(folder.Write(L"old", "o").c_str(), dwAttributes);
        DWORD dwError = 0;
        EXPECT_EQ(dwCode == 0, File::MakeWritable(folder.PathOf(szName), &dwError));
        EXPECT_EQ(dwCode, dwError);
        if (dwAttributes == 0) continue;
        EXPECT_TRUE(File::Copy(folder.PathOf(L"old"), folder.PathOf(L"new"), true, nullptr));
        EXPECT_EQ("n", folder.Read(L"old"));
    }
}

TEST(Replace, TheOverwrittenFilesRightsStayAndTheSourcesAttributesCome)
{
    const TempFolder folder;
    const std::wstring tstrNew = folder.Write(L"new", "n");
    const std::wstring tstrOld = folder.Write(L"old", "o");
    Close(tstrOld);
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
    EXPECT_EQ(kLocked, ::GetFileAttributesW(tstrOld.c_str()) & kLocked);
    EXPECT_THAT(folder.List(), ElementsAre(L"kept", L"new", L"old"));
}

TEST(Replace, WithoutATemporaryFileTheTargetIsOverwrittenOrItsCodeReported)
{
    const TempFolder folder;
    const std::wstring tstrNew = folder.Write(L"new", "n");
    const std::wstring tstrOld = folder.Write(L"old", "o");
    folder.MakeFolder(TemporaryName(::GetCurrentProcessId(), 0));
    EXPECT_TRUE(File::Backup(tstrOld, tstrNew, nullptr)) << "the next name is free";
    for (unsigned uNumber = 1; uNumber < 100; ++uNumber) {
        folder.MakeFolder(TemporaryName(::GetCurrentProcessId(), uNumber));
    }
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
    STARTUPINFOA start{};
    start.cb = sizeof(start);
    PROCESS_INFORMATION process{};
    ASSERT_TRUE(::CreateProcessA(_pgmptr, nullptr, nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr, nullptr, &start,
                                 &process));
    const UniqueKernelHandle thread(process.hThread);
    const UniqueKernelHandle running(process.hProcess);
    const TempFolder folder;
    const std::wstring tstrRunning = TemporaryName(process.dwProcessId, 0);
    for (const std::wstring& tstrName :
         {tstrRunning, TemporaryName(0xFFFFFFF0, 7), TemporaryName(::GetCurrentProcessId(), 0),
          std::wstring(L"~kzcomn-mine.tmp")}) {
        EXPECT_EQ(tstrName.size() == tstrRunning.size(), File::IsTemporaryName(tstrName));
        ::SetFileAttributesW(folder.Write(tstrName, "x").c_str(), FILE_ATTRIBUTE_READONLY);
    }
    const std::wstring tstrNew = folder.Write(L"new", "n");
    EXPECT_TRUE(File::Copy(folder.PathOf(L"old"), tstrNew, true, nullptr));
    EXPECT_THAT(folder.List(), ElementsAre(L"new", L"old", tstrRunning, L"~kzcomn-mine.tmp"));
    ::TerminateProcess(running.Get(), 0);
    ::WaitForSingleObject(running.Get(), INFINITE);
    EXPECT_TRUE(File::Copy(folder.PathOf(L"old"), tstrNew, true, nullptr));
    EXPECT_THAT(folder.List(), ElementsAre(L"new", L"old", L"~kzcomn-mine.tmp"));
    for (const wchar_t* szName : {L"~kzcomn-0000002g-00.tmp", L"~kzcomn-00000020-0x.tmp", L"~kzcomn-00000020_00.tmp",
                                  L"x~kzcomn-00000020-00.tmp", L"~kzcomn-00000020-00.tmp0", L""}) {
        EXPECT_FALSE(File::IsTemporaryName(szName)) << String::ToUtf8(szName);
    }
}

TEST(Replace, ALockedFolderCannotBeExchangedAndKnowsItsOwnFiles)
{
    const TempFolder folder;
    UniqueFile inside = Hold(folder.Write(L"a\\b\\file", ""));
    const UniqueFile outside = Hold(folder.Write(L"a\\other\\file", ""));
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
}

TEST(Replace, AFolderIsLockedByItsShortNamesToo)
{
    const TempFolder folder;
    folder.Write(L"A long name of a folder\\And another in it\\new", "new");
    wchar_t szShort[MAX_PATH] = {};
    ASSERT_NE(
        ::GetShortPathNameW(folder.PathOf(L"A long name of a folder\\And another in it").c_str(), szShort, MAX_PATH),
        0U);
    const std::wstring tstrShort = szShort;
    ASSERT_EQ(tstrShort.find(L' '), std::wstring::npos);
    DWORD dwError = ERROR_SUCCESS;
    EXPECT_TRUE(File::Copy(tstrShort + L"\\copy", tstrShort + L"\\new", true, &dwError)) << dwError;
    EXPECT_EQ(folder.Read(L"A long name of a folder\\And another in it\\copy"), "new");
}

TEST(Replace, ARestrictedOwnerIsSetLastOrTraced)
{
    ASSERT_FALSE(MayRestore()) << "the privilege is disabled by default";
    for (const DWORD dwRefused : {ERROR_SUCCESS, ERROR_INVALID_OWNER, ERROR_ACCESS_DENIED}) {
        for (const Way& way : {kWays[eCopy], kWays[eReplaceWhole], kWays[eBackup]}) {
            SCOPED_TRACE(way.szName + std::to_string(dwRefused));
            const TempFolder folder;
            const bool bKept = std::string(way.szName) == "Backup";
            folder.Write(L"new", "n");
            ASSERT_TRUE(
                ::CreateHardLinkW(folder.PathOf(L"second").c_str(), folder.Write(L"old", "o").c_str(), nullptr));
            const RecordedTrace trace;
            SystemWatch watch(folder.Path());
            watch.m_tstrForeign = bKept ? L"new" : L"old";
            unsigned cGiven = 0;
            watch.m_fault = [&](std::string_view strCall, auto&&) -> DWORD {
                if (strCall == "CreateFileW owner") return ERROR_INVALID_OWNER;
                if (strCall != "SetKernelObjectSecurity owner") return ERROR_SUCCESS;
                ++cGiven;
                return MayRestore() ? dwRefused : ERROR_INVALID_OWNER;
            };
            DWORD dwError = 0;
            EXPECT_TRUE(way.act(folder, &dwError)) << dwError;
            EXPECT_EQ("n", folder.Read(L"old"));
            EXPECT_EQ("o", folder.Read(L"second")) << "replaced, not overwritten";
            EXPECT_EQ(1U, cGiven);
            EXPECT_FALSE(MayRestore()) << "for that call only";
            const std::string strLine = "!!! *** KzCommon::Storage::File - [" + String::ToUtf8(folder.PathOf(L"old")) +
                                        "] does not keep its owner. [0x";
            EXPECT_EQ(dwRefused ? 1U : 0U, trace.Messages().size());
            for (const std::string& strTraced : trace.Messages()) EXPECT_THAT(strTraced, StartsWith(strLine));
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
        const UniqueFile reader(::CreateFileW(tstrOld.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                              nullptr, OPEN_EXISTING, 0, nullptr));
        EXPECT_TRUE(File::ReplaceWhole(tstrOld, "m", nullptr));
        EXPECT_EQ("m", folder.Read(L"old"));
    }
}

TEST(Replace, AMappedFileCountsAsInUse)
{
    const TempFolder folder;
    folder.Write(L"new", "n");
    SystemWatch watch(folder.Path());
    unsigned cAttempts = 0;
    watch.m_fault = [&](std::string_view strCall, auto&&) -> DWORD {
        return strCall == "CopyFileW" && ++cAttempts < 3 ? ERROR_USER_MAPPED_FILE : ERROR_SUCCESS;
    };
    EXPECT_TRUE(File::Copy(folder.PathOf(L"old"), folder.PathOf(L"new"), true, nullptr));
    EXPECT_EQ(3U, cAttempts);
}

TEST(Replace, AFileIsDeletedWithTheRightsOfItsFolder)
{
    for (const int nWay : {eDelete, eDeleteFiles}) {
        const TempFolder folder;
        folder.Write(L"old", "o");
        SystemWatch watch(folder.Path());
        // No rights on the file: neither to write its attributes nor SYNCHRONIZE, which CreateFileW always requests.
        watch.m_fault = [](std::string_view strCall, const std::wstring& tstrPlace) -> DWORD {
            return strCall == "CreateFileW" && tstrPlace.ends_with(L"\\old") ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
        };
        const ULONGLONG ullStart = ::GetTickCount64();
        DWORD dwError = 0;
        EXPECT_TRUE(kWays[nWay].act(folder, &dwError)) << dwError;
        EXPECT_FALSE(folder.Read(L"old"));
        EXPECT_LT(::GetTickCount64() - ullStart, 1500U) << "at once";
    }
}

TEST(Replace, FilesOfAMountedVolumeAreDeletedButNotThroughAUsersLink)
{
    for (const std::wstring tstrFolder : {L"Mount", L"Mount\\inside", L"Link"}) {
        SCOPED_TRACE(String::ToUtf8(tstrFolder));
        const TempFolder folder;
        folder.MakeFolder(L"Volume\\inside");
        const std::wstring tstrFile = tstrFolder + L"\\a";
        folder.Write(tstrFile, "");
        SystemWatch watch(folder.Path());
        watch.m_tstrVolume = L"Volume";
        watch.m_tstrLink = L"Link";
        const bool bLink = tstrFolder == L"Link";
        EXPECT_EQ(bLink, Directory::LeadsThroughLink(folder.PathOf(tstrFolder)));
        DWORD dwError = 0;
        EXPECT_EQ(!bLink, Directory::DeleteFiles(folder.PathOf(tstrFolder) + L"\\", L"*", &dwError));
        EXPECT_EQ(bLink ? Directory::kStoppedOnLink : 0, dwError);
        EXPECT_EQ(bLink, folder.Read(tstrFile).has_value());
    }
}
