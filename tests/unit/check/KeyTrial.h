// A record to try every key of the instruction file with.
#pragma once

#include "agent/Sections.h"
#include "common/KzComn_String.h"

#include <string>

/// What a key is tried with. "e7k" is in it and nowhere else.
struct KeyTrial {
    std::string strRecord;
    bool bPlanned = true;   ///< the plan names it
    bool bPromised = true;  ///< the manifest names it
};

/// A file of the update, below its folder, that no deploy step looks at: the source of a record that copies a file.
inline constexpr wchar_t kTrialSource[] = L"Component\\p1\\Share\\Own\\e7k.dat";

/// Each key has a file of its own in the install folder: what one key makes another one would delete.
inline std::wstring TrialFileOf(const SectionKey& key)
{
    return L"e7k-" + std::wstring(key.szKey);
}

/// `tstrFile`: the file in the install folder that a record of paths changes; empty: that of the key.
inline KeyTrial TrialOf(const SectionKey& key, std::wstring tstrFile = {})
{
    if (tstrFile.empty()) tstrFile = TrialFileOf(key);
    switch (FormOf(key.eEffect)) {
        case RecordForm::ePath: return {KzCommon::String::ToUtf8(kInstalledDir + tstrFile)};
        case RecordForm::eRegistryValue: return {"SOFTWARE\\e7k!e7k!REG_SZ!e7k"};
        case RecordForm::eTag: return {"/P/e7k"};
        case RecordForm::eIniValue: return {"e7k!e7k!e7k"};
        case RecordForm::eCommand: return {"e7k.exe"};
        case RecordForm::eText: break;  // for the user, when a new name is due
    }
    return {"e7k", false, false};
}

/// The name of a section in an instruction file.
inline std::string NameOf(const Section& section)
{
    return KzCommon::String::ToUtf8(section.szName) + (section.bLanguage ? "EN-US" : "");
}
