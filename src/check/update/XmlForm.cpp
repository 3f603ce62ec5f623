#include "check/update/XmlForm.h"

#include "check/update/ErrorText.h"

#include "agent/InstructionFile.h"
#include "common/KzComn_XmlException.h"
#include "common/KzComn_XmlParser.h"

using namespace KzCommon;

namespace Check {

std::wstring ReasonOf(const Storage::Exception& exception)
{
    const auto* const pXml = dynamic_cast<const Storage::XmlException*>(&exception);
    const ULONGLONG ullLine = pXml ? pXml->Position().ullLine : 0;
    if (ullLine == 0) return L"cannot be read: " + DescribeError(exception.ErrorCode());
    return L"line " + std::to_wstring(ullLine) + L": " + pXml->Reason();
}

void ForEachTag(const Storage::XmlElement& root,
                const std::function<void(const Storage::XmlElement&, const Config::TagPath&)>& visit)
{
    std::wstring tstrPath;
    const Storage::XmlElement* pElement = root.GetFirstChild();
    while (pElement && pElement != &root) {
        tstrPath += L"/" + pElement->GetName();
        // No record can name a longer path, so its elements are skipped.
        const auto path = tstrPath.size() <= kMaxRecordCharacters ? Config::TagPath::Parse(tstrPath) : std::nullopt;
        if (path) visit(*pElement, *path);
        if (path && pElement->GetFirstChild()) {
            pElement = pElement->GetFirstChild();
            continue;
        }
        const Storage::XmlElement* pNext = nullptr;
        while (!pNext && pElement != &root) {
            tstrPath.resize(tstrPath.rfind(L'/'));
            pNext = pElement->GetNextSibling();
            pElement = pElement->GetParent();
        }
        pElement = pNext;
    }
}

std::vector<std::wstring> SettingFiles(const Update& update, const std::wstring& tstrBase,
                                       const std::wstring& tstrExtension)
{
    const Folder folder = update.SettingFolder();
    std::vector<std::wstring> files = update.FilesIn(folder, (tstrBase + L"_*." + tstrExtension).c_str());
    for (std::wstring& tstrFile : update.FilesIn(folder, (tstrBase + L"." + tstrExtension).c_str())) {
        files.push_back(std::move(tstrFile));
    }
    return files;
}

}  // namespace Check
