#include "check/update/CommandLine.h"

#include "check/update/Suggestion.h"
#include "BrevantVersion.h"

#include "common/KzComn_String.h"

#include <string_view>

using namespace KzCommon;

namespace Check {

namespace {

struct OptionRow {
    const wchar_t* szName;
    unsigned uBits;
    bool bValue;
    bool (*pfnTake)(const Verb& verb, const std::wstring& tstrValue, Arguments& arguments);
};

bool TakeFormat(const Verb& verb, const std::wstring& tstrValue, Arguments& arguments)
{
    struct FormatRow {
        const wchar_t* szName;
        Format eFormat;
        unsigned uBits;
    };
    constexpr FormatRow kFormats[] = {{L"text", Format::eText, kFormatSarif | kFormatJson},
                                      {L"sarif", Format::eSarif, kFormatSarif},
                                      {L"json", Format::eJson, kFormatJson}};
    for (const FormatRow& row : kFormats) {
        if (tstrValue != row.szName || !(verb.uOptions & row.uBits)) continue;
        arguments.eFormat = row.eFormat;
        return true;
    }
    return false;
}

bool TakeInstalled(const Verb&, const std::wstring& tstrValue, Arguments& arguments)
{
    arguments.optInstalled = tstrValue;
    return !tstrValue.empty();
}

bool TakeLanguage(const Verb&, const std::wstring& tstrValue, Arguments& arguments)
{
    arguments.languages.push_back(tstrValue);
    return !tstrValue.empty();
}

bool TakeStrict(const Verb&, const std::wstring&, Arguments& arguments)
{
    return arguments.bStrict = true;
}

bool TakeAll(const Verb&, const std::wstring&, Arguments& arguments)
{
    return arguments.bAll = true;
}

bool TakeTrace(const Verb&, const std::wstring&, Arguments& arguments)
{
    return arguments.bTrace = true;
}

bool TakeInto(const Verb&, const std::wstring&, Arguments& arguments)
{
    return arguments.bInto = true;
}

bool TakeProduct(const Verb&, const std::wstring& tstrValue, Arguments& arguments)
{
    arguments.optProduct = tstrValue;
    return !tstrValue.empty();
}

bool TakeVersion(const Verb&, const std::wstring& tstrValue, Arguments& arguments)
{
    arguments.optVersion = tstrValue;
    return !tstrValue.empty();
}

bool TakeLanguages(const Verb&, const std::wstring& tstrValue, Arguments& arguments)
{
    bool bMore = false;
    arguments.languages = String::SplitFields(tstrValue, L',', tstrValue.size(), bMore);
    return !arguments.languages.empty();
}

constexpr OptionRow kOptions[] = {
    {L"--installed", kInstalled, true, TakeInstalled},
    {L"--language", kLanguage, true, TakeLanguage},
    {L"--strict", kStrict, false, TakeStrict},
    {L"--format", kFormatSarif | kFormatJson, true, TakeFormat},
    {L"--all", kAll, false, TakeAll},
    {L"--trace", kTrace, false, TakeTrace},
    {L"--into", kInto, false, TakeInto},
    {L"--product", kNewNames, true, TakeProduct},
    {L"--version", kNewNames, true, TakeVersion},
    {L"--languages", kNewNames, true, TakeLanguages},
};

/// The row of an option that the verb accepts, or null.
const OptionRow* FindOption(const Verb& verb, std::wstring_view tstrName)
{
    for (const OptionRow& row : kOptions) {
        if (tstrName == row.szName && (verb.uOptions & row.uBits)) return &row;
    }
    return nullptr;
}

std::wstring UsageOf(const Verb& verb)
{
    return std::wstring(L"BrevantCheck ") + verb.szName + L" " + verb.szUsage + L"\n";
}

std::wstring Overview(std::span<const Verb> verbs)
{
    std::wstring tstrText =
        L"Checks updates before they ship and machines after it; writes only what \"new\" and \"manifest --into\" "
        L"make.\n\n";
    for (const Verb& verb : verbs) tstrText += L"  " + UsageOf(verb);
    return tstrText + L"  BrevantCheck --version | --help | VERB --help\n";
}

int RunVerb(const Verb& verb, std::span<const wchar_t* const> words, Output& output)
{
    if (words.size() == 1 && words[0] == std::wstring_view(L"--help")) {
        output.strText = String::ToUtf8(UsageOf(verb) + L"\n" + verb.szHelp + L"\n");
        return kClean;
    }
    Arguments arguments;
    std::wstring tstrError;
    if (!ParseArguments(verb, words, arguments, tstrError)) {
        output.tstrErrors = tstrError + L"\n" + L"usage: " + UsageOf(verb);
        return kWrongUse;
    }
    return verb.pfnRun(arguments, output);
}

}  // namespace

bool ParseArguments(const Verb& verb, std::span<const wchar_t* const> words, Arguments& arguments,
                    std::wstring& tstrError)
{
    bool bOptions = true;
    for (std::size_t uWord = 0; uWord < words.size(); ++uWord) {
        const std::wstring tstrWord = words[uWord];
        if (!bOptions || !tstrWord.starts_with(L"--")) {
            arguments.operands.push_back(tstrWord);
            continue;
        }
        if (tstrWord == L"--") {
            bOptions = false;
            continue;
        }
        const OptionRow* const pRow = FindOption(verb, tstrWord);
        tstrError = tstrWord + L": unknown option of \"" + verb.szName + L"\"";
        if (!pRow) return false;
        std::wstring tstrValue;
        if (pRow->bValue) {
            tstrError = tstrWord + L": a value is missing";
            if (++uWord == words.size()) return false;
            tstrValue = words[uWord];
        }
        tstrError = tstrWord + L": \"" + tstrValue + L"\" is not a valid value";
        if (!pRow->pfnTake(verb, tstrValue, arguments)) return false;
    }
    const std::size_t cOperands = arguments.operands.size();
    tstrError = cOperands < verb.cLeastOperands ? L"an operand is missing" : L"too many operands";
    return cOperands >= verb.cLeastOperands && cOperands <= verb.cMostOperands;
}

int RunCommandLine(std::span<const Verb> verbs, std::span<const wchar_t* const> words, Output& output)
{
    const std::wstring tstrVerb = words.empty() ? std::wstring() : words[0];
    if (tstrVerb == L"--help" && words.size() == 1) {
        output.strText = String::ToUtf8(Overview(verbs));
        return kClean;
    }
    if (tstrVerb == L"--version" && words.size() == 1) {
        output.strText = String::ToUtf8(L"BrevantCheck " BREVANT_WIDE_VERSION L"\n");
        return kClean;
    }
    std::vector<std::wstring> names;
    for (const Verb& verb : verbs) {
        if (tstrVerb == verb.szName) return RunVerb(verb, words.subspan(1), output);
        names.emplace_back(verb.szName);
    }
    const std::wstring tstrNear = NearestOf(tstrVerb, names);
    if (!tstrVerb.empty()) output.tstrErrors = tstrVerb + L": unknown verb";
    if (!tstrNear.empty()) output.tstrErrors += L"; did you mean \"" + tstrNear + L"\"?";
    output.tstrErrors += (tstrVerb.empty() ? L"" : L"\n") + Overview(verbs);
    return kWrongUse;
}

}  // namespace Check
