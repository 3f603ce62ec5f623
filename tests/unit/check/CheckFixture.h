// An update in a folder of the test's own, and what "lint" says of it.
#pragma once

#include "check/Lint.h"
#include "common/KzComn_String.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>

using namespace testing;
using namespace Check;

/// A text as a file in UTF-16 with its mark.
inline std::string Utf16(std::wstring_view tstrText)
{
    return "\xFF\xFE" + std::string(reinterpret_cast<const char*>(tstrText.data()), tstrText.size() * sizeof(wchar_t));
}

class CheckTest : public Test {
protected:
    CheckTest()
    {
        Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\nComponent101_DownloadPath=p1\nComponent2_DownloadPath=r1\n");
        Write(L"Component\\p1\\64bit\\p1\\Brevant.exe", "new");
    }

    void Write(std::wstring_view tstrName, std::string_view strBytes) const { m_folder.Write(tstrName, strBytes); }

    /// The findings of all families, "B005 2:1 Component\\..." each, the path left out for the instruction file.
    [[nodiscard]] std::vector<std::string> Lint(std::string_view strInstructions) const
    {
        Write(kInstructionFile, strInstructions);
        Update update;
        IniScan instructions;
        DWORD dwError = ERROR_SUCCESS;
        EXPECT_TRUE(update.Open(m_folder.Path(), std::nullopt, &dwError)) << dwError;
        EXPECT_TRUE(instructions.Read(update.FullPath(kInstructionFile), &dwError)) << dwError;
        Report report;
        LintUpdate({update, instructions, {}}, report);
        std::vector<std::string> found;
        for (const Finding& finding : report.Sorted()) {
            std::wstring tstrLine = IdOf(finding.eRule) + L" " + std::to_wstring(finding.place.uLine) + L":" +
                                    std::to_wstring(finding.place.uColumn);
            if (finding.tstrPath != kInstructionFile) tstrLine += L" " + finding.tstrPath;
            if (!finding.tstrSuggestion.empty()) tstrLine += L" " + finding.tstrSuggestion;
            found.push_back(KzCommon::String::ToUtf8(tstrLine));
        }
        return found;
    }

    TempFolder m_folder;
};
