#include "check/KnownSections.h"

#include "common/KzComn_String.h"

using namespace KzCommon;

namespace Check {

std::span<const KnownSection> KnownSections()
{
    static const KnownSection s_sections[] = {
        {L"QOR_REGISTRY_PATCH", false, {L"delete", L"add", L"add_if_non"}},
        {L"QOR_DIR", false, {L"add", L"delete"}},
        {L"QOR_FILE", false, {L"delete_now", L"delete"}},
        {L"UPDATE_INFO", false, {L"modify"}},
        {L"Run", false, {L"SysRunOnce"}},
        {L"QOR_CONFIG_MERGE", false, {L"migrate"}},
        {L"RestartNotification_", true, {L"text"}},
    };
    return s_sections;
}

const KnownSection* FindKnownSection(std::wstring_view tstrName)
{
    for (const KnownSection& section : KnownSections()) {
        const std::wstring_view tstrKnown = section.szName;
        const bool bLonger = tstrName.size() > tstrKnown.size();
        if (bLonger && !section.bLanguage) continue;
        if (!bLonger && section.bLanguage) continue;
        if (String::EqualsNoCase(tstrName.substr(0, tstrKnown.size()), tstrKnown)) return &section;
    }
    return nullptr;
}

}  // namespace Check
