#include "support/RecordedTrace.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_String.h"
#include "support/ToldText.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>

using namespace KzCommon;

namespace {

/// Keeps every line that a test traces, also of a test that records nothing. After the test they are what the file of
/// its program shows. Only under Wine: the codes in them are the system's.
class TraceKeeper : public testing::EmptyTestEventListener, public TraceLines {
public:
    TraceKeeper()
    {
        const std::string strProgram = std::filesystem::path(_pgmptr).stem().string();
        const bool bWine = ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
        if (!bWine || strProgram.starts_with("check") || strProgram.starts_with("fuzz")) return;
        m_strFile = "docs/traces/" + strProgram.substr(0, strProgram.find('_')) + ".txt";
        testing::UnitTest::GetInstance()->listeners().Append(this);
    }
    void Open()
    {
        if (m_strFile.empty()) return;
        GlobalDebugLog().OpenFor(L"Test", 0x111, [this](const std::wstring& tstrLine) { Keep(tstrLine); });
    }
    void Keep(const std::wstring& tstrLine) { m_lines.push_back(tstrLine); }

private:
    void OnTestStart(const testing::TestInfo&) override
    {
        Clear();
        Open();
    }
    void OnTestEnd(const testing::TestInfo& test) override
    {
        CloseGlobalDebugLog();
        ExpectToldIn(m_strFile, std::string(test.test_suite_name()) + "." + test.name(), Told());
    }
    /// Without what differs from run to run: folders, ids.
    [[nodiscard]] std::string Told() const
    {
        std::map<std::string, std::size_t> folders;
        std::string strTold;
        for (const std::string& strLine : Messages()) strTold += Lasting(strLine, folders) + "\n";
        return strTold;
    }
    static std::string Lasting(std::string strLine, std::map<std::string, std::size_t>& folders)
    {
        const std::string strTemp = "brevant-" + std::to_string(::GetCurrentProcessId()) + "-";
        for (std::size_t uName = 0; (uName = strLine.find(strTemp)) != std::string::npos;) {
            const std::size_t uEnd = strLine.find_first_not_of("0123456789", uName + strTemp.size());
            const std::string strFolder = strLine.substr(uName, uEnd - uName);
            const std::size_t uNumber = folders.try_emplace(strFolder, folders.size() + 1).first->second;
            const std::size_t uDrive = strLine.rfind(":\\", uName) - 1;
            strLine.replace(uDrive, std::min(uEnd, strLine.size()) - uDrive, "TEMP" + std::to_string(uNumber));
        }
        const std::string strLong(20, 'x');
        for (std::size_t u = 0; (u = strLine.find(strLong + "x", u)) != std::string::npos; ++u) {
            strLine.replace(u, strLine.find_first_not_of('x', u) - u, strLong + "...");
        }
        static const std::tuple<const char*, std::regex, const char*> s_rows[] = {
            // clang-format off
            {"-", std::regex("(~kzcomn-|config-|UpdateInfo-|RunOnce:)[0-9a-f-]{8,36}"), "$1ID"},
            {"BREV~", std::regex("(BREV~)..."), "$1ID"},
            {"\\tests\\Resource", std::regex("[A-Z]:[^:]*(\\\\Resource\\\\)"), "PROGRAM$1"},
            {"\\users\\", std::regex(R"((\\users\\)(?!Public)\w+(\\AppData\\Local(?=\\Temp))?)"), "$1USER"}};  // clang-format on
        for (const auto& [szPart, pattern, szShown] : s_rows) {
            if (strLine.find(szPart) != std::string::npos) strLine = std::regex_replace(strLine, pattern, szShown);
        }
        return strLine;
    }

    std::string m_strFile;
};

TraceKeeper& s_keeper = *new TraceKeeper;  // the list of listeners owns it

}  // namespace

std::vector<std::string> TraceLines::Messages() const
{
    std::vector<std::string> messages;
    for (const std::wstring& tstrLine : Lines()) {
        const std::size_t uModule = tstrLine.find(L" <");
        const std::size_t uMessage = tstrLine.find(L"> ", uModule) + 2;
        const std::wstring tstrTag = tstrLine.substr(uModule - 3, 3);
        const std::wstring tstrMessage = tstrLine.substr(uMessage, tstrLine.rfind(L" - ") - uMessage);
        messages.push_back(String::ToUtf8(tstrTag + L' ' + tstrMessage));
    }
    return messages;
}

std::ptrdiff_t TraceLines::Count(const testing::Matcher<const std::string&>& message) const
{
    return std::ranges::count_if(Messages(), [&](const std::string& strLine) { return message.Matches(strLine); });
}

RecordedTrace::RecordedTrace(DWORD dwLevelMask)
{
    GlobalDebugLog().OpenFor(L"Test", dwLevelMask, [this](const std::wstring& tstrLine) {
        m_lines.push_back(tstrLine);
        s_keeper.Keep(tstrLine);
    });
}

RecordedTrace::~RecordedTrace()
{
    CloseGlobalDebugLog();
    s_keeper.Open();
}
