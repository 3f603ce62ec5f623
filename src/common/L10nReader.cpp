#include "common/L10nReader.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace {

std::wstring TablePath(const Machine& machine, const std::wstring& tstrLangName,
                       const std::wstring& tstrAdditionalSection)
{
    const std::wstring tstrBase = tstrAdditionalSection == L"IEBHO" ? Frwk::Utility::GetInstalledFolder(machine)
                                                                    : machine.FolderOf(KnownFolder::eProgram);
    if (tstrBase.empty()) return {};
    const std::wstring tstrLanguage = String::JoinPath(tstrBase, L"Resource\\") + tstrLangName;
    return String::JoinPath(tstrLanguage, L"StringTable.ini");
}

}  // namespace

bool CL10nReader::ParseL10nFile(const std::wstring& tstrLangName, const std::wstring& tstrAdditionalSection)
{
    const OperationTrace trace(L"[Enter] CL10nReader::ParseL10nFile... _tsLangName[%s]", tstrLangName,
                               L"[Leave] CL10nReader::ParseL10nFile...");
    return ParseTable(TablePath(m_machine, tstrLangName, tstrAdditionalSection), tstrAdditionalSection);
}

bool CL10nReader::ParseTable(const std::wstring& tstrPath, const std::wstring& tstrAdditionalSection)
{
    DWORD dwError = ERROR_SUCCESS;
    if (!m_machine.HasFile(tstrPath, &dwError)) {
        Trace(kTraceError, L"CL10nReader::ParseL10nFile - KzCommon::Storage::File::IsExisted(%s) failed. error[0x%08x]",
              tstrPath.c_str(), dwError);
        return false;
    }
    bool bOk = true;
    if (!QueryIniValue(tstrPath, L"Global")) {
        Trace(kTraceError, L"CL10nReader::ParseL10nFile - QueryIniValue() for Global section failed");
        bOk = false;
    }
    if (!tstrAdditionalSection.empty() && !QueryIniValue(tstrPath, tstrAdditionalSection)) {
        Trace(kTraceError, L"CL10nReader::ParseL10nFile - QueryIniValue() failed. _tsAdditionalSection[%s]",
              tstrAdditionalSection.c_str());
        bOk = false;
    }
    return bOk;
}

const wchar_t* CL10nReader::GetString(const std::wstring& tstrKey) const
{
    const auto found = m_strings.find(tstrKey);
    if (found != m_strings.end()) return found->second.c_str();
    Trace(kTraceInfo, L"CL10nReader::GetString - String not found[%s]", tstrKey.c_str());
    return nullptr;
}

bool CL10nReader::QueryIniValue(const std::wstring& tstrPath, const std::wstring& tstrSection)
{
    Storage::Ini::Section section = m_machine.ReadIniSection(tstrPath, tstrSection, kStringTableGrowth);
    switch (section.eOutcome) {
        case Storage::Ini::SectionOutcome::eNoMemory:
            Trace(kTraceError, L"CL10nReader::QueryIniValue - Allocate %u bytes buffer failed.", section.cchBuffer);
            return false;
        case Storage::Ini::SectionOutcome::eFailed:
            Trace(kTraceError, L"CL10nReader::QueryIniValue - GetPrivateProfileSection() failed. error[0x%08x]",
                  section.dwError);
            return false;
        case Storage::Ini::SectionOutcome::eTooLarge:
            Trace(kTraceError, L"CL10nReader::QueryIniValue - nCountOfString could not larger than SHRT_MAX.");
            return false;
        case Storage::Ini::SectionOutcome::eRead: break;
    }
    // The first text of a key wins: insert() keeps existing entries.
    for (auto& entry : section.entries) m_strings.insert(std::move(entry));
    return true;
}
