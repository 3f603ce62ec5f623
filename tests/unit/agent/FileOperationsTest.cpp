#include "unit/agent/AgentFixture.h"

#include "agent/ComponentFiles.h"
#include "agent/FileOperations.h"
#include "common/KzComn_DebugLog.h"

class FileOperationsTest : public WatchedAgentTest {
protected:
    void Perform(const std::wstring& tstrRecord, int iOp) { PerformFileOperation(m_run, tstrRecord, iOp); }
};

TEST_F(FileOperationsTest, FilesKeptByTheRunAreNotDeleted)
{
    m_run.paths.KeepFile(m_install.PathOf(L"config.previous.xml"));
    m_run.paths.KeepFile(m_install.PathOf(L"Long name\\kept.xml"));
    wchar_t szShort[MAX_PATH] = {};
    ASSERT_NE(::GetShortPathNameW(m_install.MakeFolder(L"Long name").c_str(), szShort, MAX_PATH), 0U);

    // The record, and which of "a.xml", the kept "config.previous.xml" and "Long name\\kept.xml" it schedules.
    const std::tuple<std::wstring, int, std::vector<std::wstring>> rows[] = {
        // clang-format off
        {L"{InstalledDir}*.xml", op_file_delete, {L"a.xml > "}},
        {L"{InstalledDir}Long name\\..\\*.XML", op_file_delete, {L"Long name\\..\\a.xml > "}},
        {L"{InstalledDir}", op_dir_delete, {L"Long name > ", L"a.xml > ", m_install.Path().substr(0, m_install.Path().size() - 1) + L" > "}}};
    // clang-format on
    for (const auto& [tstrRecord, iOp, moves] : rows) {
        SCOPED_TRACE(String::ToUtf8(tstrRecord));
        for (const wchar_t* szName : {L"a.xml", L"config.previous.xml", L"Long name\\kept.xml"})
            m_install.Write(szName, "");
        Perform(tstrRecord, iOp);
        EXPECT_THAT(Moves(), UnorderedElementsAreArray(moves));
    }
    Perform(L"{InstalledDir}*", op_file_delete_now);
    Perform(std::wstring(szShort) + L"*", op_file_delete_now);
    EXPECT_THAT(m_install.List(), ElementsAre(L"Long name\\", L"Long name\\kept.xml", L"config.previous.xml"));
}

TEST_F(FileOperationsTest, FailedRecordsAreTraced)
{
    m_install.Write(L"file", "x");
    m_install.MakeFolder(L"there");
    m_install.Write(L"Link\\Deep\\f", "");
    m_watch.m_tstrLink = L"Link";
    const std::wstring tstrLongest = L"C:\\" + std::wstring(257, L'n'), tstrTooLong = tstrLongest + L'n';
    const std::pair<std::wstring, int> rows[] = {// clang-format off
        {L"", op_dir_add}, {std::wstring(1024, L'x'), op_file_delete}, {L"C:\\x", -1},
        {L"{InstalledDir}there", op_dir_add}, {L"{InstalledDir}file\\f", op_dir_add},
        {L"{InstalledDir}no\\*", op_file_delete}, {tstrLongest, op_file_delete_now}, {tstrTooLong, op_file_delete},
        {tstrTooLong, op_file_delete_now}, {L"{InstalledDir}no", op_dir_delete},
        {L"{InstalledDir}*.no", op_file_delete_now},
        // The target of a link belongs to others.
        {L"{InstalledDir}Link\\Deep\\*", op_file_delete_now}, {L"{InstalledDir}Link\\Deep", op_dir_delete},
        {L"{InstalledDir}Link\\Deep\\a\\b", op_dir_add}, {L"{InstalledDir}Link\\Deep", op_dir_add},
        {L"C:\\", op_dir_delete}, {L"new", op_dir_add}, {L"{InteractiveLogDir}*.log", op_file_delete}};
    // clang-format on
    for (const auto& [tstrRecord, iOp] : rows) Perform(tstrRecord, iOp);
    EXPECT_THAT(m_install.List(), ElementsAre(L"Link\\", L"Link\\Deep\\", L"Link\\Deep\\f", L"file", L"there\\"));
    EXPECT_THAT(Moves(), IsEmpty());

    m_watch.Fail("CreateDirectoryW", ERROR_ACCESS_DENIED);
    m_watch.m_dwPausedMs = 0;
    Perform(L"{InstalledDir}New\\Deep", op_dir_add);
    EXPECT_EQ(m_watch.m_dwPausedMs, 0U) << "without a wait";
}

