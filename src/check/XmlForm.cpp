#include "check/XmlForm.h"

#include "check/ErrorWords.h"

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
                   place.uLine > 0 ? tstrReason : tstrReason + L": " + WordsOf(caught->ErrorCode()));
    }
    return nullptr;
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
