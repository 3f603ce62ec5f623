#include "check/verify/Manifest.h"

#include "check/update/ErrorText.h"
#include "check/update/HostPaths.h"
#include "check/update/JsonText.h"
#include "check/update/NewFolder.h"
#include "check/update/OpenUpdate.h"
#include "check/verify/FoundValue.h"

#include "BrevantVersion.h"
#include "common/KzComn_File.h"
#include "common/KzComn_FileReplace.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WholeFile.h"

#include <algorithm>
#include <iterator>

using namespace KzCommon;

namespace Check {

namespace {

struct StateWord {
    ValueState eState;
    const char* szWord;
};
constexpr StateWord kStates[] = {
    {ValueState::eAbsent, "absent"}, {ValueState::eData, "value"}, {ValueState::eAnyData, "any"}};

constexpr const char* kUncoveredKinds[] = {"command", "shortcut", "new_name", "not_restored"};
static_assert(std::size(kUncoveredKinds) == static_cast<std::size_t>(UncoveredKind::eNotRestored) + 1);

const char* When(bool bAtRestart)
{
    return bAtRestart ? "restart" : "now";
}

Json::Value Describe(const ExpectedFile& file)
{
    Json::Value json;
    json["destination"] = ToJson(file.tstrPlace);
    json["source"] = ToJson(file.tstrSource);
    json["when"] = When(file.bAtRestart);
    if (!file.tstrLanguage.empty()) json["language"] = ToJson(file.tstrLanguage);
    if (file.optSettings) {
        json["settings"]["root"] = ToJson(file.optSettings->tstrRoot);
        json["settings"]["tags"] = ToJson(file.optSettings->tags);
        json["settings"]["carried_over"] = ToJson(file.optSettings->carriedOver);
    }
    // Without both, the content differs between machines.
    if (file.optContent) {
        json["size"] = Json::UInt64{file.optContent->ullSize};
        json["sha256"] = file.optContent->strSha256;
    }
    return json;
}

Json::Value Describe(const ExpectedDeletion& deletion)
{
    Json::Value json;
    json[deletion.bFolder ? "folder" : "files"] = ToJson(deletion.tstrPlace);
    json["when"] = When(deletion.bAtRestart);
    return json;
}

Json::Value Describe(const ExpectedValue& value)
{
    Json::Value json;
    json["key"] = ToJson(value.tstrKeyPath);
    json["name"] = ToJson(value.tstrValueName);
    for (const StateWord& row : kStates) {
        if (row.eState == value.eState) json["state"] = row.szWord;
    }
    if (value.eState == ValueState::eAbsent) return json;
    json["type"] = ToJson(WordOf(value.eType));
    if (value.bUnlessLiteral) json["unless_literal"] = true;
    json["data"] = HoldsText(value.eType) ? ToJson(value.tstrData) : Json::Value(Json::UInt64{value.ullData});
    return json;
}

Json::Value Describe(const ExpectedIniKey& value)
{
    Json::Value json;
    json["section"] = ToJson(value.tstrSection);
    json["key"] = ToJson(value.tstrKey);
    json["value"] = ToJson(value.tstrValue);
    return json;
}

Json::Value Describe(const UncoveredPart& part)
{
    Json::Value json;
    json["kind"] = kUncoveredKinds[static_cast<std::size_t>(part.eKind)];
    json["what"] = ToJson(part.tstrWhat);
    if (!part.tstrDetail.empty()) json["detail"] = ToJson(part.tstrDetail);
    if (!part.tstrLanguage.empty()) json["language"] = ToJson(part.tstrLanguage);
    return json;
}

Json::Value Describe(const UpdateFile& file)
{
    Json::Value json;
    json["file"] = ToJson(file.tstrFile);
    json["size"] = Json::UInt64{file.content.ullSize};
    json["sha256"] = file.content.strSha256;
    return json;
}

template <class Item>
Json::Value DescribeAll(const std::vector<Item>& items)
{
    Json::Value json(Json::arrayValue);
    for (const Item& item : items) json.append(Describe(item));
    return json;
}

/// Reads members of one object. A missing member or one of another type makes the whole object invalid.
class Members {
public:
    explicit Members(const Json::Value& json) : m_json(json), m_bOk(json.isObject()) {}

