// The records of an instruction file as the agent reads them: by section and key, in run order.
#pragma once

#include "agent/Sections.h"
#include "check/update/Folder.h"
#include "check/update/IniScan.h"
#include "check/update/Update.h"

#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// Whether `reading` reads the section, compared case-insensitively as in Windows; a language follows if the reading
/// has one.
[[nodiscard]] bool IsNamed(const ::Section& reading, std::wstring_view tstrName);

/// The keys of all readers of a section; empty for a section that is not read.
[[nodiscard]] std::vector<std::wstring> KeysOf(std::wstring_view tstrSection);

/// A record that the agent reads, with the row of its key.
struct Instruction {
    const SectionKey* pKey;
    const IniRecord* pRecord;
};

/// All records that the agent reads, in execution order, without unknown sections and keys, refused lengths and
/// sections that Windows does not read. Valid as long as the scan.
[[nodiscard]] std::vector<Instruction> ListInstructions(const IniScan& scan);

/// The records of a section of an update's instruction file, as the agent reads them; empty when it cannot be read, or
/// another section without which its reader does nothing.
[[nodiscard]] SectionRecords ReadRecords(const Update& update, const ::Section& section);

/// A field of a record and its position in the line.
struct Field {
    std::wstring tstrText;
    TextPosition place;
    bool bEmptyBefore;  ///< a field before it is empty, so this one moves forward
};

/// All fields of a record as the agent splits it.
[[nodiscard]] std::vector<Field> SplitRecord(const IniRecord& record);

/// A record's key path as Windows reads it, without trailing backslashes.
[[nodiscard]] std::wstring KeyPathOf(std::wstring tstrKeyPath);

/// The installer's default folder, used when the install folder is unknown.
inline constexpr wchar_t kUsualInstallFolder[] = L"C:\\Program Files\\Kazmere\\KZVLT\\";

/// The values of the placeholders on a customer's machine; assumes that the log folders are set.
class CustomerFolders {
public:
    /// `tstrDownloadPath` is the product package's folder name.
    CustomerFolders(Folder installed, const std::wstring& tstrDownloadPath);

    [[nodiscard]] std::wstring Expand(std::wstring tstrText) const;
    [[nodiscard]] const Folder& InstalledDir() const noexcept { return m_installed; }

private:
    Folder m_installed;
    std::wstring m_tstrDownload;
    std::wstring m_tstrInstallerLog;
    std::wstring m_tstrLog;
};

}  // namespace Check
