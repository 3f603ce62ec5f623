#include "check/update/JsonText.h"

#include "common/KzComn_String.h"

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
    return KzCommon::String::ToUtf8(tstrText);
}

}  // namespace Check
