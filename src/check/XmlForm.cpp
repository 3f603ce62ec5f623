#include "check/XmlForm.h"

#include "check/simulate/ErrorText.h"

#include "agent/InstructionFile.h"
#include "common/KzComn_XmlException.h"
#include "common/KzComn_XmlParser.h"

using namespace KzCommon;

namespace Check {

namespace {

Place PlaceAt(const Storage::XmlPosition& position)
{
    return {static_cast<unsigned>(position.ullLine), static_cast<unsigned>(position.ullColumn)};
}

}  // namespace

std::unique_ptr<Storage::XmlDocument> ReadXml(const Update& update, const std::wstring& tstrFile, Rule eRule,
                                              Report& report)
{
    try {
        return Storage::XmlParser().ParseFile(update.FullPath(tstrFile));
    } catch (Storage::Exception* pException) {
        const Storage::CaughtException caught(pException);
        const auto* const pXml = dynamic_cast<const Storage::XmlException*>(caught.get());
        const Place place = PlaceAt(pXml ? pXml->Position() : Storage::XmlPosition{});
        const std::wstring tstrReason = pXml ? pXml->Reason() : std::wstring(L"the file cannot be read");
        report.Add(eRule, tstrFile, place,
                   place.uLine > 0 ? tstrReason : tstrReason + L": " + DescribeError(caught->ErrorCode()));
    }
    return nullptr;
}

std::wstring ReasonOf(const Storage::Exception& exception)
{
    const auto* const pXml = dynamic_cast<const Storage::XmlException*>(&exception);
    const Place place = PlaceAt(pXml ? pXml->Position() : Storage::XmlPosition{});
    if (place.uLine == 0) return L"cannot be read: " + DescribeError(exception.ErrorCode());
    return L"line " + std::to_wstring(place.uLine) + L": " + pXml->Reason();
}

void ForEachTag(const Storage::XmlElement& root,
                const std::function<void(const Storage::XmlElement&, const Config::TagPath&)>& visit)
{
    std::wstring tstrPath;
    const Storage::XmlElement* pElement = root.GetFirstChild();
    while (pElement && pElement != &root) {
        tstrPath += L"/" + pElement->GetName();
        // No record reaches what is called by more, and nothing of it is looked at.
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

Place PlaceOfElement(const Storage::XmlElement& element)
{
    return PlaceAt(element.Position());
}

std::vector<std::wstring> SettingFiles(const Update& update, const std::wstring& tstrBase,
                                       const std::wstring& tstrExtension)
{
    const std::wstring tstrFolder = update.SettingFolder();
    std::vector<std::wstring> files = update.FilesIn(tstrFolder, (tstrBase + L"_*." + tstrExtension).c_str());
    for (std::wstring& tstrFile : update.FilesIn(tstrFolder, (tstrBase + L"." + tstrExtension).c_str())) {
        files.push_back(std::move(tstrFile));
    }
    return files;
}

}  // namespace Check
