#include "check/verify/UncoveredParts.h"

#include "check/update/IniScan.h"
#include "check/update/Instructions.h"

#include "agent/NewNameDecision.h"
#include "common/KzComn_Exception.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"
#include "common/KzComn_XmlParser.h"
#include "common/L10nReader.h"
#include "installer/ShortcutPlan.h"

using namespace KzCommon;
using namespace InstCommon::Utility;

namespace Check {

namespace {

/// String tables by language.
using Tables = String::NoCaseMap<std::wstring>;

/// "Resource\EN-US\StringTable.ini" of the install folder.
Tables ListTables(const Update& update)
{
    constexpr std::wstring_view kFolder = L"Resource\\";
    constexpr std::wstring_view kTable = L"\\StringTable.ini";
    Tables tables;
    for (const Delivery& delivery : update.Deliveries()) {
        const std::wstring_view tstrBelow = delivery.tstrBelow;
        if (tstrBelow.size() <= kFolder.size() + kTable.size() || !String::StartsWithNoCase(tstrBelow, kFolder))
            continue;
        const std::wstring_view tstrLanguage =
            tstrBelow.substr(kFolder.size(), tstrBelow.size() - kFolder.size() - kTable.size());
        const bool bTable = String::EqualsNoCase(tstrBelow.substr(kFolder.size() + tstrLanguage.size()), kTable);
        if (bTable && tstrLanguage.find(L'\\') == std::wstring_view::npos) {
            tables.insert_or_assign(std::wstring(tstrLanguage), update.FullPath(delivery.tstrContent));
        }
    }
    return tables;
}

void AddCommands(const Update& update, std::vector<UncoveredPart>& parts)
{
    constexpr const Section& kSection = SectionOf(L"Run", L"PostRunScript");
    ForEachRecord(kSection, ReadRecords(update, kSection), [&](const SectionKey&, const std::wstring& tstrCommand) {
        parts.push_back({UncoveredKind::eCommand, tstrCommand});
    });
}

/// An update that undoes another one names them in the comments of its instruction file.
void AddNotRestored(const Update& update, std::vector<UncoveredPart>& parts)
{
    IniScan scan;
    if (!scan.Read(update.FullPath(kInstructionFile), nullptr)) return;
    for (const IniComment& comment : scan.Comments()) {
        const std::size_t uWhat = comment.tstrText.find(kNotRestored);
        if (uWhat == std::wstring::npos) continue;
        const std::wstring tstrPart = comment.tstrText.substr(uWhat + std::wstring_view(kNotRestored).size());
        const std::size_t uWhy = tstrPart.rfind(kWhyNot);
        UncoveredPart part{UncoveredKind::eNotRestored, tstrPart.substr(0, uWhy)};
        if (uWhy != std::wstring::npos) part.tstrDetail = tstrPart.substr(uWhy + std::wstring_view(kWhyNot).size());
        parts.push_back(std::move(part));
    }
}

void AddShortcuts(const Update& update, const Delivery& delivery, std::vector<UncoveredPart>& parts)
{
    static_cast<void>(Storage::Guarded(nullptr, [&] {
        const auto document = Storage::XmlParser().ParseFile(update.FullPath(delivery.tstrContent));
        for (const ShortcutItem& item : ListShortcuts(*document->GetRoot(), ShortcutWalk::eCreate)) {
            if (item.bFolder || item.szRefusal) continue;
            const wchar_t* const szPlace = item.ePlace == ShortcutPlace::eDesktop ? L"Desktop\\" : L"StartMenu\\";
            const std::wstring tstrArguments = item.tstrArguments.empty() ? L"" : L" " + item.tstrArguments;
            parts.push_back({UncoveredKind::eShortcut, szPlace + item.tstrPath, item.tstrTarget + tstrArguments,
                             delivery.tstrLanguage});
        }
    }));
}

void AddNames(const Update& update, std::vector<UncoveredPart>& parts)
{
    const WindowsMachine machine;
    for (const auto& [tstrLanguage, tstrFile] : ListTables(update)) {
        CL10nReader reader(machine);
        static_cast<void>(reader.ParseTable(tstrFile, {}));
        const wchar_t* const szName = reader.GetString(kProductNameText);
        if (szName) parts.push_back({UncoveredKind::eNewName, szName, {}, tstrLanguage});
    }
}

}  // namespace

std::vector<UncoveredPart> ListUncoveredParts(const Update& update)
{
    std::vector<UncoveredPart> parts;
    AddCommands(update, parts);
    AddNotRestored(update, parts);
    for (const Delivery& delivery : update.Deliveries()) {
        if (String::EqualsNoCase(delivery.tstrBelow, kShortcutFile)) AddShortcuts(update, delivery, parts);
    }
    AddNames(update, parts);
    return parts;
}

std::vector<std::wstring> ListLanguages(const Update& update)
{
    std::vector<std::wstring> languages;
    for (const auto& [tstrLanguage, tstrFile] : ListTables(update)) languages.push_back(tstrLanguage);
    return languages;
}

}  // namespace Check
