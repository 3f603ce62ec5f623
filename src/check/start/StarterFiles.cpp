#include "check/start/StarterFiles.h"

#include "common/KzComn_String.h"

#include <windows.h>

#include <algorithm>

using namespace KzCommon;

namespace Check {

namespace {

// cmake/StarterFiles.cmake gives the list of names this number, and the files the ones after it.
constexpr WORD kList = 100;

std::string_view ReadResource(WORD wId)
{
    const HMODULE hProgram = nullptr;
    const HRSRC hFound = ::FindResourceW(hProgram, MAKEINTRESOURCEW(wId), RT_RCDATA);
    const HGLOBAL hLoaded = hFound ? ::LoadResource(hProgram, hFound) : nullptr;
    const void* const pData = hLoaded ? ::LockResource(hLoaded) : nullptr;
    if (!pData) return {};
    return {static_cast<const char*>(pData), ::SizeofResource(hProgram, hFound)};
}

}  // namespace

std::vector<StarterFile> StarterFiles()
{
    std::vector<StarterFile> files;
    std::string_view strRest = ReadResource(kList);
    WORD wId = kList;
    for (std::size_t uEnd = strRest.find('\n'); uEnd != std::string_view::npos; uEnd = strRest.find('\n')) {
        std::wstring tstrPath = String::FromAnsi(strRest.substr(0, uEnd));
        std::replace(tstrPath.begin(), tstrPath.end(), L'/', L'\\');
        files.push_back({std::move(tstrPath), ReadResource(++wId)});
        strRest.remove_prefix(uEnd + 1);
    }
    return files;
}

}  // namespace Check
