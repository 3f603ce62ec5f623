#include "check/update/CommandLine.h"

#include "check/update/Suggestion.h"
#include "BrevantVersion.h"

#include "common/KzComn_String.h"

#include <string_view>

using namespace KzCommon;

namespace Check {

namespace {

bool TakeFormat(const Verb& verb, const std::wstring& tstrValue, Arguments& arguments)
{
    struct FormatRow {
        const wchar_t* szName;
        Format eFormat;
        unsigned uBits;
    };
    constexpr FormatRow kFormats[] = {{L"text", Format::eText, kFormatSarif | kFormatJson},
                                      {L"sarif", Format::eSarif, kFormatSarif},
                                      {L"json", Format::eJson, kFormatJson},
                                      {L"csv", Format::eCsv, kMachines}};
    for (const FormatRow& row : kFormats) {
        if (tstrValue != row.szName || !(verb.uOptions & row.uBits)) continue;
        arguments.eFormat = row.eFormat;
        return true;
    }
    return false;
}

bool TakeLanguage(const Verb&, const std::wstring& tstrValue, Arguments& arguments)
{
    arguments.languages.push_back(tstrValue);
    return !tstrValue.empty();
}

bool TakeLanguages(const Verb&, const std::wstring& tstrValue, Arguments& arguments)
{
    bool bMore = false;
    arguments.languages = String::SplitFields(tstrValue, L',', tstrValue.size(), bMore);
    return !arguments.languages.empty();
}

bool TakeKey(const Verb&, const std::wstring& tstrValue, Arguments& arguments)
{
    arguments.keys.push_back(tstrValue);
    return !tstrValue.empty();
}

bool TakePending(const Verb&, const std::wstring& tstrValue, Arguments& arguments)
{
    arguments.optPending = tstrValue;
    return tstrValue == L"arrived" || tstrValue == L"missing";
}

/// An option sets a flag, stores a text that is not empty, or has a function for its value.
struct OptionRow {
    const wchar_t* szName;
    unsigned uBits;
    bool Arguments::*pFlag = nullptr;
    std::optional<std::wstring> Arguments::*pText = nullptr;
    bool (*pfnTake)(const Verb& verb, const std::wstring& tstrValue, Arguments& arguments) = nullptr;
};
constexpr OptionRow kOptions[] = {
    {.szName = L"--installed", .uBits = kInstalled, .pText = &Arguments::optInstalled},
    {.szName = L"--language", .uBits = kLanguage, .pfnTake = TakeLanguage},
    {.szName = L"--strict", .uBits = kStrict, .pFlag = &Arguments::bStrict},
    {.szName = L"--format", .uBits = kFormatSarif | kFormatJson, .pfnTake = TakeFormat},
    {.szName = L"--all", .uBits = kAll, .pFlag = &Arguments::bAll},
    {.szName = L"--trace", .uBits = kTrace, .pFlag = &Arguments::bTrace},
    {.szName = L"--into", .uBits = kInto, .pFlag = &Arguments::bInto},
    {.szName = L"--product", .uBits = kNewNames, .pText = &Arguments::optProduct},
    {.szName = L"--version", .uBits = kNewNames, .pText = &Arguments::optVersion},
    {.szName = L"--languages", .uBits = kNewNames, .pfnTake = TakeLanguages},
    {.szName = L"--record", .uBits = kFleet, .pText = &Arguments::optRecord},
    {.szName = L"--detect", .uBits = kFleet, .pFlag = &Arguments::bDetect},
    {.szName = L"--event-log", .uBits = kFleet, .pFlag = &Arguments::bEventLog},
    {.szName = L"--pending", .uBits = kFleet, .pfnTake = TakePending},
    {.szName = L"--with", .uBits = kWith, .pText = &Arguments::optWith},
    {.szName = L"--key", .uBits = kKey, .pfnTake = TakeKey},
    {.szName = L"--older", .uBits = kOlder, .pFlag = &Arguments::bOlder},
    {.szName = L"--output", .uBits = kOutput, .pText = &Arguments::optOutput},
    {.szName = L"--machines", .uBits = kMachines, .pText = &Arguments::optMachines},
};

bool Take(const OptionRow& row, const Verb& verb, const std::wstring& tstrValue, Arguments& arguments)
{
    if (row.pFlag) return arguments.*row.pFlag = true;
    if (row.pfnTake) return row.pfnTake(verb, tstrValue, arguments);
    arguments.*row.pText = tstrValue;
    return !tstrValue.empty();
}

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
        L"Checks updates before they ship and machines after it. \"VERB --help\" says what a verb writes.\n\n";
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
        if (!pRow->pFlag) {
            tstrError = tstrWord + L": a value is missing";
            if (++uWord == words.size()) return false;
            tstrValue = words[uWord];
        }
        tstrError = tstrWord + L": \"" + tstrValue + L"\" is not a valid value";
        if (!Take(*pRow, verb, tstrValue, arguments)) return false;
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
