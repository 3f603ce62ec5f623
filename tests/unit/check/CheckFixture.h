// An update in a private folder and registry of the test, and the "lint" findings about it.
#pragma once

#include "agent/IniEdits.h"  // its IniRecord is another than Check::IniRecord
#include "check/lint/Lint.h"
#include "common/KzComn_String.h"
#include "support/RegistryFixture.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>

#include <regex>
#include <span>

using namespace testing;
using namespace Check;

/// A text as a UTF-16 file with BOM.
inline std::string Utf16(std::wstring_view tstrText)
{
    return "\xFF\xFE" + std::string(reinterpret_cast<const char*>(tstrText.data()), tstrText.size() * sizeof(wchar_t));
}

/// The trace line "!!! message" at that second of a minute.
inline std::string Line(int iSecond, const std::string& strProcess, const std::string& strText,
                        const std::string& strSource = "Brevant.cpp")
{
    return "21/11/2026 08:37:0" + std::to_string(iSecond) + ".500 " + strProcess + ":00d4 " + strText.substr(0, 3) +
           " <Brevant> " + strText.substr(4) + " - " + strSource + "(12)\r\n";
}

class UpdateTest : public RegistryTest {
protected:
    UpdateTest()
    {
        Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\nComponent101_DownloadPath=p1\nComponent2_DownloadPath=r1\n");
    }

    void Write(std::wstring_view tstrName, std::string_view strBytes) const { m_update.Write(tstrName, strBytes); }
    /// Creates empty files below "Component\\".
    void Bring(std::initializer_list<std::wstring> names) const
    {
        for (const std::wstring& tstrName : names) Write(L"Component\\" + tstrName, "");
    }
    /// Writes the instructions; "@" means the key `kVault`.
    void Instruct(const std::string& strSections) const
    {
        Write(kInstructionFile, std::regex_replace(strSections, std::regex("@"), "SOFTWARE\\Vault"));
    }
    [[nodiscard]] Update Open() const
    {
        Update update;
        DWORD dwError = ERROR_SUCCESS;
        EXPECT_TRUE(update.Open(m_update.Path(), m_optInstalled, &dwError)) << dwError;
        return update;
    }

    static constexpr wchar_t kVault[] = L"SOFTWARE\\Vault";
    TempFolder m_update;
    std::optional<std::wstring> m_optInstalled;
};

class CheckTest : public UpdateTest {
protected:
    /// The text of a file and the expected findings.
    struct Row {
        std::string strText;
        std::vector<std::string> findings;
    };

    explicit CheckTest(void (*pfnFamily)(const LintContext&, Report&)) : m_pfnFamily(pfnFamily)
    {
        Write(kInstructionFile, "");
        Write(L"UpdateInfo.ini", kInfo);
        Bring({L"p1\\64bit\\p1\\Brevant.exe", L"p1\\64bit\\p1\\Driver\\k.ini", L"p1\\Share\\UI\\a.html"});
    }

    /// Files below "Component\\", of one character each: an empty program is a mistake.
    void Bring(std::initializer_list<std::wstring> names) const
    {
        for (const std::wstring& tstrName : names) Write(L"Component\\" + tstrName, "x");
    }
    /// The findings, each as "B005 2:1 Component\\... suggestion", without the path for the instruction file and
    /// `tstrFile`.
    [[nodiscard]] std::vector<std::string> Findings(const std::wstring& tstrFile = kInstructionFile) const
    {
        const Update update = Open();
        IniScan instructions;
        DWORD dwError = ERROR_SUCCESS;
        EXPECT_TRUE(instructions.Read(update.FullPath(kInstructionFile), &dwError)) << dwError;
        Report report;
        m_pfnFamily({update, instructions, m_languages}, report);
        std::vector<std::string> found;
        for (const Finding& finding : report.Sorted()) {
            const bool bWarning = m_bWarnings && finding.eSeverity == Severity::eWarning;
            std::wstring tstrLine = (bWarning ? L"warning " : L"") + IdOf(finding.eRule) + L" " +
                                    std::to_wstring(finding.place.uLine) + L":" +
                                    std::to_wstring(finding.place.uColumn);
            if (finding.tstrPath != kInstructionFile && finding.tstrPath != tstrFile)
                tstrLine += L" " + finding.tstrPath;
            if (!finding.tstrSuggestion.empty()) tstrLine += L" " + finding.tstrSuggestion;
            found.push_back(KzCommon::String::ToUtf8(tstrLine));
        }
        return found;
    }
    [[nodiscard]] std::vector<std::string> Lint(std::string_view strInstructions) const
    {
        Write(kInstructionFile, strInstructions);
        return Findings();
    }
    /// Checks every row as the content of that file, between two other texts.
    void Expect(std::span<const Row> rows, const std::string& strBefore = {}, const std::string& strAfter = {},
                const std::wstring& tstrFile = kInstructionFile) const
    {
        for (const Row& row : rows) {
            Write(tstrFile, strBefore + row.strText + strAfter);
            EXPECT_EQ(row.findings, Findings(tstrFile)) << PrintToString(row.strText.substr(0, 200));
        }
    }

    static constexpr char kInfo[] =
        "[COMPONENT_LIST]\nComponent101_DownloadPath=p1\nComponent2_DownloadPath=r1\n[S]\nK=1.2\nK[=1\nK;L=1\n";
    std::vector<std::wstring> m_languages;
    bool m_bWarnings = false;  ///< whether findings are warnings

private:
    void (*m_pfnFamily)(const LintContext&, Report&);
};

/// Tests one family of rules.
template <void (*pfnFamily)(const LintContext&, Report&)>
class RulesTest : public CheckTest {
protected:
    RulesTest() : CheckTest(pfnFamily) {}
};