TEST_F(FileOperationsTest, AfterEachFailingCallTheRestIsDone)
{
    // Its name, and the record that it carries out; without one it copies a folder.
    const std::tuple<std::wstring, const wchar_t*, int> operations[] = {
        {L"create", L"{InstalledDir}old\\a\\b", op_dir_add},
        {L"delete the folder", L"{InstalledDir}old", op_dir_delete},
        {L"delete", L"{InstalledDir}old\\*", op_file_delete},
        {L"delete now", L"{InstalledDir}old\\*", op_file_delete_now},
        {L"copy", nullptr, 0},
        {L"move", nullptr, 0},
    };
    for (const std::string strCall :
         {"CreateDirectoryW", "CreateFileW", "CreateFileW list", "NtOpenFile", "FindFirstFileW", "FindNextFileW",
          "GetFinalPathNameByHandleW", "SetFileAttributesW", "SetFileInformationByHandle", "MoveFileExW", "CopyFileW",
          "FlushFileBuffers", "SetFileSecurityW"}) {
        for (const auto& [tstrOperation, szRecord, iOp] : operations) {
            m_install.Clear();
            for (const wchar_t* szName : {L"new\\d\\f", L"new\\d\\g", L"new\\h"}) m_install.Write(szName, "new");
            for (const wchar_t* szName : {L"old\\d\\f", L"old\\g", L"old\\h"})
                m_install.Write(szName, "old", szName[4] == L'g' ? 0 : FILE_ATTRIBUTE_READONLY);
            m_watch.Fail(strCall, strCall.ends_with("list") ? ERROR_ACCESS_DENIED : ERROR_NOT_READY,
                         strCall == "FindFirstFileW" ? L"d\\*" : L"");
            Trace(kTraceInfo, L"== %s without %s", tstrOperation.c_str(), String::FromAnsi(strCall).c_str());
            if (szRecord) {
                Perform(szRecord, iOp);
            } else {
                CopyDirectory(m_run, m_install.PathOf(L"new"), L"*.*", m_install.PathOf(L"old"), true,
                              tstrOperation == L"move");
            }
            m_watch.Fail("", ERROR_SUCCESS);
            std::wstring tstrLeft;
            for (const std::wstring& tstrName : m_install.List()) {
                const std::string strText = m_install.Read(tstrName).value_or("");
                tstrLeft +=
                    tstrName + L" " + String::FromAnsi(strText) + (m_install.Attributes(tstrName) & 1 ? L"! " : L" ");
            }
            Trace(kTraceInfo, L"left: %s", tstrLeft.c_str());
            for (const std::wstring& tstrMove : Moves()) Trace(kTraceInfo, L"%s", tstrMove.c_str());
        }
    }
}

