#include "installer/ShortcutPlan.h"

#include "common/KzComn_FileName.h"
#include "common/KzComn_String.h"

#include <windows.h>

#include <algorithm>
#include <iterator>

namespace InstCommon::Utility {

using namespace KzCommon;
using Storage::XmlElement;

namespace {

struct PlaceElement {
    const wchar_t* szName;
    ShortcutPlace ePlace;
};

constexpr PlaceElement kPlaces[] = {
    {L"Desktop", ShortcutPlace::eDesktop},
    {L"StartMenu", ShortcutPlace::eStartMenu},
};

constexpr std::wstring_view kSeparators = L"\\/";

std::vector<std::wstring_view> SplitAtSeparators(std::wstring_view tstrName)
{
    std::vector<std::wstring_view> parts;
    for (;;) {
        const std::size_t uEnd = tstrName.find_first_of(kSeparators);
        parts.push_back(tstrName.substr(0, uEnd));
        if (uEnd == std::wstring_view::npos) return parts;
        tstrName.remove_prefix(uEnd + 1);
    }
}

/// The system drops trailing dots and spaces, so a name of only these is not a name of its own.
bool IsDotsAndSpaces(std::wstring_view tstrPart)
{
    return tstrPart.find_first_not_of(L". ") == std::wstring_view::npos;
}

bool LeadsUp(std::wstring_view tstrPart)
{
    return IsDotsAndSpaces(tstrPart) && std::count(tstrPart.begin(), tstrPart.end(), L'.') > 1;
}

ShortcutItem FolderItem(const XmlElement& element, ShortcutPlace ePlace)
{
    ShortcutItem item;
    item.ePlace = ePlace;
    item.bFolder = true;
    item.tstrPath = element.GetAttribute(L"name");
    item.szRefusal = WhyRefused(item.tstrPath);
    item.pElement = &element;
    return item;
}

ShortcutItem LinkItem(const XmlElement& element, ShortcutPlace ePlace)
{
    ShortcutItem item;
    item.ePlace = ePlace;
    item.tstrPath = element.GetText() + L".lnk";
    item.szRefusal = WhyRefused(item.tstrPath);
    item.tstrTarget = element.GetAttribute(L"lnk");
    item.tstrIcon = element.GetAttribute(L"icon");
    item.tstrDescription = element.GetAttribute(L"desc");
    item.tstrArguments = element.GetAttribute(L"arg");
    item.pElement = &element;
    return item;
}

/// The item for a child element in one direction; empty for a child that the walk ignores.
std::optional<ShortcutItem> ItemOf(const XmlElement& child, ShortcutPlace ePlace, bool bInFolder, ShortcutWalk eWalk)
{
    const bool bDesktop = ePlace == ShortcutPlace::eDesktop;
    if (!bDesktop && child.IsNamed(L"Folder")) return FolderItem(child, ePlace);
    const bool bShortcut = child.IsNamed(L"Shortcut");
    const bool bLink = eWalk == ShortcutWalk::eRemove ? bShortcut : bDesktop || (bShortcut && bInFolder);
    if (bLink) return LinkItem(child, ePlace);
    return std::nullopt;
}

void AppendAll(const XmlElement& parent, ShortcutPlace ePlace, ShortcutWalk eWalk, const std::wstring& tstrFolder,
               std::vector<ShortcutItem>& all)
{
    for (ShortcutItem& item : ItemsOf(parent, ePlace, eWalk)) {
        const XmlElement* pElement = item.pElement;
        if (!tstrFolder.empty()) item.tstrPath = String::JoinPath(tstrFolder, item.tstrPath);
        const bool bTooLong = item.tstrPath.size() > (item.bFolder ? kLongestFolder : kLongestLink);
        if (bTooLong && !item.szRefusal) item.szRefusal = L"is too long";
        const bool bEnter = item.bFolder && !item.szRefusal;
        const std::wstring tstrPath = item.tstrPath;
        all.push_back(std::move(item));
        if (bEnter) AppendAll(*pElement, ePlace, eWalk, tstrPath, all);
    }
}

}  // namespace

std::optional<ShortcutPlace> PlaceOf(const XmlElement& element)
{
    for (const PlaceElement& place : kPlaces) {
        if (element.IsNamed(place.szName)) return place.ePlace;
    }
    return std::nullopt;
}

bool IsAvailable(const XmlElement& place)
{
    return place.GetAttribute(L"available") == L"1";
}

std::vector<ShortcutItem> ItemsOf(const XmlElement& parent, ShortcutPlace ePlace, ShortcutWalk eWalk)
{
    std::vector<ShortcutItem> items;
    std::vector<ShortcutItem> folders;  // when creating links, after everything else
    const bool bInFolder = parent.IsNamed(L"Folder");
    for (const XmlElement* pChild = parent.GetFirstChild(); pChild; pChild = pChild->GetNextSibling()) {
        std::optional<ShortcutItem> item = ItemOf(*pChild, ePlace, bInFolder, eWalk);
        if (!item) continue;
        const bool bLater = item->bFolder && eWalk == ShortcutWalk::eCreate;
        (bLater ? folders : items).push_back(std::move(*item));
    }
    std::move(folders.begin(), folders.end(), std::back_inserter(items));
    return items;
}

std::vector<ShortcutItem> ListShortcuts(const XmlElement& root, ShortcutWalk eWalk)
{
    std::vector<ShortcutItem> all;
    for (const XmlElement* pChild = root.GetFirstChild(); pChild; pChild = pChild->GetNextSibling()) {
        const std::optional<ShortcutPlace> place = PlaceOf(*pChild);
        if (place && IsAvailable(*pChild)) AppendAll(*pChild, *place, eWalk, L"", all);
    }
    return all;
}

const wchar_t* WhyRefused(std::wstring_view tstrName)
{
    if (tstrName.find(L':') != std::wstring_view::npos) return L"names a drive or a stream";
    if (!tstrName.empty() && kSeparators.find(tstrName.front()) != std::wstring_view::npos) return L"begins at a root";
    const std::vector<std::wstring_view> parts = SplitAtSeparators(tstrName);
    if (std::any_of(parts.begin(), parts.end(), &LeadsUp)) return L"leads to a folder above";
    if (std::any_of(parts.begin(), parts.end(), &Storage::File::IsDevice)) return L"names a device";
    return nullptr;
}

std::vector<std::wstring> LevelsOf(std::wstring_view tstrName)
{
    std::vector<std::wstring> levels;
    for (const std::wstring_view tstrPart : SplitAtSeparators(tstrName)) {
        if (!IsDotsAndSpaces(tstrPart)) levels.emplace_back(tstrPart);
    }
    return levels;
}

std::wstring IconBeside(const std::wstring& tstrTarget)
{
    std::wstring tstrIcon = tstrTarget.substr(0, MAX_PATH - 1);
    const std::size_t uDot = tstrIcon.rfind(L'.');
    if (uDot == std::wstring::npos || !String::EqualsNoCase(tstrIcon.substr(uDot), L".exe")) return {};
    return tstrIcon.replace(uDot, 4, L".ico");
}

}  // namespace InstCommon::Utility
