#include "check/undo/Touched.h"

#include "check/simulate/FullPath.h"
#include "check/update/Instructions.h"
#include "check/verify/Sha256.h"

#include "common/Frwk_Utility.h"

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::size_t kMostBytesInMemory = std::size_t{64} * 1024 * 1024;

/// The part of "HKEY_LOCAL_MACHINE\..." below the root.
std::wstring BelowRoot(const std::wstring& tstrKey)
{
    return KeyPathOf(tstrKey.substr(tstrKey.find(L'\\') + 1));
}

/// "[section] key".
NamePair IniKeyOf(const std::wstring& tstrName)
{
    const std::size_t uEnd = tstrName.find(L"] ");
    return {tstrName.substr(1, uEnd - 1), tstrName.substr(uEnd + 2)};
}

void AddChange(const Change& change, Touched& touched)
{
    switch (change.eAction) {
        case Action::eWriteValue:
        case Action::eDeleteValue: touched.values.insert({BelowRoot(change.tstrTarget), change.tstrName}); return;
        case Action::eRunOnce:
            if (change.eOutcome == Outcome::eNew) touched.commands.push_back(change.tstrTarget);
            return;
        case Action::eNewName: touched.bNewName = touched.bNewName || change.eOutcome == Outcome::eNew; return;
        case Action::eAsk: return;
        case Action::eWriteIni: touched.iniKeys.insert(IniKeyOf(change.tstrName)); break;
        case Action::eCarryOver: touched.settings.push_back(change.tstrName); break;
        case Action::eCreateFolder:
            // The folders above it are created, too.
            for (FullPath folder(change.tstrTarget); !folder.Name().empty(); folder = folder.Parent()) {
                touched.paths.insert(folder.WithoutBackslash().Text());
            }
            return;
        case Action::eMove:
        case Action::eStage:
        case Action::eCopy:
        case Action::eKeep:
        case Action::eDelete: break;
    }
    touched.paths.insert(FullPath(change.tstrTarget).WithoutBackslash().Text());
    if (!change.tstrStaged.empty()) touched.paths.insert(FullPath(change.tstrStaged).Text());
}

/// False when the content is not known.
bool ReadHash(const SimulatedMachine& machine, const std::wstring& tstrPath, Content& content)
{
    SimulatedMachine::Content found;
    if (!machine.OpenContent(tstrPath, found, nullptr)) return false;
    if (!found.tstrReal.empty()) return ContentReader().Read(found.tstrReal, content, nullptr);
    std::string strBytes;
    return machine.ReadContent(tstrPath, kMostBytesInMemory, strBytes, nullptr) &&
           ContentReader::HashBytes(strBytes, content, nullptr);
}

/// The attributes that files are to keep.
DWORD AttributesOf(const SimulatedMachine& machine, const std::wstring& tstrPath)
{
    DWORD dwAttributes = 0;
    static_cast<void>(machine.ReadAttributes(tstrPath, dwAttributes, nullptr));
    return dwAttributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
}

}  // namespace

void Touched::Add(const std::vector<PlanStep>& steps)
{
    for (const PlanStep& step : steps) {
        for (const Change& change : step.changes) AddChange(change, *this);
    }
}

RegistryPlace PlaceOf(const NamePair& value)
{
    return {.tstrKeyPath = value.first, .tstrName = value.second, .dwView = Frwk::Utility::ProductRegistryView()};
}

bool IsSamePath(const SimulatedMachine& left, const SimulatedMachine& right, const std::wstring& tstrPath)
{
    if (left.HasFolder(tstrPath) || right.HasFolder(tstrPath)) {
        return left.HasFolder(tstrPath) && right.HasFolder(tstrPath) && left.IsLink(tstrPath) == right.IsLink(tstrPath);
    }
    if (!left.HasFile(tstrPath) || !right.HasFile(tstrPath)) {
        return !left.HasFile(tstrPath) && !right.HasFile(tstrPath);
    }
    Content leftContent;
    Content rightContent;
    return AttributesOf(left, tstrPath) == AttributesOf(right, tstrPath) && ReadHash(left, tstrPath, leftContent) &&
           ReadHash(right, tstrPath, rightContent) && leftContent == rightContent;
}

bool IsSameValue(const SimulatedMachine& left, const SimulatedMachine& right, const NamePair& value)
{
    StoredValue leftValue;
    StoredValue rightValue;
    const bool bLeft = left.ReadStored(PlaceOf(value), leftValue, nullptr);
    const bool bRight = right.ReadStored(PlaceOf(value), rightValue, nullptr);
    return bLeft == bRight && leftValue == rightValue;
}

std::wstring ReadKey(const SimulatedMachine& machine, const std::wstring& tstrFile, const NamePair& key)
{
    std::wstring tstrValue;
    static_cast<void>(machine.ReadIniValue(tstrFile, key.first, key.second, {}, tstrValue, nullptr));
    return tstrValue;
}

}  // namespace Check
