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

inline KeyTrial TrialOf(const SectionKey& key)
{
    switch (FormOf(key.eEffect)) {
        // Each key has a file of its own: what one key makes another one would delete.
        case RecordForm::ePath: return {"{InstalledDir}e7k-" + KzCommon::String::ToUtf8(key.szKey)};
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
