// An update without a mistake, changes of it as rows of text, and what the verb "lint" then says.
#pragma once

#include "support/ToldText.h"
#include "unit/check/CheckFixture.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <span>

/// Every row goes through the verb itself, which runs all families of rules. Each finding is "B005 2:1", with a "w"
/// after the number for a warning, then its file, unless that is the row's, and its suggestion. The exit code must fit
/// them, with and without --strict. After all tests each rule must have been found. The texts of a test's findings are
/// those below its name in docs/examples/findings.txt; BREVANT_WRITE_FINDINGS=1 writes them there.
class LintTest : public UpdateTest {
protected:
    LintTest()
    {
        Instruct("");
        Write(L"UpdateInfo.ini", kInfo);
        Bring({L"p1\\64bit\\p1\\Brevant.exe", L"p1\\64bit\\p1\\Driver\\k.ini", L"p1\\Share\\UI\\a.html",
               L"p1\\Share\\Setting\\a.txt"});
        BringTable(L"EN-US");
    }
    void TearDown() override
    {
        ExpectToldIn(kFindings, UnitTest::GetInstance()->current_test_info()->name(), m_strTold);
    }
    static void TearDownTestSuite()
    {
        if (UnitTest::GetInstance()->current_test_suite()->test_to_run_count() < kTests) return;
        for (const RuleRow& row : Rules())
            EXPECT_TRUE(s_found.contains(IdOf(row.eRule))) << "no row has " << row.szName;
    }

    /// Writes the instruction file, with the sections that every update should have after the others.
    void Instruct(const std::string& strSections) const
    {
        std::string strAll = strSections;
        for (const std::string strSection : {"[QOR_DIR]\nadd={InstalledDir}New\n", "[QOR_FILE]\ndelete=C:\\*.none\n",
                                             "[UPDATE_INFO]\nmodify=S!K!1.2\n"}) {
            if (strAll.find(strSection.substr(0, strSection.find('\n'))) == std::string::npos) strAll += strSection;
        }
        Write(kInstructionFile, strAll);
    }
    /// Files below "Component\\", of one character each: an empty program is a mistake.
    void Bring(std::initializer_list<std::wstring> names) const
    {
        for (const std::wstring& tstrName : names) Write(L"Component\\" + tstrName, "x");
    }
    /// Creates an installed product with the folders of the update's files.
    void Install(const std::wstring& tstrFolder = L"installed\\")
    {
        m_optInstalled = m_update.MakeFolder(tstrFolder);
        for (const wchar_t* const szFolder :
             {L"Driver", L"Resource\\DE-DE", L"Resource\\EN-US", L"Resource\\FR-FR", L"Task"})
            m_update.MakeFolder(tstrFolder + szFolder);
    }
    void BringTable(const std::wstring& tstrLanguage) const
    {
        Write(L"Component\\r1\\" + tstrLanguage + L"\\StringTable.ini", "[Global]\nS_STR_PRODUCT_NAME=Qorvault\n");
    }
    /// A file or an empty folder.
    void Remove(const std::wstring& tstrName) const
    {
        if (!::DeleteFileW(m_update.PathOf(tstrName).c_str())) ::RemoveDirectoryW(m_update.PathOf(tstrName).c_str());
    }
    /// A file, and the folders above it that are empty then.
    void RemoveWithFolders(const std::wstring& tstrName) const
    {
        for (std::filesystem::path place = tstrName; !place.empty(); place = place.parent_path())
            Remove(place.wstring());
    }

    /// The findings. Those in `tstrFile` come without its name.
    [[nodiscard]] std::string Findings(const std::wstring& tstrFile = kInstructionFile)
    {
        Arguments arguments;
        arguments.operands = {m_update.Path()};
        arguments.optInstalled = m_optInstalled;
        arguments.languages = m_languages;
        Output output;
        const int iExitCode = RunLint(arguments, output);
        const std::string strRoot = KzCommon::String::ToUtf8(m_update.Path());
        static const std::regex s_line(
            R"_((.*?)(?::(\d+):(\d+))?: (error|warning) (B\d+): .*?(?:; did you mean "(.*)"\?)?)_");
        std::istringstream lines(output.strText);
        std::string strAll;
        std::smatch parts;
        bool bError = false;
        for (std::string strLine; std::getline(lines, strLine) && std::regex_match(strLine, parts, s_line);) {
            s_found.insert(KzCommon::String::FromAnsi(parts.str(5)));
            bError = bError || parts[4] == "error";
            std::string strFile = parts[1];
            if (strFile.starts_with(strRoot)) strFile.erase(0, strRoot.size());
            if (strFile == ToUtf8(tstrFile) || strFile == ToUtf8(kInstructionFile)) strFile.clear();
            strAll += (strAll.empty() ? "" : ", ") + parts.str(5) + (parts[4] == "error" ? "" : "w") +
                      (parts[2].matched ? " " + parts.str(2) + ":" + parts.str(3) : "") +
                      (strFile.empty() ? "" : " " + strFile) + (parts[6].matched ? " " + parts.str(6) : "");
            for (std::size_t u = 0; (u = strLine.find(strRoot)) != std::string::npos;) strLine.erase(u, strRoot.size());
            m_strTold += "    " + strLine + "\n";
        }
        EXPECT_EQ(iExitCode, bError ? kFound : kClean) << output.strText;
        if (bError) return strAll;
        arguments.bStrict = true;
        EXPECT_EQ(RunLint(arguments, output), strAll.empty() ? kClean : kFound) << "--strict";
        return strAll;
    }
    [[nodiscard]] std::string Lint(const std::string& strSections)
    {
        Instruct(strSections);
        return Findings();
    }

