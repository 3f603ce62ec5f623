#include "check/trace/KnownFailures.h"

#include <algorithm>
#include <cwchar>
#include <string>

namespace Check {

namespace {

/// One way to write a code: the text before it, and its base.
struct CodeRow {
    std::wstring_view tstrBefore;
    int iBase;
};
constexpr CodeRow kCodes[] = {
    {L"[0x", 16},
    {L"code: 0x", 16},
    {L"failed: 0x", 16},
    {L"Win32ErrorCode=", 16},
    {L"error code is ", 10},
    {L"rror code: ", 10},
    {L"rror code = ", 10},
    {L"error code=", 10},
    {L"error = ", 10},
    {L"hr=", 10},
};

struct HarmlessRow {
    std::wstring_view tstrStart;
    std::wstring_view tstrPart;
    std::wstring_view tstrEnd;
    std::wstring_view tstrSource;  ///< empty: any source
    const wchar_t* szWhy;
};
constexpr HarmlessRow kHarmless[] = {
    {L"*** FrameworkDeployAgent::PatchRegistry() - QueryValue", L"", L"failed. [0x00000002]", L"RestartReminder.cpp",
     L"the update has no texts for the user's language; the built-in English ones are shown"},
    {L"*** FrameworkDeployAgent::", L" - QueryValue", L"failed. [0x00000002]", L"",
     L"the update's instruction file has no such section, which many have not"},
    {L"KzCommon::Storage::Reg::StoreValue(", L"=", L")", L"", L"a value was missing, and the update adds it"},
    {L"Failed to delete file '", L"", L"error = 2.", L"", L"there was nothing to delete"},
    {L"[SHCreateItemFromParsingName]failed.", L"\\Taskbar\\", L"hr=-2147024894", L"",
     L"the product was not pinned to the taskbar"},
    {L"*** CoCreateInstance [IStartMenuPinnedList] failed. [0x80040154]", L"", L"", L"",
     L"the shell cannot unpin anything there; the shortcuts are removed anyway"},
    {L"*** ::WTSSendMessage() failed. [0x00000000]", L"", L"", L"",
     L"Wine shows no question, and gives no code; on Windows a failure has one"},
};
// The first match counts, so rows with a source precede rows for any source.
static_assert(std::ranges::is_partitioned(kHarmless, [](const HarmlessRow& row) { return !row.tstrSource.empty(); }));

struct PageRow {
    std::wstring_view tstrSource;  ///< beginning of the source's name; the longest match counts
    const wchar_t* szPage;
};
constexpr PageRow kPages[] = {
    {L"RegistryPatch", L"docs/instruction-file.md, \"Registry: QOR_REGISTRY_PATCH\""},
    {L"FileOperations", L"docs/instruction-file.md, \"Folders and files: QOR_DIR, QOR_FILE\""},
    {L"IniEdits", L"docs/instruction-file.md, \"Update information: UPDATE_INFO\""},
    {L"RunOnce", L"docs/instruction-file.md, \"Commands: Run\""},
    {L"ConfigMerge", L"docs/instruction-file.md, \"User's settings: QOR_CONFIG_MERGE\""},
    {L"Config", L"docs/configuration-store.md, \"Results in the trace\""},
    {L"RestartReminder", L"docs/instruction-file.md, \"Question to the user: RestartNotification_\""},
    {L"NewNameDecision", L"docs/debug-trace.md, \"The change of name\""},
    {L"PostRestartRename", L"docs/debug-trace.md, \"The change of name\""},
    {L"ShortCut", L"docs/debug-trace.md, \"The change of name\""},
    {L"InstComn_", L"docs/debug-trace.md, \"The change of name\""},
    {L"L10nReader", L"docs/debug-trace.md, \"The change of name\""},
};
constexpr PageRow kAnyOtherSource{L"", L"docs/debug-trace.md, \"A run with failures\""};

}  // namespace

std::optional<DWORD> CodeOf(std::wstring_view tstrMessage)
{
    for (const CodeRow& row : kCodes) {
        const std::size_t uFound = tstrMessage.rfind(row.tstrBefore);
        if (uFound == std::wstring_view::npos) continue;
        const std::wstring tstrRest(tstrMessage.substr(uFound + row.tstrBefore.size()));
        wchar_t* pchEnd = nullptr;
        const long long llCode = std::wcstoll(tstrRest.c_str(), &pchEnd, row.iBase);
        if (pchEnd == tstrRest.c_str() || llCode == 0) continue;
        return static_cast<DWORD>(llCode);
    }
    return std::nullopt;
}

const wchar_t* WhyHarmless(const TraceLine& line)
{
    for (const HarmlessRow& row : kHarmless) {
        if (!row.tstrSource.empty() && line.tstrSource != row.tstrSource) continue;
        if (!line.tstrMessage.starts_with(row.tstrStart) || !line.tstrMessage.ends_with(row.tstrEnd)) continue;
        if (line.tstrMessage.find(row.tstrPart, row.tstrStart.size()) == std::wstring_view::npos) continue;
        return row.szWhy;
    }
    return nullptr;
}

const wchar_t* PageOf(std::wstring_view tstrSource)
{
    const PageRow* pFitting = &kAnyOtherSource;
    for (const PageRow& row : kPages) {
        const bool bLonger = row.tstrSource.size() > pFitting->tstrSource.size();
        if (bLonger && tstrSource.starts_with(row.tstrSource)) pFitting = &row;
    }
    return pFitting->szPage;
}

}  // namespace Check
