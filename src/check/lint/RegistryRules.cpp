// B020 to B029 and B120: registry records of the instruction file.
#include "check/lint/InstalledRegistry.h"
#include "check/lint/Lint.h"
#include "check/lint/SecretText.h"
#include "check/update/Instructions.h"
#include "check/update/Suggestion.h"
#include "check/update/VersionText.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <map>
#include <span>
#include <string_view>

using namespace KzCommon;

namespace Check {

namespace {

constexpr wchar_t kDefault[] = L"(Default)";

enum Index : std::size_t { eKeyPath, eValueName, eType, eData, eCount };

/// A registry record with everything that its findings need.
struct Patch {
    const Instruction& instruction;
    std::vector<Field> fields;
    RegistryRecord parsed;
    Report& report;

    [[nodiscard]] bool Deletes() const { return RegOpOf(instruction.pKey->eEffect) == op_reg_delete; }
    [[nodiscard]] bool OnlyMissing() const { return RegOpOf(instruction.pKey->eEffect) == op_reg_add_if_non; }

    void Add(Severity eSeverity, Rule eRule, TextPosition place, std::wstring tstrText,
             std::wstring tstrSuggestion = {}) const
    {
        report.AddAs(eSeverity, eRule, kInstructionFile, place, std::move(tstrText), std::move(tstrSuggestion));
    }
    void Error(Rule eRule, TextPosition place, std::wstring tstrText, std::wstring tstrSuggestion = {}) const
    {
        Add(Severity::eError, eRule, place, std::move(tstrText), std::move(tstrSuggestion));
    }
    void Warn(Rule eRule, TextPosition place, std::wstring tstrText, std::wstring tstrSuggestion = {}) const
    {
        Add(Severity::eWarning, eRule, place, std::move(tstrText), std::move(tstrSuggestion));
    }
};

/// The data as the author wrote them, further "!" included.
std::wstring WrittenData(const Patch& patch)
{
    const IniRecord& record = *patch.instruction.pRecord;
    const Field& type = patch.fields[eType];
    const std::size_t uAfterType = type.place.uColumn - record.valuePlace.uColumn + type.tstrText.size();
    return uAfterType < record.tstrValue.size() ? record.tstrValue.substr(uAfterType + 1) : std::wstring();
}

/// Reports data that the agent takes for a missing value. False if the data do not mean one.
bool CheckMissing(const Patch& patch)
{
    if (patch.Deletes() || patch.fields.size() < eCount) return false;
    RegistryRecord written = patch.parsed;
    written.tstrData = WrittenData(patch);
    if (!CountsAsMissing(written)) return false;
    patch.Warn(Rule::eCountsAsMissing, patch.fields[eData].place,
               L"\"" + written.tstrData + L"\" stands for a missing value: add_if_non writes over it");
    return true;
}

void CheckDeleteFields(const Patch& patch)
{
    const IniRecord& record = *patch.instruction.pRecord;
    if (patch.fields.size() < 2) {
        patch.Warn(Rule::eRegistryFields, record.valuePlace,
                   L"there is no value name: the key's unnamed value is deleted, not the key");
    } else if (patch.fields.size() > 2) {
        patch.Warn(Rule::eRegistryFields, patch.fields[2].place,
                   L"a deletion takes a key path and a value name: the rest is ignored");
    }
}

/// False for a record whose fields are not what they seem to be: nothing more can be said of it.
bool CheckFields(const Patch& patch)
{
    const IniRecord& record = *patch.instruction.pRecord;
    const std::size_t cLooked = std::min<std::size_t>(patch.fields.size(), patch.Deletes() ? eType : eCount);
    if (std::ranges::any_of(std::span(patch.fields).first(cLooked), &Field::bEmptyBefore)) {
        patch.Error(Rule::eRegistryFields, record.valuePlace, L"an empty field vanishes: those after it move up");
        return false;
    }
    if (patch.Deletes()) {
        CheckDeleteFields(patch);
        return !patch.fields.empty();
    }
    if (patch.fields.size() < eData) {
        patch.Error(Rule::eRegistryFields, record.valuePlace,
                    L"key path, value name, type and data are needed: nothing is written");
        return false;
    }
    if (patch.fields.size() == eData && !record.tstrValue.ends_with(L'!')) {
        patch.Error(Rule::eRegistryFields, record.valuePlace,
                    L"there are no data: an empty value is written; end the record with \"!\" where that is meant");
    } else if (patch.fields.size() > eCount) {
        patch.Error(Rule::eRegistryFields, patch.fields[eCount].place,
                    L"data end at \"!\": only \"" + patch.parsed.tstrData + L"\" is written");
    }
    return true;
}

void CheckBlanks(const Patch& patch)
{
    const std::size_t cNames = std::min<std::size_t>(patch.fields.size(), eType);
    for (std::size_t u = 0; u < cNames; ++u) {
        const std::wstring& tstrText = patch.fields[u].tstrText;
        if (tstrText.starts_with(L' ') || tstrText.ends_with(L' ')) {
            patch.Warn(Rule::eSpaceAtField, patch.fields[u].place,
                       L"the spaces beside \"!\" belong to \"" + tstrText + L"\"");
        }
    }
}

constexpr std::wstring_view kHives[] = {L"SOFTWARE", L"SYSTEM",      L"HARDWARE",   L"SAM",
                                        L"SECURITY", L"BCD00000000", L"COMPONENTS", L"DRIVERS"};

bool IsOneOf(std::span<const std::wstring_view> names, const std::wstring& tstrName)
{
    return std::any_of(names.begin(), names.end(),
                       [&](std::wstring_view tstrOne) { return String::EqualsNoCase(tstrOne, tstrName); });
}

/// A key path as a suggestion; empty unless Windows takes it.
std::wstring IfKeyPath(const std::wstring& tstrPath)
{
    const bool bTaken = IsOneOf(kHives, tstrPath.substr(0, tstrPath.find(L'\\'))) &&
                        tstrPath.find(L"\\\\") == std::wstring::npos && tstrPath.find(L'"') == std::wstring::npos &&
                        !tstrPath.ends_with(L'\\');
    return bTaken ? tstrPath : std::wstring();
}

std::wstring WithBackslashes(std::wstring tstrPath)
{
    std::replace(tstrPath.begin(), tstrPath.end(), L'/', L'\\');
    return tstrPath;
}

/// False when a root is written out: what follows is no key path.
bool CheckRoot(const Patch& patch)
{
    constexpr std::wstring_view kMachine[] = {L"HKEY_LOCAL_MACHINE", L"HKLM"};
    constexpr std::wstring_view kOthers[] = {L"HKEY_CURRENT_USER",   L"HKCU", L"HKEY_CLASSES_ROOT", L"HKCR",
                                             L"HKEY_CURRENT_CONFIG", L"HKCC", L"HKEY_USERS",        L"HKU"};
    const std::wstring& tstrPath = patch.parsed.tstrKeyPath;
    const std::size_t uEnd = std::min(tstrPath.find_first_of(L":\\/"), tstrPath.size());
    const std::wstring tstrFirst = tstrPath.substr(0, uEnd);
    const bool bMachine = IsOneOf(kMachine, tstrFirst);
    if (!bMachine && !IsOneOf(kOthers, tstrFirst)) return true;
    const std::size_t uRest = std::min(tstrPath.find_first_not_of(L":\\/", uEnd), tstrPath.size());
    patch.Error(Rule::eRootWrittenOut, patch.fields[eKeyPath].place,
                L"all keys are below HKEY_LOCAL_MACHINE: \"" + tstrFirst + L"\" would be a key there",
                bMachine ? IfKeyPath(WithBackslashes(tstrPath.substr(uRest))) : std::wstring());
    return false;
}

/// False for a key path with slashes: they belong to the names. Some keys have one on purpose, but not in front of the
/// first backslash, and the product's key has none.
bool CheckSlashes(const Patch& patch)
{
    const std::wstring& tstrPath = patch.parsed.tstrKeyPath;
    const std::wstring tstrMeant = WithBackslashes(tstrPath);
    const bool bFirst = tstrPath.find(L'/') < tstrPath.find(L'\\');
    const bool bProduct = tstrMeant != tstrPath && String::StartsWithNoCase(tstrMeant, Frwk::Utility::kProductKey);
    if (!bFirst && !bProduct) return true;
    patch.Error(Rule::eKeyPath, patch.fields[eKeyPath].place,
                L"\"/\" separates no keys: write backslashes between their names", IfKeyPath(tstrMeant));
    return false;
}

/// What no key can be called, and where none can be made.
void CheckKeyNames(const Patch& patch)
{
    const std::wstring& tstrPath = patch.parsed.tstrKeyPath;
    const std::wstring tstrFirst = tstrPath.substr(0, tstrPath.find(L'\\'));
    const TextPosition place = patch.fields[eKeyPath].place;
    if (tstrPath.starts_with(L'"')) {
        std::wstring tstrPlain = tstrPath;
        std::erase(tstrPlain, L'"');
        patch.Error(Rule::eKeyPath, place, L"the quotes are part of the key path: remove the quotes",
                    IfKeyPath(tstrPlain));
        return;
    }
    if (!tstrFirst.empty() && !IsOneOf(kHives, tstrFirst)) {
        const std::wstring tstrNear =
            NearestOf(tstrFirst, std::vector<std::wstring>(std::begin(kHives), std::end(kHives)));
        patch.Error(Rule::eKeyPath, place, L"Windows does not allow a new key \"" + tstrFirst + L"\" below the root",
                    tstrNear.empty() ? std::wstring() : IfKeyPath(tstrNear + tstrPath.substr(tstrFirst.size())));
    }
    for (std::size_t uBegin = 0; uBegin < tstrPath.size();) {
        const std::size_t uEnd = std::min(tstrPath.find(L'\\', uBegin), tstrPath.size());
        constexpr std::size_t kMaxName = 255;
        if (uEnd - uBegin > kMaxName) {
            patch.Error(Rule::eKeyPath, place, L"Windows refuses a key whose name has more than 255 characters");
        }
        uBegin = uEnd + 1;
    }
}

/// Backslashes with nothing on one side of them.
void CheckBackslashes(const Patch& patch)
{
    const std::wstring& tstrPath = patch.parsed.tstrKeyPath;
    std::wstring tstrPlain = KeyPathOf(tstrPath);
    const bool bEnd = tstrPlain.size() < tstrPath.size();
    const bool bFront = tstrPath.starts_with(L'\\');
    const bool bTwo = tstrPlain.find(L"\\\\") != std::wstring::npos;
    if (!bEnd && !bFront && !bTwo) return;
    while (tstrPlain.find(L"\\\\") != std::wstring::npos) String::ReplaceAll(tstrPlain, L"\\\\", L"\\");
    if (bFront && !tstrPlain.empty()) tstrPlain.erase(0, 1);
    tstrPlain = IfKeyPath(tstrPlain);
    const TextPosition place = patch.fields[eKeyPath].place;
    if (bFront) {
        patch.Error(Rule::eKeyPath, place, L"the key path begins with a backslash: Windows refuses it", tstrPlain);
    } else if (bTwo) {
        patch.Error(Rule::eKeyPath, place, L"two backslashes in a row: Windows knows no key without a name", tstrPlain);
    } else {
        patch.Warn(Rule::eKeyPath, place, L"Windows drops the backslash at the end of the key path", tstrPlain);
    }
}

void CheckDefaultName(const Patch& patch)
{
    if (patch.fields.size() <= eValueName) return;
    const Field& name = patch.fields[eValueName];
    if (!String::EqualsNoCase(name.tstrText, kDefault)) return;
    if (patch.OnlyMissing() && name.tstrText == kDefault) {
        patch.Warn(Rule::eDefaultName, name.place, L"the unnamed value is overwritten in every run");
    } else {
        patch.Error(Rule::eDefaultName, name.place,
                    L"a value that is really called \"" + name.tstrText + L"\" is meant here, not the unnamed one");
    }
}

/// The number that the author may have meant by invalid data: hexadecimal, negative or with spaces.
std::wstring NearestNumber(const std::wstring& tstrData, bool bQword)
{
    wchar_t* pEnd = nullptr;
    const bool bHex = tstrData.find_first_of(L"xX") != std::wstring::npos;
    errno = 0;
    const unsigned long long ullNumber = ::wcstoull(tstrData.c_str(), &pEnd, bHex ? 16 : 10);
    if (pEnd == tstrData.c_str() || errno != 0) return {};
    while (*pEnd == L' ') ++pEnd;
    if (*pEnd) return {};
    const bool bNegative = tstrData.find(L'-') != std::wstring::npos;
    if (!bQword && !bNegative && ullNumber > MAXDWORD) return {};
    return std::to_wstring(bQword ? ullNumber : static_cast<DWORD>(ullNumber));
}

/// Windows' name of a value's type.
std::wstring TypeName(DWORD dwType)
{
    constexpr std::wstring_view kNames[] = {L"REG_NONE",   L"REG_SZ",      L"REG_EXPAND_SZ",
                                            L"REG_BINARY", L"REG_DWORD",   L"REG_DWORD_BIG_ENDIAN",
                                            L"REG_LINK",   L"REG_MULTI_SZ"};
    if (dwType == REG_QWORD) return L"REG_QDWORD";  // as records call it
    return dwType < std::size(kNames) ? std::wstring(kNames[dwType]) : L"type " + std::to_wstring(dwType);
}

/// Of two types that come equally near, the 64-bit one is meant: its word is the odd one.
std::wstring NearestType(const std::wstring& tstrType)
{
    std::vector<std::wstring> words = RegistryTypeWords();
    std::reverse(words.begin(), words.end());
    const std::wstring tstrNear = NearestOf(tstrType, words);
    return tstrNear.empty() ? NearestOf(L"REG_" + tstrType, words) : tstrNear;
}

/// The way around a type that the agent does not write.
void CheckUnwrittenType(const Patch& patch)
{
    constexpr std::wstring_view kWindowsTypes[] = {L"REG_MULTI_SZ", L"REG_BINARY", L"REG_EXPAND_SZ", L"REG_NONE"};
    const std::wstring& tstrType = patch.parsed.tstrType;
    const TextPosition place = patch.fields[eType].place;
    if (IsOneOf(kWindowsTypes, tstrType)) {
        patch.Error(Rule::eRegistryType, place,
                    tstrType +
                        L" is not supported: nothing is written; bring a .reg file and import it in [Run]: "
                        L"SysRunOnce=reg.exe import \"{InstalledDir}NAME.reg\"");
        return;
    }
    patch.Error(Rule::eRegistryType, place, L"\"" + tstrType + L"\" is no type: nothing is written",
                NearestType(tstrType));
}

void CheckTypeAndData(const Patch& patch)
{
    const RegistryRecord& parsed = patch.parsed;
    const Field& type = patch.fields[eType];
    switch (parsed.eType) {
        case RegistryType::eText: return;
        case RegistryType::eMultiText:
        case RegistryType::eUnknown: CheckUnwrittenType(patch); return;
        case RegistryType::eDword:
        case RegistryType::eQword: break;
    }
    const bool bQword = parsed.eType == RegistryType::eQword;
    const bool bZero = !parsed.tstrData.empty() && parsed.tstrData.find_first_not_of(L'0') == std::wstring::npos;
    const ULONGLONG ullNumber = bQword ? parsed.ullData : parsed.dwData;
    if (bZero || ullNumber != 0) return;
    patch.Error(
        Rule::eRegistryNumber, patch.fields.size() > eData ? patch.fields[eData].place : type.place,
        L"\"" + parsed.tstrData + L"\" is no decimal number of " + (bQword ? L"64" : L"32") + L" bits: 0 is stored",
        NearestNumber(parsed.tstrData, bQword));
}

/// B120 and B046: the value as the installed product has it.
void CheckInstalledValue(const Patch& patch, const InstalledRegistry& installed)
{
    const RegistryRecord& parsed = patch.parsed;
    const std::optional<RegistryData> optData = DataOf(parsed);
    if (!optData || patch.fields.size() <= eType) return;
    const auto optFound = installed.Find(KeyPathOf(parsed.tstrKeyPath), parsed.tstrValueName);
    if (!optFound) return;
    const StoredValue written = ToStored(*optData);
    if (optFound->dwType != written.dwType) {
        patch.Warn(Rule::eOtherRegistryType, patch.fields[eType].place,
                   L"the installed product has \"" + parsed.tstrValueName + L"\" as " + TypeName(optFound->dwType) +
                       L": it may not read a " + parsed.tstrType);
        return;
    }
    const bool bVersion = String::EqualsNoCase(parsed.tstrValueName, L"Version") && parsed.eType == RegistryType::eText;
    const std::wstring tstrInstalled = bVersion ? ShowStored(*optFound) : std::wstring();
    if (!patch.OnlyMissing() && IsOlderVersion(parsed.tstrData, tstrInstalled)) {
        patch.Warn(Rule::eOlderVersion, patch.fields[eData].place,
                   L"\"" + parsed.tstrData + L"\" is older than the installed \"" + tstrInstalled + L"\"");
    }
}

/// A record of the value that the agent finds its folder by. `folders`: those of a customer's machine.
void CheckProductPath(const Patch& patch, const CustomerFolders& folders)
{
    const RegistryRecord& parsed = patch.parsed;
    if (patch.fields.size() <= eValueName || !String::EqualsNoCase(parsed.tstrValueName, L"ProductPath") ||
        !String::EqualsNoCase(KeyPathOf(parsed.tstrKeyPath), Frwk::Utility::kProductKey)) {
        return;
    }
    const TextPosition place = patch.fields[eValueName].place;
    if (patch.Deletes()) {
        patch.Error(Rule::eProductPath, place,
                    L"the agent finds its folder by this value: without it the rest of the run is left out");
        return;
    }
    if (!IsWritten(parsed.eType)) return;
    const bool bText = parsed.eType == RegistryType::eText;
    if (patch.OnlyMissing() && bText) {
        patch.Warn(Rule::eProductPath, place, L"the value is never missing: no update runs without it");
        return;
    }
    const Folder folder = folders.Expand(parsed.tstrData);
    if (bText && String::EqualsNoCase(folder.Text(), folders.InstalledDir().Text())) {
        if (parsed.tstrData.starts_with(kInstalledDir)) return;
        patch.Warn(Rule::eProductPath, place,
                   L"a machine with the product in another folder loses it: leave the value to the installer",
                   kInstalledDir);
        return;
    }
    std::wstring tstrThen = L"the rest of the run is left out";
    if (bText && !parsed.tstrData.empty()) tstrThen = L"the rest of the run reads from \"" + folder.Text() + L"\"";
    patch.Error(Rule::eProductPath, place,
                std::wstring(L"the agent finds its folder by this value") + (bText ? L": " : L", which is a text: ") +
                    tstrThen);
}

/// Reports the effect of a record on an earlier record about the same value. False if the record itself has no effect.
bool CompareWithLast(const Patch& patch, const Patch& last)
{
    const auto lineOf = [](const Patch& other) {
        return L"line " + std::to_wstring(other.instruction.pRecord->place.uLine);
    };
    const auto warn = [&](const Patch& pointless, const std::wstring& tstrText) {
        patch.Warn(Rule::eUndoneByOtherPass, pointless.instruction.pRecord->place, tstrText);
    };
    if (patch.Deletes()) {
        warn(patch, L"the value is deleted in " + lineOf(last) + L" already");
        return false;
    }
    if (last.Deletes()) {
        warn(last, L"the value is written again: deletions come first, then " + lineOf(patch));
        return true;
    }
    const bool bStays = patch.parsed.eType == last.parsed.eType && !CountsAsMissing(last.parsed);
    if (patch.OnlyMissing() && bStays) {
        warn(patch, L"the value is never missing: " + lineOf(last) + L" has written it");
        return false;
    }
    warn(last, lineOf(patch) + L" writes over the value");
    return true;
}

std::wstring ValueOf(const Patch& patch)
{
    const bool bUnnamed = patch.OnlyMissing() && patch.parsed.tstrValueName == kDefault;
    return KeyPathOf(patch.parsed.tstrKeyPath) + L"!" + (bUnnamed ? std::wstring() : patch.parsed.tstrValueName);
}

}  // namespace

void CheckRegistry(const LintContext& context, Report& report)
{
    const std::vector<Instruction> instructions = ListInstructions(context.instructions);
    const CustomerFolders folders(context.update.InstalledFolder().value_or(kUsualInstallFolder),
                                  context.update.Product().tstrDownloadPath);
    const InstalledRegistry installed(context.update);
    String::NoCaseMap<Patch> lasts;
    for (const Instruction& instruction : instructions) {
        if (FormOf(instruction.pKey->eEffect) != RecordForm::eRegistryValue) continue;
        const IniRecord& record = *instruction.pRecord;
        const Patch patch{instruction, SplitRecord(record), ParseRegistryRecord(record.tstrValue), report};
        const bool bMissing = CheckMissing(patch);
        if (!bMissing && !CheckFields(patch)) continue;
        CheckBlanks(patch);
        if (CheckRoot(patch) && CheckSlashes(patch)) CheckKeyNames(patch);
        CheckBackslashes(patch);
        CheckDefaultName(patch);
        CheckProductPath(patch, folders);
        if (!patch.Deletes()) {
            CheckTypeAndData(patch);
            CheckInstalledValue(patch, installed);
        }
        if (!patch.Deletes() && patch.parsed.eType == RegistryType::eText && patch.fields.size() > eData) {
            CheckSecret(patch.parsed.tstrValueName, patch.fields[eData], report);
        }
        if (!patch.Deletes() && !IsWritten(patch.parsed.eType)) continue;
        const auto itLast = lasts.find(ValueOf(patch));
        if (itLast != lasts.end() && !CompareWithLast(patch, itLast->second)) continue;
        if (itLast != lasts.end()) lasts.erase(itLast);
        lasts.emplace(ValueOf(patch), patch);
    }
}

}  // namespace Check