    /// Checks the update with other files: first the instruction file's lines. Restores the update's own files.
    void CheckChanged(const std::vector<std::pair<std::wstring, std::string>>& files)
    {
        Instruct(files.front().second);
        std::map<std::wstring, std::optional<std::string>> before;
        for (const auto& [tstrFile, strLines] : std::span(files).subspan(1)) {
            const bool bInstalled = tstrFile.starts_with(L"installed\\");
            if (bInstalled && !m_optInstalled) Install();
            if (!bInstalled) before.emplace(tstrFile, m_update.Read(tstrFile));
            if (strLines == "(none)\n") {
                RemoveWithFolders(tstrFile);
            } else {
                Write(tstrFile, strLines.substr(0, strLines.size() - 1));
            }
        }
        static_cast<void>(Findings());
        for (const auto& [tstrFile, optContent] : before) {
            if (optContent) Write(tstrFile, *optContent);
            if (!optContent) RemoveWithFolders(tstrFile);
        }
    }
    /// Checks files: their bytes and the findings.
    void ExpectFiles(const std::wstring& tstrFile, const std::vector<std::pair<std::string, const char*>>& rows)
    {
        for (const auto& [strBytes, szFindings] : rows) {
            Write(tstrFile, strBytes);
            EXPECT_EQ(Findings(tstrFile), szFindings) << PrintToString(strBytes.substr(0, 200));
        }
    }
    /// Checks the rows "text => findings" of a table as the content of that file between two other texts. In a text "$"
    /// ends a line and begins the next with the same key, and "#20#" is a character 20 times. A line that begins with
    /// "& " continues the row.
    void ExpectIn(const std::wstring& tstrFile, const std::string& strBefore, const std::string& strAfter,
                  const std::string& strTable, const std::string& strKey = {})
    {
        std::istringstream rows(std::regex_replace(strTable, std::regex("\n *& "), ""));
        for (std::string strRow; std::getline(rows, strRow);) {
            strRow.erase(0, strRow.find_first_not_of(' '));
            if (strRow.empty()) continue;
            const std::size_t uArrow = strRow.find(" =>");
            ASSERT_NE(uArrow, std::string::npos) << strRow;
            std::string strText = std::regex_replace(strRow.substr(0, uArrow), std::regex("\\$"), "\n" + strKey);
            for (std::smatch run; std::regex_search(strText, run, std::regex("#(\\d+)#"));) {
                strText = run.prefix().str() + std::string(std::stoul(run[1]), 'x') + run.suffix().str();
            }
            const std::string strAll = strBefore + strKey + strText + strAfter;
            if (tstrFile == kInstructionFile) {
                Instruct(strAll);
            } else {
                Write(tstrFile, strAll);
            }
            const std::size_t uTold = m_strTold.size();
            const std::string strFindings = Findings(tstrFile);
            EXPECT_EQ(strRow, strRow.substr(0, uArrow) + " =>" + (strFindings.empty() ? "" : " ") + strFindings);
            if (uTold == m_strTold.size()) continue;
            static const std::regex s_sealed("\"1\">2:[^<]+");  // another text every time
            strRow = std::regex_replace(strRow.substr(0, uArrow), s_sealed, "\"1\">...");
            m_strTold.insert(uTold,
                             "\n" + strKey + std::regex_replace(strRow, std::regex("\\$"), "\n" + strKey) + "\n");
        }
    }
    /// Checks the rows as records of a section of the instruction file; the first of them is in line 2.
    void ExpectRecords(const std::string& strSection, const std::string& strKey, const std::string& strTable)
    {
        ExpectIn(kInstructionFile, "[" + strSection + "]\n", "\n", strTable, strKey);
    }

    static std::string ToUtf8(const std::wstring& tstrText) { return KzCommon::String::ToUtf8(tstrText); }

    static constexpr char kFindings[] = "docs/examples/findings.txt";
    static constexpr int kTests = 22;
    static constexpr char kInfo[] =
        "[COMPONENT_LIST]\nComponent101_DownloadPath=p1\nComponent2_DownloadPath=r1\n[S]\nK=1.2\nK[=1\nK;L=1\n";
    const std::wstring m_tstrSetting = L"Component\\p1\\Share\\Setting\\";
    std::vector<std::wstring> m_languages;
    std::string m_strTold;                         ///< of all checks, with the rows of tables
    static inline std::set<std::wstring> s_found;  ///< rules
};
