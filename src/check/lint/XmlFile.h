// XML files of an update, read the way the product reads them.
#pragma once

#include "check/lint/Report.h"
#include "check/update/Update.h"

#include "common/KzComn_XmlElement.h"

#include <memory>
#include <string>

namespace Check {

/// Reads a file of the update, named relative to its folder. Null when the product would refuse it, with a finding of
/// `eRule` that says where and why: not well-formed, a document type declaration, too many elements inside each other,
/// too large, not readable. Expat.
[[nodiscard]] std::unique_ptr<KzCommon::Storage::XmlDocument> ReadXml(const Update& update,
                                                                      const std::wstring& tstrFile, Rule eRule,
                                                                      Report& report);

/// The position of an element's start tag.
[[nodiscard]] TextPosition PlaceOfElement(const KzCommon::Storage::XmlElement& element);

}  // namespace Check
