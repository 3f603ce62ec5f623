// The product's localised texts.
#pragma once

#include "common/KzComn_Machine.h"

#include <map>
#include <string>

/// The buffer sizes for a string table section. A section that exceeds the last one is not read at all.
inline constexpr KzCommon::Storage::Ini::SectionGrowth kStringTableGrowth{4096, 4096, 0x7FFF};

/// The key of the product's name.
inline constexpr wchar_t kProductNameText[] = L"S_STR_PRODUCT_NAME";

/// The texts of one language, read from "StringTable.ini" in the language's folder below "Resource\". Traces and
/// returns failures; throws nothing.
class CL10nReader {
public:
    explicit CL10nReader(const KzCommon::Machine& machine) noexcept : m_machine(machine) {}
    CL10nReader(const CL10nReader&) = delete;
    CL10nReader& operator=(const CL10nReader&) = delete;
    virtual ~CL10nReader() = default;

    /// Reads section "Global" and, if given, an additional section, whose texts never replace global ones. The table of
    /// "IEBHO" is below the install folder, every other one below the program's folder. True when every requested
    /// section was read; texts read before a failure stay available.
    [[nodiscard]] bool ParseL10nFile(const std::wstring& tstrLangName, const std::wstring& tstrAdditionalSection);

    /// Likewise from the table at `tstrPath`.
    [[nodiscard]] bool ParseTable(const std::wstring& tstrPath, const std::wstring& tstrAdditionalSection);

    /// The text of a key (case-sensitive), or null if missing. Valid until the next parse.
    [[nodiscard]] const wchar_t* GetString(const std::wstring& tstrKey) const;

private:
    [[nodiscard]] bool QueryIniValue(const std::wstring& tstrPath, const std::wstring& tstrSection);

    const KzCommon::Machine& m_machine;
    std::map<std::wstring, std::wstring> m_strings;
    [[maybe_unused]] bool m_bReserved = false;  // part of the class's layout, not in use yet
};
