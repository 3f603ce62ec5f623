// A record to try every key of the instruction file with.
#pragma once

#include "agent/Sections.h"
#include "common/KzComn_String.h"

#include <optional>
#include <string>

/// What a key is tried with. "e7k" is in it and nowhere else.
struct KeyTrial {
    std::string strRecord;
    bool bPlanned = true;   ///< the plan names it
    bool bPromised = true;  ///< the manifest names it
};

/// A file of the update, below its folder, that no deploy step looks at: the source of a record that copies a file.
inline constexpr wchar_t kTrialSource[] = L"Component\\p1\\Share\\Own\\e7k.dat";

/// What a key's operation does with a path; empty for a key without paths.
inline std::optional<FileOpTraits> FileTraitsOf(const SectionKey& key)
{
    return TraitsOf(FileOpOf(key.eEffect));
}

/// The file that a key with paths is tried with. Each key has its own: what one key makes another one would delete.
inline std::string TrialFileOf(const SectionKey& key)
{
    return "{InstalledDir}e7k-" + KzCommon::String::ToUtf8(key.szKey);
}

/// `strFile`: the path that the record changes, for a key with paths.
inline KeyTrial TrialOf(const SectionKey& key, const std::string& strFile)
{
    switch (FormOf(key.eEffect)) {
        case RecordForm::ePath: return {strFile};
        case RecordForm::eRegistryValue: return {"SOFTWARE\\e7k!e7k!REG_SZ!e7k"};
        case RecordForm::eTag: return {"/P/e7k"};
        case RecordForm::eIniValue: return {"e7k!e7k!e7k"};
        case RecordForm::eCommand: return {"e7k.exe"};
        case RecordForm::eText: break;  // for the user, when a new name is due
    }
    return {"e7k", false, false};
}

inline KeyTrial TrialOf(const SectionKey& key)
{
    return TrialOf(key, TrialFileOf(key));
}

/// The name of a section in an instruction file.
inline std::string NameOf(const Section& section)
{
    return KzCommon::String::ToUtf8(section.szName) + (section.bLanguage ? "EN-US" : "");
}
