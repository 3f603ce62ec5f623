// B080 to B083: the shortcuts that the update describes.
#include "check/XmlForm.h"

namespace Check {

void CheckShortcuts(const Subject& subject, Report& report)
{
    for (const std::wstring& tstrFile : SettingFiles(subject.update, L"qorshcut", L"xml")) {
        static_cast<void>(ReadXml(subject.update, tstrFile, Rule::eShortcutsNotXml, report));
    }
}

}  // namespace Check
