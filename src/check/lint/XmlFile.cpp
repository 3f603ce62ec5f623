#include "check/lint/XmlFile.h"

#include "check/update/ErrorText.h"

#include "common/KzComn_XmlException.h"
#include "common/KzComn_XmlParser.h"

using namespace KzCommon;

namespace Check {

namespace {

TextPosition PlaceAt(const Storage::XmlPosition& position)
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
        const TextPosition place = PlaceAt(pXml ? pXml->Position() : Storage::XmlPosition{});
        const std::wstring tstrReason = pXml ? pXml->Reason() : std::wstring(L"the file cannot be read");
        report.Add(eRule, tstrFile, place,
                   place.uLine > 0 ? tstrReason : tstrReason + L": " + DescribeError(caught->ErrorCode()));
    }
    return nullptr;
}

TextPosition PlaceOfElement(const Storage::XmlElement& element)
{
    return PlaceAt(element.Position());
}

}  // namespace Check