    [[nodiscard]] bool AreGood() const noexcept { return m_bOk; }
    [[nodiscard]] bool Has(const char* szName) const { return m_bOk && m_json.isMember(szName); }
    std::string Utf8(const char* szName)
    {
        m_bOk = Has(szName) && m_json[szName].isString();
        return m_bOk ? m_json[szName].asString() : std::string();
    }
    std::wstring Text(const char* szName)
    {
        std::wstring tstrText;
        m_bOk = String::FromUtf8(Utf8(szName), tstrText) && m_bOk && tstrText.find(L'\0') == std::wstring::npos;
        return tstrText;
    }
    ULONGLONG Number(const char* szName)
    {
        m_bOk = Has(szName) && m_json[szName].isUInt64();
        return m_bOk ? m_json[szName].asUInt64() : 0;
    }
    bool AtRestart()
    {
        const std::string strWhen = Utf8("when");
        m_bOk = m_bOk && (strWhen == When(true) || strWhen == When(false));
        return strWhen == When(true);
    }

private:
    const Json::Value& m_json;
    bool m_bOk;
};

bool FromJson(const Json::Value& json, std::wstring& tstrText)
{
    return json.isString() && String::FromUtf8(json.asString(), tstrText) && tstrText.find(L'\0') == std::wstring::npos;
}

bool FromJson(const Json::Value& json, std::vector<std::wstring>& texts)
{
    return json.isArray() && std::all_of(json.begin(), json.end(),
                                         [&](const Json::Value& text) { return FromJson(text, texts.emplace_back()); });
}

bool FromJson(const Json::Value& json, ExpectedSettings& settings)
{
    return json.isObject() && FromJson(json["root"], settings.tstrRoot) && FromJson(json["tags"], settings.tags) &&
           FromJson(json["carried_over"], settings.carriedOver);
}

bool FromJson(const Json::Value& json, ExpectedFile& file)
{
    Members members(json);
    file.tstrPlace = members.Text("destination");
    file.tstrSource = members.Text("source");
    file.bAtRestart = members.AtRestart();
    if (members.Has("language")) file.tstrLanguage = members.Text("language");
    if (members.Has("size") || members.Has("sha256")) {
        file.optContent = Content{members.Number("size"), members.Utf8("sha256")};
        if (!IsSha256(file.optContent->strSha256)) return false;
    }
    if (!members.Has("settings")) return members.AreGood();
    return FromJson(json["settings"], file.optSettings.emplace()) && members.AreGood();
}

bool FromJson(const Json::Value& json, ExpectedDeletion& deletion)
{
    Members members(json);
    deletion.bFolder = members.Has("folder");
    deletion.tstrPlace = members.Text(deletion.bFolder ? "folder" : "files");
    deletion.bAtRestart = members.AtRestart();
    return members.AreGood();
}

bool FromJson(const Json::Value& json, ExpectedValue& value)
{
    Members members(json);
    value.tstrKeyPath = members.Text("key");
    value.tstrValueName = members.Text("name");
    const std::string strState = members.Utf8("state");
    const StateWord* const pState = std::find_if(std::begin(kStates), std::end(kStates),
                                                 [&](const StateWord& row) { return strState == row.szWord; });
    if (!members.AreGood() || pState == std::end(kStates) || value.tstrKeyPath.empty()) return false;
    value.eState = pState->eState;
    if (value.eState == ValueState::eAbsent) return true;
    value.eType = RegistryTypeOf(members.Text("type"));
    value.bUnlessLiteral = members.Has("unless_literal");
    if (HoldsText(value.eType)) {
        value.tstrData = members.Text("data");
    } else {
        value.ullData = members.Number("data");
    }
    const bool bFits = value.eType != RegistryType::eDword || value.ullData <= MAXDWORD;
    return members.AreGood() && bFits && IsWritten(value.eType);
}

bool FromJson(const Json::Value& json, ExpectedIniKey& value)
{
    Members members(json);
    value.tstrSection = members.Text("section");
    value.tstrKey = members.Text("key");
    value.tstrValue = members.Text("value");
    return members.AreGood() && !value.tstrSection.empty() && !value.tstrKey.empty();
}

bool FromJson(const Json::Value& json, UncoveredPart& part)
{
    Members members(json);
    const std::string strKind = members.Utf8("kind");
    const auto* const pKind = std::ranges::find(kUncoveredKinds, strKind);
    part.tstrWhat = members.Text("what");
    if (members.Has("detail")) part.tstrDetail = members.Text("detail");
    if (members.Has("language")) part.tstrLanguage = members.Text("language");
    if (!members.AreGood() || pKind == std::end(kUncoveredKinds)) return false;
    part.eKind = static_cast<UncoveredKind>(pKind - kUncoveredKinds);
    return true;
}

bool FromJson(const Json::Value& json, UpdateFile& file)
{
    Members members(json);
    file.tstrFile = members.Text("file");
    file.content = {members.Number("size"), members.Utf8("sha256")};
    return members.AreGood() && !file.tstrFile.empty() && IsSha256(file.content.strSha256);
}

template <class Item>
bool ReadList(const Json::Value& root, const char* szName, std::vector<Item>& items, std::wstring& tstrError)
{
    const Json::Value& list = root[szName];
    tstrError = String::FromAnsi(szName) + L": no list";
    if (!list.isArray()) return false;
    for (const Json::Value& json : list) {
        if (FromJson(json, items.emplace_back())) continue;
        tstrError = String::FromAnsi(szName) + L"[" + std::to_wstring(items.size() - 1) + L"]: not as it should be";
        return false;
    }
    return true;
}

/// The members since format 2.
bool ReadAddedMembers(const Json::Value& root, ExpectedState& expected, std::wstring& tstrError)
{
    Members members(root);
    expected.strUpdate = members.Utf8("update");
    tstrError = L"update: not as it should be";
    return IsSha256(expected.strUpdate) && ReadList(root, "not_covered", expected.uncovered, tstrError) &&
           ReadList(root, "languages", expected.languages, tstrError) &&
           ReadList(root, "contents", expected.contents, tstrError);
}

/// The SHA-256 of a manifest's other members: two updates that promise the same have the same one.
std::string IdentityOf(const Json::Value& root)
{
    Content content;
    return ContentReader::HashBytes(ToJsonText(root), content, nullptr) ? content.strSha256 : std::string();
}

/// Writes the manifest to the product package's settings folder and creates the folder if it is missing.
bool WriteInto(const Folder& folder, std::string_view strManifest, DWORD* pdwError)
{
    Storage::File::Replacement file(LongPath(folder / kShippedManifest));
    return file.Create({}, FILE_ATTRIBUTE_NORMAL, pdwError) && file.Write(strManifest, pdwError) &&
           file.TakePlace(pdwError);
}

}  // namespace

std::string FormatManifest(const ExpectedState& expected)
{
    Json::Value root;
    root["format"] = kManifestFormat;
    root["component"]["product"] = ToJson(expected.tstrProduct);
    root["component"]["resource"] = ToJson(expected.tstrResource);
    root["version"] = Json::Value(Json::objectValue);
    for (const ExpectedIniKey& value : expected.updateInfo) {
        if (IsVersionKey(value.tstrKey)) root["version"][String::ToUtf8(value.tstrKey)] = ToJson(value.tstrValue);
    }
    root["folders"] = ToJson(expected.folders);
    root["files"] = DescribeAll(expected.files);
    root["deletions"] = DescribeAll(expected.deletions);
    root["registry"] = DescribeAll(expected.registry);
    root["update_information"] = DescribeAll(expected.updateInfo);
    root["not_covered"] = DescribeAll(expected.uncovered);
    root["languages"] = ToJson(expected.languages);
    root["contents"] = DescribeAll(expected.contents);
    root["update"] = IdentityOf(root);
    root["tool"] = BREVANT_VERSION;
    return ToJsonText(root);
}

bool ParseManifest(std::string_view strBytes, ExpectedState& expected, std::wstring& tstrError)
{
    Json::Value root;
    if (!ParseJson(strBytes, root, tstrError)) return false;
    tstrError = L"not a manifest, or another format";
    if (!root.isObject() || !root["format"].isUInt()) return false;
    expected.uFormat = root["format"].asUInt();
    if (expected.uFormat < kOldestManifestFormat || expected.uFormat > kManifestFormat) return false;
    Members component(root["component"]);
    expected.tstrProduct = component.Text("product");
    expected.tstrResource = component.Text("resource");
    tstrError = L"component: not as it should be";
    return component.AreGood() && ReadList(root, "folders", expected.folders, tstrError) &&
           ReadList(root, "files", expected.files, tstrError) &&
           ReadList(root, "deletions", expected.deletions, tstrError) &&
           ReadList(root, "registry", expected.registry, tstrError) &&
           ReadList(root, "update_information", expected.updateInfo, tstrError) &&
           (expected.uFormat == kOldestManifestFormat || ReadAddedMembers(root, expected, tstrError));
}

bool ReadManifest(const std::wstring& tstrManifest, ExpectedState& expected, std::wstring& tstrErrors,
                  std::string* pstrBytes)
{
    std::string strBytes;
    DWORD dwError = ERROR_SUCCESS;
    std::wstring tstrError;
    if (!Storage::File::ReadWhole(LongPath(tstrManifest), kMaxManifestBytes, strBytes, &dwError)) {
        tstrError = L"cannot be read: " + DescribeError(dwError);
    } else if (ParseManifest(strBytes, expected, tstrError)) {
        if (pstrBytes) *pstrBytes = strBytes;
        if (expected.Count() > 0) return true;
        tstrError = L"promises nothing";
    }
    tstrErrors += tstrManifest + L": " + tstrError + L"\n";
    return false;
}

bool CollectManifest(const Update& update, bool bShipped, ExpectedState& expected, std::wstring& tstrErrors)
{
    if (!CollectExpectedState(update, expected, tstrErrors)) return false;
    const ExpectedFile manifest{kInstalledDir + std::wstring(kShippedManifest),
                                update.SettingFolder() / kShippedManifest,
                                true,
                                {},
                                std::nullopt};
    const auto take = [&](const std::wstring& tstrPlace) {
        return std::erase_if(expected.files, [&](const ExpectedFile& file) {
                   return String::EqualsNoCase(file.tstrPlace, tstrPlace);
               }) > 0;
    };
    // The signature is made after the manifest, which therefore cannot promise it.
    static_cast<void>(take(manifest.tstrPlace + kSignatureEnd));
    if (take(manifest.tstrPlace) || bShipped) expected.files.push_back(manifest);
    return true;
}

bool MakeManifest(const Update& update, bool bShipped, std::string& strManifest, std::wstring& tstrErrors)
{
    ExpectedState expected;
    if (!CollectManifest(update, bShipped, expected, tstrErrors)) return false;
    strManifest = FormatManifest(expected);
    return true;
}

bool ShipManifest(const Update& update, Output& output)
{
    if (!update.Product().bThere) {
        output.tstrErrors += update.Product().folder /
                             L": no such folder: a manifest is shipped with the product "
                             L"package; without it use \"manifest UPDATE > FILE\"\n";
        return false;
    }
    // Without this folder the agent skips the settings, so it must exist before the expected state is collected.
    const Folder folder = update.Root() / update.SettingFolder().Text();
    DWORD dwError = ERROR_SUCCESS;
    std::string strManifest;
    const bool bFolder = MakeFolder(folder, &dwError);
    if (bFolder && !MakeManifest(update, true, strManifest, output.tstrErrors)) return false;
    if (!bFolder || !WriteInto(folder, strManifest, &dwError)) {
        output.tstrErrors += folder / kShippedManifest + L": cannot be written: " + DescribeError(dwError) + L"\n";
        return false;
    }
    output.strText = String::ToUtf8(WithHostPaths(folder / kShippedManifest) + L": written\n");
    return true;
}

int RunManifest(const Arguments& arguments, Output& output)
{
    Update update;
    if (!OpenUpdate(arguments, update, output)) return kCannotRead;
    if (arguments.bInto) return ShipManifest(update, output) ? kClean : kCannotRead;
    return MakeManifest(update, false, output.strText, output.tstrErrors) ? kClean : kCannotRead;
}

}  // namespace Check
