#include "unit/check/CheckFixture.h"

#include "common/KzComn_IniFile.h"

namespace {

constexpr char kBothSections[] = "[QOR_DIR]\nadd=C:\\a\n[QOR_FILE]\ndelete=C:\\a\\b\n";

std::string With(const std::string& strLines)
{
    return kBothSections + strLines;
}

}  // namespace

using FormRulesTest = RulesTest<CheckForm>;

TEST_F(FormRulesTest, TheLeastMistakeIsFoundInItsPlaceAndTheLineBesideItIsNot)
{
    const std::string strLong(1024, 'x');
    // The agent's last buffer has 32512 characters; a section may use all but its two closing zeros and one more.
    std::string strFull = "[Run]\n";
    for (int i = 0; i < 40; ++i) strFull += "SysRunOnce=" + std::string(800, 'x') + "\n";  // 812 characters each
    strFull += "SysRunOnce=" + std::string(17, 'x');
    const Row rows[] = {
        {With("; a comment\n\n  [Run]  \n\tSysRunOnce=a=b==c\n"), {}},
        {With("[Run]\r\nSysRunOnce=a\rSysRunOnce=b\r"), {"B100 6:13"}},
        {With("[Run]\nSysRunOnce\n;SysRunOnce\n"), {"B002 6:1"}},
        {With("").insert(0, "add=C:\\a\n"), {"B002 1:1"}},
        {With("[Runs]\nSysRunOnce=a\n"), {"B003 5:2 Run"}},
        {With("[run]\nSysRunOnce=a\n[RestartNotification_X]\ntext=a\ntext=b\n"), {}},
        {With("[RestartNotification_]\ntext=a\ntext=b\n"), {"B003 5:2 RestartNotification_EN-US"}},
        {With("[RestartNotificaton_DE-DE]\ntext=a\n"), {"B003 5:2 RestartNotification_DE-DE"}},
        {With("[qor_dir]\nadd=C:\\b\n"), {"B004 5:2"}},
        {With("[Run]\nsysrunonce=a\n SysRunOnec=a\nSysRunOnce==a\nSysRunOnce =a\nSysRunOnce= a\n"),
         {"B005 6:1 SysRunOnce", "B005 7:2 SysRunOnce", "B005 8:1 SysRunOnce", "B005 9:1 SysRunOnce="}},
        {With("[Run]\nSysRunOnce=\nSysRunOnce= \n"), {"B006 6:12", "B006 7:12"}},
        {With("[Run]\nSysRunOnce=" + strLong + "\nSysRunOnce=" + strLong.substr(1) + "\n"), {"B006 6:12"}},
        {With(strFull + "\n"), {}},
        {With(strFull + "x\n"), {"B007 5:2"}},
        {"", {"B008 0:0"}},
        {"[QOR_FILE]\ndelete=C:\\a\\b\n", {"B008 1:2"}},
        {"[QOR_DIR]\ndelete=C:\\a\n[QOR_FILE]\n", {"B008 1:2"}},
    };
    Expect(rows);
}

TEST_F(FormRulesTest, OnlyUtf16WithBomAndAsciiAreTheSameEverywhere)
{
    const std::wstring tstrClean = KzCommon::String::FromAnsi(kBothSections);
    const std::wstring tstrPair = tstrClean + L"[Run]\nSysRunOnce=\U0001F511\n";
    const std::wstring tstrHalf = tstrClean + L"[Run]\nSysRunOnce=\xD83D.\nSysRunOnce=\xDD11\n";
    const Row rows[] = {
        {Utf16(tstrPair), {}},
        {Utf16(tstrPair) + "x", {"B001 7:1"}},
        {Utf16(tstrHalf), {"B001 6:12", "B001 7:12"}},
        {Utf16(tstrClean).substr(2), {"B001 1:1"}},
        {std::string("\xEF\xBB\xBF") + kBothSections, {"B001 1:1"}},
        {With("[Run]\nSysRunOnce=a\xFC\n"), {"B001 6:13"}},
    };
    Expect(rows);
}

TEST_F(FormRulesTest, ScanAndWindowsAgreeAboutTheRecordsOfOddLines)
{
    const std::string strOdd =
        "[S]\nk=v\nk = v\n\tk=v \n;c=v\n ;c=v\n#h=v\nk=\nk==\nk==v\n=v\nnone\n[T\n\n \nk=\"v\"\nk=v;c\r\nk=v\r\r\nk=v\n"
        "[T]\nk=v\n[S]\nk=second\n";
    Write(L"odd.ini", strOdd);
    IniScan scan;
    scan.Scan(strOdd);
    ASSERT_TRUE(scan.Find(L"s"));
    std::vector<std::pair<std::wstring, std::wstring>> scanned;
    for (const Check::IniRecord& record : scan.Find(L"s")->records) {
        if (record.IsRecord()) scanned.emplace_back(record.tstrKey, record.tstrValue);
    }
    const std::wstring tstrPath = m_update.PathOf(L"odd.ini");
    EXPECT_EQ(KzCommon::Storage::Ini::ReadSection(tstrPath, L"S", {256, 256, 4096}).entries, scanned);
}

TEST_F(FormRulesTest, AScanThatFindsAnotherNumberOfRecordsThanWindowsIsReported)
{
    Write(kInstructionFile, With("[Run]\nSysRunOnce=a\nSysRunOnce=b\n"));
    IniScan scan;
    scan.Scan(With("[Run]\nSysRunOnce=a\n"));
    Report report;
    CheckForm({Open(), scan, {}}, report);
    EXPECT_THAT(report.Sorted(), ElementsAre(Field(&Finding::eRule, Rule::eScanDiffers)));
}
