// The product's localised texts.
#pragma once

#include "common/KzComn_Machine.h"

#include <map>
#include <string>

/// How long a section of a string table may be: beyond the last buffer nothing of it is read.
inline constexpr KzCommon::Storage::Ini::SectionGrowth kStringTableGrowth{4096, 4096, 0x7FFF};

/// The texts of one language, read from "StringTable.ini" in the language's folder below "Resource\". Failures are
/// traced and reported through the results; nothing is thrown.
class CL10nReader {
public:
    explicit CL10nReader(const KzCommon::Machine& machine) noexcept : m_machine(machine) {}
    CL10nReader(const CL10nReader&) = delete;
    CL10nReader& operator=(const CL10nReader&) = delete;
    virtual ~CL10nReader() = default;

    /// Reads section "Global" and, when it is named, an additional section, whose texts never replace global ones. The
    /// table of "IEBHO" lies below the install folder, every other one below the folder of the running program. True
    /// when every section asked for was read; what was read before a failure stays available.
    [[nodiscard]] bool ParseL10nFile(const std::wstring& tstrLangName, const std::wstring& tstrAdditionalSection);

    /// The same out of the table at `tstrPath`.
    [[nodiscard]] bool ParseTable(const std::wstring& tstrPath, const std::wstring& tstrAdditionalSection);

    /// The text of a key (matched exactly), or null when there is none. Valid until the next parse.
    [[nodiscard]] const wchar_t* GetString(const std::wstring& tstrKey) const;

private:
    [[nodiscard]] bool QueryIniValue(const std::wstring& tstrPath, const std::wstring& tstrSection);

    const KzCommon::Machine& m_machine;
    std::map<std::wstring, std::wstring> m_strings;
    [[maybe_unused]] bool m_bReserved = false;  // part of the class's layout, without a use yet
};
