// An update in a private folder and registry of the test, and the "lint" findings about it.
#pragma once

#include "agent/IniEdits.h"  // its IniRecord is another than Check::IniRecord
#include "check/lint/Lint.h"
#include "common/KzComn_String.h"
#include "support/RegistryFixture.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>

#include <regex>

using namespace testing;
using namespace Check;

/// A text as a UTF-16 file with BOM.
inline std::string Utf16(std::wstring_view tstrText)
{
    return "\xFF\xFE" + std::string(reinterpret_cast<const char*>(tstrText.data()), tstrText.size() * sizeof(wchar_t));
}

/// The trace line "!!! message" at that second and tenth of a minute.
inline std::string Line(int iSecond, const std::string& strProcess, const std::string& strText,
                        const std::string& strSource = "Brevant.cpp")
{
    const std::string strSecond = std::to_string(iSecond);
    return "21/11/2026 08:37:0" + strSecond + "." + strSecond + "00 " + strProcess + ":00d4 " + strText.substr(0, 3) +
           " <Brevant> " + strText.substr(4) + " - " + strSource + "(12)\r\n";
}

/// Opens a file as another program does: for itself alone, or shared, to write and delete it.
inline KzCommon::UniqueFile Hold(const std::wstring& tstrPath, bool bShared)
{
    const DWORD dwAccess = bShared ? GENERIC_READ | GENERIC_WRITE | DELETE : GENERIC_READ;
    const DWORD dwShare = bShared ? FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE : 0;
    return KzCommon::UniqueFile(::CreateFileW(tstrPath.c_str(), dwAccess, dwShare, nullptr, OPEN_EXISTING, 0, nullptr));
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
