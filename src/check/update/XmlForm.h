// Reads the XML files of an update as the product does.
#pragma once

#include "check/update/Update.h"

#include "common/KzComn_Exception.h"
#include "common/KzComn_XmlElement.h"
#include "config/ConfigValue.h"

#include <functional>
#include <memory>
#include <string>

namespace Check {

/// The position and reason of a refused document; the text of the code for an unreadable one.
[[nodiscard]] std::wstring ReasonOf(const KzCommon::Storage::Exception& exception);

/// Calls `visit` with every element below the root that a tag path can name, parents first. Skips paths that are longer
/// than a record can be.
void ForEachTag(const KzCommon::Storage::XmlElement& root,
                const std::function<void(const KzCommon::Storage::XmlElement&, const Config::TagPath&)>& visit);

/// The files of the settings folder with one base name: "config" with "xml" gives "config_EN-US.xml" and so on, and the
/// one without a language.
[[nodiscard]] std::vector<std::wstring> SettingFiles(const Update& update, const std::wstring& tstrBase,
                                                     const std::wstring& tstrExtension);

}  // namespace Check
