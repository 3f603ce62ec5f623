// B060 to B064: the configuration files that the update brings, and the settings that it carries over.
#include "check/XmlForm.h"

namespace Check {

void CheckConfiguration(const Subject& subject, Report& report)
{
    for (const std::wstring& tstrFile : SettingFiles(subject.update, L"config", L"xml")) {
        static_cast<void>(ReadXml(subject.update, tstrFile, Rule::eConfigNotXml, report));
    }
}

}  // namespace Check
