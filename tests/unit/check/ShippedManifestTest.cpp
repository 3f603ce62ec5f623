// A manifest shipped with its update: how it is added, its contents, and which one "verify" uses.
#include "check/verify/Manifest.h"
#include "unit/check/VerifyFixture.h"

using KzCommon::String::ToUtf8;

namespace {

const std::wstring kSetting = L"Component\\p1\\Share\\Setting\\";
const std::wstring kShipped = kSetting + kShippedManifest;

class ShippedManifestTest : public VerifyTest {
protected:
    /// Runs "manifest --into" for the update.
    [[nodiscard]] Output Ship(int iExitCode = kClean) const
    {
        Output output;
        Arguments arguments;
        arguments.operands = {m_update.Path()};
        arguments.bInto = true;
        EXPECT_EQ(RunManifest(arguments, output), iExitCode) << ToUtf8(output.tstrErrors);
        return output;
    }
    /// Writes a file on the machine, last written on that day of November 2026; day 0 deletes it.
    void Put(const std::wstring& tstrName, const std::string& strBytes, WORD wDay) const
    {
        const std::wstring tstrPath = m_machine.Write(tstrName, strBytes);
        if (wDay == 0) return static_cast<void>(::DeleteFileW(tstrPath.c_str()));
        const SYSTEMTIME time = {2026, 11, 0, wDay, 0, 0, 0, 0};
        FILETIME written = {};
        const KzCommon::UniqueFile file(
            ::CreateFileW(tstrPath.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        ASSERT_TRUE(::SystemTimeToFileTime(&time, &written) && ::SetFileTime(file.Get(), nullptr, nullptr, &written));
    }
    /// Sets the list of pending moves: "@" means the install folder, "|" ends a path.
    void Pend(std::wstring tstrMoves) const
    {
        KzCommon::String::ReplaceAll(tstrMoves, L"@", L"\\??\\" + m_machine.Path());
        std::replace(tstrMoves.begin(), tstrMoves.end(), L'|', L'\0');
        WriteRaw(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Control\\Session Manager",
                 L"PendingFileRenameOperations", RawText(tstrMoves, REG_MULTI_SZ));
    }
    /// Runs "verify" without FILE: the exit code, then the output or errors, without the install folder.
    [[nodiscard]] std::string VerifyShipped() const
    {
        Output output;
        const int iExitCode = RunVerify({}, output);
        std::wstring tstrText;
        EXPECT_TRUE(KzCommon::String::FromUtf8(output.strText, tstrText));
        KzCommon::String::ReplaceAll(tstrText += output.tstrErrors, m_machine.Path(), L"");
        return std::to_string(iExitCode) + " " + ToUtf8(tstrText);
    }
};

}  // namespace

TEST_F(ShippedManifestTest, ItIsWrittenAmongTheSettingsAndPromisesItselfWithoutAHash)
{
    Instruct("");
    EXPECT_THAT(Ship(kCannotRead).tstrErrors, HasSubstr(L"p1\\: no such folder"));
    EXPECT_EQ(m_update.Read(kShipped), std::nullopt);
    Bring({L"p1\\Share\\UI\\a.html"});  // and no settings folder
    EXPECT_THAT(Ship().strText, HasSubstr("QorUpdate.json: written"));
    const std::string strFirst = m_update.Read(kShipped).value_or("");
    EXPECT_THAT(strFirst, AllOf(HasSubstr("a.html"), HasSubstr("UpdateInfo.ini")));
    EXPECT_THAT(strFirst, HasSubstr("{InstalledDir}QorUpdate.json\",\n      \"source\"")) << "neither size nor hash";
    const std::wstring tstrOtherCase = kSetting + L"QORUPDATE.json";
    ::MoveFileW(m_update.PathOf(kShipped).c_str(), m_update.PathOf(tstrOtherCase).c_str());
    Write(tstrOtherCase + kSignatureEnd, "made after the manifest, so not promised");
    static_cast<void>(Ship());
    EXPECT_EQ(m_update.Read(kShipped), strFirst);
    Output output;
    Arguments arguments;
    arguments.operands = {m_update.Path()};
    EXPECT_EQ(RunManifest(arguments, output), kClean);
    EXPECT_EQ(output.strText, strFirst);
    ::DeleteFileW(m_update.PathOf(kShipped).c_str());
    output = {};
    EXPECT_EQ(RunManifest(arguments, output), kClean);
    EXPECT_THAT(output.strText, Not(HasSubstr("QorUpdate.json"))) << "not shipped, not promised";

    const std::wstring tstrPath = m_update.Write(kShipped, "old");
    const auto hHeld = Hold(tstrPath, false);
    EXPECT_THAT(Ship(kCannotRead).tstrErrors, HasSubstr(L"cannot be"));
}

TEST_F(ShippedManifestTest, VerifyTakesTheNewest)
{
    Bring({L"p1\\Share\\UI\\a.html"});
    static_cast<void>(Ship());
    const std::string strManifest = m_update.Read(kShipped).value_or("");
    m_machine.Write(L"UpdateInfo.ini", m_update.Read(L"UpdateInfo.ini").value_or(""));
    m_machine.Write(L"a.html", "");
    EXPECT_THAT(VerifyShipped(), AllOf(StartsWith("3 "), HasSubstr("manifest --into UPDATE")));
    const std::wstring tstrMove = L"@" + kShipped + L"|!@QorUpdate.json|";
    const std::string strDownloaded = ToUtf8(kShipped);
    // The days on which the installed and the downloaded manifest were written, the pending moves, the result for the
    // file, and the manifest in use.
    const std::tuple<WORD, WORD, std::wstring, const char*, std::string> rows[] = {
        {1, 0, L"", "ARRIVED", "QorUpdate.json"},
        {0, 1, L"", "LEFT IN DOWNLOAD", strDownloaded},
        {1, 2, L"", "LEFT IN DOWNLOAD", strDownloaded},
        {2, 1, L"", "ARRIVED", "QorUpdate.json"},
        {1, 1, L"", "ARRIVED", "QorUpdate.json"},  // a copy moved from another drive
        {1, 2, tstrMove, "STILL WAITING", strDownloaded},
        {2, 1, tstrMove, "STILL WAITING", strDownloaded},  // of an older update, but moved at the next restart
        {1, 0, tstrMove, "ARRIVED", "QorUpdate.json"},     // its file is missing
        {1, 0, L"\\??\\C:\\windows\\win.ini|!@QorUpdate.json|", "TO BE REPLACED", "QorUpdate.json"},
    };
    for (const auto& [wInstalled, wDownloaded, tstrPending, szVerdict, strUsed] : rows) {
        Put(kShippedManifest, strManifest + "\n", wInstalled);
        Put(kShipped, strManifest, wDownloaded);
        Pend(tstrPending);
        std::string strLine = szVerdict;
        strLine.resize(18, ' ');
        EXPECT_THAT(VerifyShipped(), AllOf(HasSubstr(strLine + "QorUpdate.json"), EndsWith("(" + strUsed + ")\n")))
            << ToUtf8(tstrPending) << wInstalled << wDownloaded;
    }
    Pend(L"");
    Put(kShipped, "no manifest", 2);
    EXPECT_THAT(VerifyShipped(), StartsWith("3 " + strDownloaded + ": ")) << "the older one is not used silently";
}

// An installed manifest is itself evidence that the update ran, even without a version.
TEST_F(ShippedManifestTest, AnInstalledManifestShowsThatTheUpdateRan)
{
    Bring({L"p1\\Share\\UI\\a.html"});
    static_cast<void>(Ship());
    ExpectedState expected;
    std::wstring tstrError;
    ASSERT_TRUE(ParseManifest(m_update.Read(kShipped).value_or(""), expected, tstrError));
    std::erase_if(expected.files, [](const ExpectedFile& file) { return file.optContent.has_value(); });
    const std::string strManifest = FormatManifest(expected);  // only files with unknown content
    m_machine.Write(L"UpdateInfo.ini", "");
    Put(kShippedManifest, strManifest, 1);
    EXPECT_THAT(VerifyShipped(), StartsWith("0 "));
    EXPECT_THAT(Verify(expected), Contains(StartsWith("UNKNOWN UpdateInfo.ini"))) << "like any file";
}
