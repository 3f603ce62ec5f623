#include "check/start/NewUpdate.h"

#include "check/start/StarterFiles.h"
#include "check/update/ErrorText.h"
#include "check/update/NewFolder.h"

#include "common/KzComn_File.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <cwctype>

using namespace KzCommon;

namespace Check {

namespace {

constexpr wchar_t kEnglish[] = L"EN-US";
constexpr wchar_t kTexts[] = L"[RestartNotification_";
constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr std::size_t kMostCharacters = 64;
constexpr DWORD kMostOfVersion = 0xFFFF;

using Version = std::array<DWORD, 4>;

std::wstring Joined(const Version& version, std::size_t cParts)
{
    std::wstring tstrText = std::to_wstring(version[0]);
    for (std::size_t uPart = 1; uPart < cParts; ++uPart) tstrText += L"." + std::to_wstring(version[uPart]);
    return tstrText;
}

/// False for everything but four numbers, written without zeros in front of them.
bool ReadVersion(const std::wstring& tstrText, Version& version)
{
    bool bMore = false;
    const std::vector<std::wstring> parts = String::SplitFields(tstrText, L'.', version.size(), bMore);
    if (parts.size() != version.size()) return false;
    std::transform(parts.begin(), parts.end(), version.begin(), String::ToDwordStrict);
    return Joined(version, version.size()) == tstrText &&
           std::all_of(version.begin(), version.end(), [](DWORD dwPart) { return dwPart <= kMostOfVersion; });
}

/// The last number that can be lowered is.
Version Before(Version version)
{
    *std::find_if(version.rbegin(), version.rend(), [](DWORD dwPart) { return dwPart > 0; }) -= 1;
    return version;
}

bool IsFileName(const std::wstring& tstrName)
{
    const auto isRefused = [](wchar_t ch) {
        return ch < L' ' || std::wcschr(L"\\/:*?\"<>|", ch);
    };
    return !tstrName.empty() && tstrName.size() <= kMostCharacters && tstrName.front() != L' ' &&
           tstrName.back() != L' ' && tstrName.back() != L'.' &&
           std::none_of(tstrName.begin(), tstrName.end(), isRefused);
}

/// "EN-US", "ZH-HANT-TW": parts of two to eight letters or digits, the first one of two or three letters.
bool IsLanguage(const std::wstring& tstrTag)
{
    std::size_t cInPart = 0;
    std::size_t cParts = 1;
    for (const wchar_t ch : tstrTag + L"-") {
        if (ch == L'-') {
            if (cInPart < 2 || cInPart > (cParts == 1 ? 3U : 8U)) return false;
            cInPart = 0;
            ++cParts;
        } else if (ch > L'z' || (cParts == 1 ? !std::iswalpha(ch) : !std::iswalnum(ch))) {
            return false;
        } else {
            ++cInPart;
        }
    }
    return true;
}

/// A text of the starter, and what is written in its place.
struct Filling {
    std::wstring tstrFrom;
    std::wstring tstrTo;
};

/// Replaces in one pass: what has been filled in is not looked at again.
std::wstring FillIn(std::wstring_view tstrText, const std::vector<Filling>& fillings)
{
    std::wstring tstrFilled;
    while (!tstrText.empty()) {
        const auto filling = std::find_if(fillings.begin(), fillings.end(),
                                          [&](const Filling& row) { return tstrText.starts_with(row.tstrFrom); });
        tstrFilled += filling == fillings.end() ? std::wstring(1, tstrText.front()) : filling->tstrTo;
        tstrText.remove_prefix(filling == fillings.end() ? 1 : filling->tstrFrom.size());
    }
    return tstrFilled;
}

std::vector<Filling> FillingsOf(const NewNames& names, bool bXml)
{
    const NewNames starter;
    Version from = {};
    Version to = {};
    static_cast<void>(ReadVersion(starter.tstrVersion, from));
    static_cast<void>(ReadVersion(names.tstrVersion, to));
    std::wstring tstrProduct = names.tstrProduct;
    if (bXml) String::ReplaceAll(tstrProduct, L"&", L"&amp;");
    return {
        {starter.tstrProduct, tstrProduct},
        {starter.tstrVersion, names.tstrVersion},
        {Joined(Before(from), from.size()), Joined(Before(to), to.size())},
        {Joined(from, 3), Joined(to, 3)},  // in the names of the packages
        {L"\"Language\"=\"" + starter.languages.front() + L"\"", L"\"Language\"=\"" + names.languages.front() + L"\""}};
}

/// The texts of the question once for each language, the English ones for a language that has none.
std::wstring WithTexts(const std::wstring& tstrText, const std::vector<std::wstring>& languages)
{
    const std::size_t uFirst = tstrText.find(kTexts);
    if (uFirst == std::wstring::npos) return tstrText;
    constexpr wchar_t kLineEnd[] = L"\r\n";
    std::wstring tstrResult = tstrText.substr(0, uFirst);
    for (const std::wstring& tstrLanguage : languages) {
        std::size_t uStart = tstrText.find(kTexts + tstrLanguage + L"]");
        if (uStart == std::wstring::npos) uStart = tstrText.find(kTexts + std::wstring(kEnglish) + L"]");
        const std::size_t uRecords = tstrText.find(L']', uStart) + 1;
        const std::size_t uEnd = std::min(tstrText.find(kTexts, uRecords), tstrText.size());
        std::wstring tstrRecords = tstrText.substr(uRecords, uEnd - uRecords);
        tstrRecords.erase(tstrRecords.find_last_not_of(kLineEnd) + 1);
        if (&tstrLanguage != &languages.front()) tstrResult += kLineEnd;
        tstrResult += kTexts + tstrLanguage + L"]" + tstrRecords + kLineEnd;
    }
    return tstrResult;
}

/// A file's text; its form is given back by Encode().
std::wstring Decode(std::string_view strBytes)
{
    std::wstring tstrText;
    if (strBytes.starts_with(kUtf16Mark)) {
        tstrText.resize(strBytes.size() / sizeof(wchar_t) - 1);
        std::memcpy(tstrText.data(), strBytes.data() + kUtf16Mark.size(), tstrText.size() * sizeof(wchar_t));
    } else {
        static_cast<void>(String::FromUtf8(strBytes, tstrText));
    }
    return tstrText;
}

std::string Encode(const std::wstring& tstrText, bool bUtf16)
{
    return bUtf16 ? ToUtf16File(tstrText) : String::ToUtf8(tstrText);
}

NewFile Filled(const StarterFile& file, const std::wstring& tstrPath, const NewNames& names)
{
    const bool bXml = tstrPath.ends_with(L".xml") || tstrPath.ends_with(L".htm");
    const std::vector<Filling> fillings = FillingsOf(names, bXml);
    const std::wstring tstrText = FillIn(WithTexts(Decode(file.strBytes), names.languages), fillings);
    return {FillIn(tstrPath, fillings), Encode(tstrText, file.strBytes.starts_with(kUtf16Mark))};
}

/// The starter's language that a path names; empty without one.
std::wstring LanguageOf(const std::wstring& tstrPath)
{
    for (const std::wstring& tstrLanguage : NewNames().languages) {
        if (tstrPath.find(tstrLanguage) != std::wstring::npos) return tstrLanguage;
    }
    return {};
}

/// A line that names the languages that got the English texts; empty if every language has its own.
std::wstring Untranslated(const std::vector<std::wstring>& languages)
{
    const std::vector<std::wstring> translated = NewNames().languages;
    std::wstring tstrNamed;
    for (const std::wstring& tstrLanguage : languages) {
        if (std::find(translated.begin(), translated.end(), tstrLanguage) != translated.end()) continue;
        tstrNamed += (tstrNamed.empty() ? L"" : L", ") + tstrLanguage;
    }
    return tstrNamed.empty() ? tstrNamed : L"the texts of " + tstrNamed + L" are English ones: translate them\n";
}

}  // namespace

std::wstring FaultOf(const NewNames& names)
{
    Version version = {};
    if (!IsFileName(names.tstrProduct)) {
        return L"--product: \"" + names.tstrProduct + L"\" is no file name of at most " +
               std::to_wstring(kMostCharacters) + L" characters";
    }
    if (!ReadVersion(names.tstrVersion, version) || version == Version{}) {
        return L"--version: \"" + names.tstrVersion + L"\" is no version of four numbers, such as 3.9.3.1140";
    }
    for (auto language = names.languages.begin(); language != names.languages.end(); ++language) {
        const auto isSame = [&](const std::wstring& tstrOther) {
            return String::EqualsNoCase(*language, tstrOther);
        };
        if (!IsLanguage(*language)) return L"--languages: \"" + *language + L"\" is no language, such as EN-US";
        if (std::any_of(names.languages.begin(), language, isSame)) {
            return L"--languages: \"" + *language + L"\" is there twice";
        }
    }
    return {};
}

std::vector<NewFile> MakeNewUpdate(const NewNames& names)
{
    const std::vector<StarterFile> starter = StarterFiles();
    std::vector<NewFile> files;
    for (const StarterFile& file : starter) {
        const std::wstring tstrOwn = LanguageOf(file.tstrPath);
        if (tstrOwn.empty()) files.push_back(Filled(file, file.tstrPath, names));
        if (tstrOwn != kEnglish) continue;
        for (const std::wstring& tstrLanguage : names.languages) {
            std::wstring tstrPath = file.tstrPath;
            String::ReplaceAll(tstrPath, kEnglish, tstrLanguage);
            const auto translated = std::find_if(starter.begin(), starter.end(),
                                                 [&](const StarterFile& other) { return other.tstrPath == tstrPath; });
            files.push_back(Filled(translated == starter.end() ? file : *translated, tstrPath, names));
        }
    }
    return files;
}

int RunNew(const Arguments& arguments, Output& output)
{
    NewNames names;
    names.tstrProduct = arguments.optProduct.value_or(names.tstrProduct);
    names.tstrVersion = arguments.optVersion.value_or(names.tstrVersion);
    if (!arguments.languages.empty()) names.languages = arguments.languages;
    if (const std::wstring tstrFault = FaultOf(names); !tstrFault.empty()) {
        output.tstrErrors += tstrFault + L"\n";
        return kWrongUse;
    }
    const std::wstring& tstrGiven = arguments.operands.front();
    if (!IsFreeFolder(tstrGiven, output)) return kCannotRead;
    const std::wstring tstrFolder = String::EnsureBackslash(Storage::Directory::FullPath(tstrGiven));
    const std::vector<NewFile> files = MakeNewUpdate(names);
    for (const NewFile& file : files) {
        DWORD dwError = ERROR_SUCCESS;
        if (WriteNewFile(tstrFolder + file.tstrPath, file.strBytes, &dwError)) continue;
        output.tstrErrors += tstrFolder + file.tstrPath + L": cannot be written: " + DescribeError(dwError) + L"\n";
        return kCannotRead;
    }
    output.strText = String::ToUtf8(tstrGiven + L": " + std::to_wstring(files.size()) +
                                    L" files written; the update is in \"update\", README.md says what to do next\n" +
                                    Untranslated(names.languages));
    return kClean;
}

}  // namespace Check
