// The user's settings that an update does not carry over.
#pragma once

#include "check/simulate/SimulatedMachine.h"
#include "check/update/Folder.h"

#include <string>
#include <vector>

namespace Check {

/// A value of the installed configuration file that is not in the one that takes its place.
struct LostSetting {
    std::wstring tstrTag;  ///< "/Section/Setting"
    std::wstring tstrOld;  ///< as it is shown: "(empty)" for an empty text, "(secret)" for a protected value
    std::wstring tstrNew;  ///< the same; "(none)" where the new file has no such setting
};

/// "/Section/Setting: old -> new".
[[nodiscard]] std::wstring TextOf(const LostSetting& setting);

/// The values of the configuration file at `tstrOldFile` that the one at `tstrNewFile` does not have, in the order of
/// the file. A setting that the new file lacks counts as its built-in default. Empty when one of them cannot be read.
[[nodiscard]] std::vector<LostSetting> ListLostSettings(KzCommon::Machine& before, const std::wstring& tstrOldFile,
                                                        KzCommon::Machine& after, const std::wstring& tstrNewFile);

/// The same for a configuration file of an update, `tstrFile` relative to its folder: the agent's merge is carried out
/// with it on a machine in memory.
[[nodiscard]] std::vector<LostSetting> ListLostSettings(const Folder& updateDir, const Folder& installedDir,
                                                        const std::wstring& tstrFile);

}  // namespace Check
