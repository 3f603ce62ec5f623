// The tags of an update's configuration files, compared with each other and with those that the product knows.
#pragma once

#include "check/lint/Report.h"
#include "check/update/Update.h"

#include "common/KzComn_XmlElement.h"
#include "config/ConfigValue.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace Check {

/// A setting or section of one file.
struct FileTag {
    std::wstring tstrPath;  ///< "/Parent/Child", as written
    TextPosition place;
    bool bSection = false;
    Config::Type eType = Config::Type::eString;
};

/// All of one file by folded path; of several with one path the first.
struct FileTags {
    std::wstring tstrFile;  ///< relative to the update's folder
    std::map<std::wstring, FileTag> tags;
};

[[nodiscard]] FileTags TagsOf(const std::wstring& tstrFile, const KzCommon::Storage::XmlElement& root);

/// B066 and B067 of all files: names that nearly are those of settings which the product knows (built-in defaults, the
/// installed file) or which a file has and a record carries over; settings that only some of the languages have, or
/// have with different types. `carriedOver`: the tag paths of the records. Returns the folded paths of the slips and of
/// the right names.
std::set<std::wstring> CheckTagNames(const Update& update, const std::vector<FileTags>& files,
                                     const std::vector<std::wstring>& carriedOver, Report& report);

}  // namespace Check
