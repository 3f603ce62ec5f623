#include "check/update/JsonText.h"

#include "common/KzComn_String.h"

#include <algorithm>
#include <memory>

using namespace KzCommon;

namespace Check {

std::string ToJsonText(const Json::Value& value)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    builder["emitUTF8"] = false;  // a shell may read redirected output in any code page
    return Json::writeString(builder, value) + "\n";
}

Json::Value ToJson(std::wstring_view tstrText)
{
    return String::ToUtf8(tstrText);
}

Json::Value ToJson(const std::vector<std::wstring>& texts)
{
    Json::Value json(Json::arrayValue);
    for (const std::wstring& tstrText : texts) json.append(ToJson(tstrText));
    return json;
}

std::string DecodeText(std::string_view strBytes)
{
    if (strBytes.starts_with("\xEF\xBB\xBF")) return std::string(strBytes.substr(3));
    if (!strBytes.starts_with("\xFF\xFE")) return std::string(strBytes);
    std::wstring tstrText((strBytes.size() - 2) / sizeof(wchar_t), L'\0');
    std::copy_n(strBytes.data() + 2, tstrText.size() * sizeof(wchar_t), reinterpret_cast<char*>(tstrText.data()));
    return String::ToUtf8(tstrText);
}

bool ParseJson(std::string_view strBytes, Json::Value& root, std::wstring& tstrError)
{
    const std::string strText = DecodeText(strBytes);
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["stackLimit"] = 16;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string strErrors;
    try {
        if (reader->parse(strText.data(), strText.data() + strText.size(), &root, &strErrors)) return true;
    } catch (const Json::Exception& exception) {
        strErrors = exception.what();
    }
    if (!String::FromUtf8(strErrors.substr(0, strErrors.find_last_not_of("\r\n") + 1), tstrError)) {
        tstrError = L"not JSON";
    }
    return false;
}

}  // namespace Check
