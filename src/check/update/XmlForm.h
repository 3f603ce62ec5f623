// XML files of an update, read the way the product reads them.
#pragma once

#include "check/update/Update.h"

#include "common/KzComn_Exception.h"
#include "common/KzComn_XmlElement.h"
#include "config/ConfigValue.h"

#include <functional>
#include <memory>
#include <string>

namespace Check {

/// Where a document is refused, and why; the code in words for one that cannot be read.
[[nodiscard]] std::wstring ReasonOf(const KzCommon::Storage::Exception& exception);

/// Calls `visit` with every element below the root that a tag path names, sections before what is in them. Of what is
/// called by more characters than a record has nothing is visited.
void ForEachTag(const KzCommon::Storage::XmlElement& root,
                const std::function<void(const KzCommon::Storage::XmlElement&, const Config::TagPath&)>& visit);

/// The files of the settings folder that belong to one base name, "config" with "xml" giving "config_EN-US.xml" and the
/// like; also one without language.
[[nodiscard]] std::vector<std::wstring> SettingFiles(const Update& update, const std::wstring& tstrBase,
                                                     const std::wstring& tstrExtension);

}  // namespace Check
