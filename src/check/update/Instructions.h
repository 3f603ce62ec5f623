// The records of an instruction file as the agent takes them: by section and key, in the order of a run.
#pragma once

#include "agent/Sections.h"
#include "check/update/Folder.h"
#include "check/update/IniScan.h"

#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// Whether a section is one that `reading` reads, its name compared without regard to case as Windows does; a language
/// follows where the reading has one.
[[nodiscard]] bool IsNamed(const ::Section& reading, std::wstring_view tstrName);

/// The keys that all readers of a section take; empty for one that is not read.
[[nodiscard]] std::vector<std::wstring> KeysOf(std::wstring_view tstrSection);

/// A record that the agent takes, and the row of its key.
struct Instruction {
    const SectionKey* pKey;
    const IniRecord* pRecord;
};

/// All records that the agent takes, in the order in which it carries them out. Those of unknown sections and keys, of
/// a length that is refused, and of sections that Windows does not read are left out. Valid as long as the scan.
[[nodiscard]] std::vector<Instruction> ListInstructions(const IniScan& scan);

/// A field of a record, and where it stands in its line.
struct Field {
    std::wstring tstrText;
    TextPosition place;
    bool bEmptyBefore;  ///< a field before it is empty, so that this one moves up
};

/// All fields of a record as the agent splits it.
[[nodiscard]] std::vector<Field> SplitRecord(const IniRecord& record);

/// A record's key path as Windows takes it: backslashes at its end are dropped.
[[nodiscard]] std::wstring KeyPathOf(std::wstring tstrKeyPath);

/// The install folder that is taken when none is known: the installer's usual one.
inline constexpr wchar_t kUsualInstallFolder[] = L"C:\\Program Files\\Kazmere\\KZVLT\\";

/// The folders of a customer's machine that the placeholders stand for, the log folders taken as set.
class CustomerFolders {
public:
    /// `tstrDownloadPath`: the product package's name.
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
