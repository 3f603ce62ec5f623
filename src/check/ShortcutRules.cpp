// B080 to B083: the shortcuts that the update describes.
#include "check/XmlForm.h"

namespace Check {

void CheckShortcuts(const Subject& subject, Report& report)
{
    for (const std::wstring& tstrFile : SettingFiles(subject.update, L"qorshcut", L"xml")) {
        const auto document = ReadXml(subject.update, tstrFile, Rule::eShortcutsNotXml, report);
        if (!document) continue;
    }
}

}  // namespace Check
