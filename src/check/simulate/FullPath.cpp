#include "check/simulate/FullPath.h"

#include "common/KzComn_File.h"

#include <algorithm>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::wstring_view kPrefix = L"\\\\?\\";
constexpr std::wstring_view kSharePrefix = L"\\\\?\\UNC\\";
constexpr std::wstring_view kDevicePrefix = L"\\\\.\\";
constexpr std::wstring_view kForbidden = L"/:*?\"<>|";
constexpr std::size_t kLongestName = 255;
constexpr std::size_t kUsualDepth = 8;

std::wstring AskSystem(const std::wstring& tstrPath)
{
    wchar_t szUsual[MAX_PATH];
    const DWORD cchNeeded = ::GetFullPathNameW(tstrPath.c_str(), MAX_PATH, szUsual, nullptr);
    if (cchNeeded < MAX_PATH) return {szUsual, cchNeeded};
    std::wstring tstrFull(cchNeeded, L'\0');
    tstrFull.resize(
        ::GetFullPathNameW(tstrPath.c_str(), static_cast<DWORD>(tstrFull.size()), tstrFull.data(), nullptr));
    return tstrFull;
}

bool IsNamePossible(std::wstring_view tstrName)
{
    const auto isForbidden = [](wchar_t ch) {
        return ch < L' ' || kForbidden.find(ch) != std::wstring_view::npos;
    };
    return !tstrName.empty() && tstrName.size() <= kLongestName &&
           std::none_of(tstrName.begin(), tstrName.end(), isForbidden);
}

}  // namespace

FullPath::FullPath(const std::wstring& tstrPath) : m_tstrText(tstrPath.empty() ? tstrPath : AskSystem(tstrPath))
{
    if (m_tstrText.empty()) {
        m_dwError = ERROR_PATH_NOT_FOUND;
        return;
    }
    m_bDevice = m_tstrText.starts_with(kDevicePrefix);
    m_bPrefixed = m_tstrText.starts_with(kPrefix);
    if (m_tstrText.starts_with(kSharePrefix)) {
        m_tstrText.replace(0, kSharePrefix.size(), L"\\\\");
    } else if (m_bPrefixed) {
        m_tstrText.erase(0, kPrefix.size());
    }
    while (m_tstrText.ends_with(L'\\')) {
        m_bFolderText = true;
        m_tstrText.pop_back();
    }
    if (!m_bDevice) m_dwError = JudgeNames();
}

DWORD FullPath::JudgeNames() const
{
    const std::vector<std::wstring_view> names = Names();
    return std::all_of(names.begin(), names.end(), &IsNamePossible) ? ERROR_SUCCESS : ERROR_INVALID_NAME;
}

std::wstring_view FullPath::Root() const noexcept
{
    return std::wstring_view(m_tstrText).substr(0, Storage::Directory::RootLength(m_tstrText));
}

std::vector<std::wstring_view> FullPath::Names() const
{
    std::vector<std::wstring_view> names;
    names.reserve(kUsualDepth);
    std::wstring_view tstrRest = std::wstring_view(m_tstrText).substr(Root().size());
    while (!tstrRest.empty()) {
        tstrRest.remove_prefix(1);
        names.push_back(tstrRest.substr(0, tstrRest.find(L'\\')));
        tstrRest.remove_prefix(names.back().size());
    }
    return names;
}

FullPath FullPath::Parent() const
{
    FullPath parent;
    const std::size_t uSlash = m_tstrText.rfind(L'\\');
    const std::size_t uRoot = Root().size();
    parent.m_tstrText = m_tstrText.substr(0, uSlash == std::wstring::npos || uSlash < uRoot ? uRoot : uSlash);
    parent.m_bPrefixed = m_bPrefixed;
    parent.m_dwError = m_dwError == ERROR_SUCCESS ? m_dwError : parent.JudgeNames();
    return parent;
}

FullPath FullPath::WithoutBackslash() const
{
    FullPath path = *this;
    path.m_bFolderText = false;
    return path;
}

std::wstring_view FullPath::Name() const noexcept
{
    const std::wstring_view tstrText = m_tstrText;
    return tstrText.substr(std::min(tstrText.size(), std::max(tstrText.rfind(L'\\') + 1, Root().size() + 1)));
}

}  // namespace Check
