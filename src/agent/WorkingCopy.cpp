#include "agent/WorkingCopy.h"

#include "common/KzComn_Process.h"

#include <algorithm>
#include <cwchar>
#include <string_view>
#include <vector>

using namespace KzCommon;

namespace {

constexpr std::size_t kProcessDigits = 8;
constexpr std::wstring_view kBegins[] = {L"config-", L"UpdateInfo-"};  // indexed by WorkingFile
constexpr std::wstring_view kEnd = L".unfinished";

/// Whether a file is a leftover: a working copy of this process or of a process that has ended.
bool IsLeftover(std::wstring_view tstrName, std::wstring_view tstrBegin)
{
    if (tstrName.size() != tstrBegin.size() + kProcessDigits + kEnd.size() || !tstrName.starts_with(tstrBegin)) {
        return false;
    }
    const std::wstring tstrProcess(tstrName.substr(tstrBegin.size(), kProcessDigits));
    const auto isHexDigit = [](wchar_t ch) {
        return (ch >= L'0' && ch <= L'9') || (ch >= L'a' && ch <= L'f');
    };
    return std::ranges::all_of(tstrProcess, isHexDigit) &&
           !Process::IsAnotherRunning(std::wcstoul(tstrProcess.c_str(), nullptr, 16));
}

}  // namespace

std::wstring WorkingCopyOf(const PathValues& pathValues, WorkingFile eFile)
{
    if (pathValues.ProductDownloadDir().empty()) return {};
    wchar_t szProcess[kProcessDigits + 1] = {};
    ::_snwprintf_s(szProcess, _TRUNCATE, L"%08lx", ::GetCurrentProcessId());
    std::wstring tstrPath = pathValues.ProductDownloadDir();
    return tstrPath.append(kBegins[static_cast<std::size_t>(eFile)]).append(szProcess).append(kEnd);
}

void RemoveWorkingCopies(const RunContext& run)
{
    const std::wstring& tstrFolder = run.paths.ProductDownloadDir();
    if (tstrFolder.empty()) return;
    std::vector<std::wstring> leftovers;
    const auto gather = [&](const Storage::Directory::Entry& entry) {
        const auto isOf = [&](std::wstring_view tstrBegin) {
            return IsLeftover(entry.tstrName, tstrBegin);
        };
        if (!entry.bFolder && std::ranges::any_of(kBegins, isOf)) leftovers.push_back(tstrFolder + entry.tstrName);
    };
    static_cast<void>(run.machine.ForEachEntry(tstrFolder, L"*" + std::wstring(kEnd), gather, nullptr));
    for (const std::wstring& tstrPath : leftovers) static_cast<void>(run.machine.DeleteNow(tstrPath, nullptr));
}

bool MakeWorkingCopy(Machine& machine, const std::wstring& tstrWorkingCopy, const std::wstring& tstrSource,
                     DWORD& dwError)
{
    if (!machine.CopyNow(tstrWorkingCopy, tstrSource, CopyMode::eNew, &dwError)) return false;
    if (machine.MakeWritable(tstrWorkingCopy, &dwError)) return true;
    static_cast<void>(machine.DeleteNow(tstrWorkingCopy, nullptr));
    return false;
}