TEST_F(FileOperationsTest, RemovalsNeedBothSectionsAndRunInTheirOwnOrder)
{
    const std::string strFolders = "[QOR_DIR]\ndelete={InstalledDir}old\ndelete={InstalledDir}Link\\\\\n";
    const std::string strFiles = "[QOR_FILE]\ndelete_now={InstalledDir}a.*\ndelete={InstalledDir}b.*\n";
    for (const wchar_t* szName : {L"a.x", L"a.y\\f", L"b.x", L"b.y\\f", L"old\\d\\e", L"old\\Link\\f", L"Link\\g"})
        m_install.Write(szName, "");
    m_install.Write(L"old\\c", "", FILE_ATTRIBUTE_READONLY);
    m_install.MakeFolder(L"old\\empty");
    m_watch.m_tstrLink = L"Link";
    for (const std::string& strOnly : {strFolders, strFiles}) {
        Instruct(strOnly);
        RemoveFileAfterReboot(m_run);
        EXPECT_THAT(Moves(), IsEmpty()) << strOnly;
        EXPECT_EQ(m_install.Read(L"a.x"), "") << strOnly;
    }
    Instruct(strFiles + strFolders);
    RemoveFileAfterReboot(m_run);
    EXPECT_THAT(Moves(), ElementsAre(L"old\\c > ", L"old\\Link > ", L"old\\empty > ", L"old\\d\\e > ", L"old\\d > ",
                                     L"old > ", L"Link > ", L"b.x > "));
    EXPECT_FALSE(m_install.Attributes(L"old\\c") & FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(m_install.Read(L"a.x"), std::nullopt);
}

// The agent works with its rights wherever a link leads, so the creator of the link decides which files it changes.
TEST_F(FileOperationsTest, OnlyLinksThatOnlyAdministratorsCanChangeAreFollowed)
{
    const std::wstring tstrReal = m_install.PathOf(L"Real");
    const std::wstring kReaders = L"(A;OICI;0x1200a9;;;BU)(A;OICIIO;GA;;;CO)";
    const std::wstring kInstaller = L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
    const std::tuple<std::wstring, std::wstring, bool> rows[] = {
        // clang-format off
        {L"O:BAD:(A;;FA;;;BA)(A;;FA;;;SY)" + kReaders, tstrReal, true},
        {L"O:SYD:(D;;FA;;;WD)(A;;FA;;;" + kInstaller + L")" + kReaders, tstrReal, true},
        {L"O:" + kInstaller + L"D:(A;;FA;;;OW)" + kReaders, L"Real", true},
        {L"O:BAD:" + kReaders, L"\\Windows", true},
        {L"O:BUD:(A;;FA;;;BA)" + kReaders, tstrReal, false},  // the owner may get any right
        {L"O:BAD:(A;;FA;;;BA)(A;;0x100;;;BU)", tstrReal, false}, {L"O:BAD:(A;;FA;;;BA)(A;;0x2;;;AU)", tstrReal, false},
        {L"O:BAD:(A;;FA;;;BA)(A;;SD;;;IU)", tstrReal, false}, {L"O:BAD:(A;;FA;;;BA)(A;;WD;;;WD)", tstrReal, false},
        {L"O:BA", tstrReal, false},  // open to everyone
        {L"O:BAD:(A;;FA;;;BA)", m_install.PathOf(L"Link\\Deep"), false},  // its own path contains the link
        {L"O:BAD:(A;;FA;;;BA)", L"", false}};  // clang-format on
    m_install.MakeFolder(L"Real");
    m_watch.m_tstrLink = L"Link";
    for (const auto& [tstrRights, tstrTarget, bFollowed] : rows) {
        SCOPED_TRACE(String::ToUtf8(tstrRights + L" " + tstrTarget));
        m_install.Write(L"Link\\Deep\\f", "");
        m_watch.m_tstrLinkRights = tstrRights;
        m_watch.m_tstrLinkTarget = tstrTarget;
        Perform(L"{InstalledDir}Link\\New\\Deep", op_dir_add);
        Perform(L"{InstalledDir}Link\\Deep\\f", op_file_delete_now);
        EXPECT_EQ(bFollowed, fs::is_directory(m_install.PathOf(L"Link\\New\\Deep")));
        EXPECT_EQ(bFollowed, m_install.Read(L"Link\\Deep\\f") == std::nullopt);
        fs::remove_all(m_install.PathOf(L"Link\\New"));
    }
}

TEST_F(FileOperationsTest, AFolderThatBecomesALinkAfterTheCheckIsNotFollowed)
{
    m_install.Write(L"Users\\Deep\\f", "");
    m_install.MakeFolder(L"Real\\Deep");
    m_watch.m_tstrLinkTarget = m_install.PathOf(L"Real");
    m_watch.m_fault = [&](std::string_view strCall, const std::wstring& tstrPlace) {
        // A user creates a link after its parent folder was opened and checked, before the folder itself is.
        const bool bBelow = strCall == "GetFinalPathNameByHandleW" && tstrPlace.ends_with(L"\\Users\\Deep");
        if (bBelow) m_watch.m_tstrSwapped = L"Users";
        return DWORD{ERROR_SUCCESS};
    };
    Perform(L"{InstalledDir}Users\\Deep\\f", op_file_delete_now);
    EXPECT_EQ(m_install.Read(L"Users\\Deep\\f"), "");
}
