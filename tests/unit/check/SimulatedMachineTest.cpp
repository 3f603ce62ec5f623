// Compares a machine in memory with the real one: same results, same files afterwards.
#include "check/simulate/SimulatedMachine.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"
#include "support/RegistryFixture.h"
#include "support/TempFolder.h"
#include "support/watch/SystemWatch.h"

#include <gmock/gmock.h>

#include <random>

using namespace testing;
using namespace KzCommon;
using Check::SimulatedMachine;

namespace {

Storage::Patience s_patience;

template <class List>
const auto& Pick(const List& list, unsigned uChoice)
{
    return list[uChoice % std::size(list)];
}

std::string Shown(bool bOk, DWORD dwError)
{
    return bOk ? "done" : "refused " + std::to_string(dwError);
}

/// A replaced file may keep either name.
std::wstring Lower(std::wstring tstrName)
{
    ::CharLowerBuffW(tstrName.data(), static_cast<DWORD>(tstrName.size()));
    return tstrName;
}

const wchar_t* const kPlaces[] = {L"a.txt",     L"RO.TXT",      L"hid.txt",    L"dir",      L"dir\\b.txt",
                                  L"dir\\new",  L"empty",       L"empty\\x",   L"missing",  L"missing\\x",
                                  L"a.txt\\x",  L"bad|name",    L"dir\\bad*x", L"new. .",   L"dir/../b.txt",
                                  L"dir\\deep", L"empty\\x\\y", L"x",          L"hid.txt2", L"dir\\deep\\c.txt1"};
const wchar_t* const kPatterns[] = {L"*", L"*.*", L"*.txt", L"?.TXT", L"b.txt", L"x*", L"", L"a.txt."};
const wchar_t* const kIniFiles[] = {L"f.ini", L"U.INI", L"dir\\n.ini", L"missing\\n.ini", L"dir", L"bad|name"};
const wchar_t* const kIniSections[] = {L"S", L"t", L"New"};
const wchar_t* const kIniKeys[] = {L"k", L"Q", L"added", L"a=b", L" s "};
const wchar_t* const kTexts[] = {L"v", L" x y ", L"\"quoted\"", L"\u4e00\u00e4", L"a=b", L"x\ty"};

std::string SectionsOf(const Machine& machine, const std::wstring& tstrPath)
{
    std::wstring tstrAll;
    for (const wchar_t* const szSection : kIniSections) {
        const Storage::Ini::Section section = machine.ReadIniSection(tstrPath, szSection, {1024, 1024, 4096});
        // In any order: new keys are last in a file, but sorted in memory.
        const std::multimap<std::wstring, std::wstring> sorted(section.entries.begin(), section.entries.end());
        tstrAll += szSection + std::to_wstring(static_cast<int>(section.eOutcome));
        for (const auto& [tstrKey, tstrValue] : sorted) tstrAll += tstrKey + L"=" + tstrValue + L",";
        for (const wchar_t* const szKey : kIniKeys) {
            std::wstring tstrValue;
            EXPECT_TRUE(machine.ReadIniValue(tstrPath, szSection, szKey, L"-", tstrValue, nullptr));
            tstrAll += tstrValue + L",";
        }
    }
    return String::ToUtf8(tstrAll);
}

/// The attributes to compare. A copy has those of its source; under Wine 10 it is not hidden.
DWORD ComparedAttributes()
{
    const TempFolder home;
    home.Write(L"hidden", "");
    ::SetFileAttributesW(home.PathOf(L"hidden").c_str(), FILE_ATTRIBUTE_HIDDEN);
    EXPECT_TRUE(::CopyFileW(home.PathOf(L"hidden").c_str(), home.PathOf(L"copy").c_str(), TRUE));
    const DWORD dwCopied = ::GetFileAttributesW(home.PathOf(L"copy").c_str());
    return FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_SYSTEM | (dwCopied & FILE_ATTRIBUTE_HIDDEN);
}

/// The contents of a folder: attributes and content of every file.
std::vector<std::string> FilesOf(const Machine& machine, const std::wstring& tstrHome)
{
    static const DWORD s_dwAttributes = ComparedAttributes();
    std::vector<std::string> found;
    std::vector<std::wstring> folders{tstrHome};
    while (!folders.empty()) {
        const std::wstring tstrFolder = folders.back();
        folders.pop_back();
        const auto visit = [&](const Storage::Directory::Entry& entry) {
            const std::wstring tstrPath = tstrFolder + entry.tstrName;
            DWORD dwAttributes = 0;
            std::string strBytes;
            EXPECT_TRUE(machine.ReadAttributes(tstrPath, dwAttributes, nullptr)) << tstrPath;
            EXPECT_EQ(entry.bFolder, (dwAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) << tstrPath;
            const std::wstring tstrName = Lower(tstrPath.substr(tstrHome.size()));
            const bool bIni = tstrName.ends_with(L".ini");
            if (entry.bFolder) folders.push_back(tstrPath + L"\\");
            if (!entry.bFolder && bIni) strBytes = SectionsOf(machine, tstrPath);
            EXPECT_TRUE(entry.bFolder || bIni || machine.ReadContent(tstrPath, 1000, strBytes, nullptr)) << tstrPath;
            found.push_back(String::ToUtf8(tstrName) + " " + std::to_string(dwAttributes & s_dwAttributes) + strBytes);
        };
        static_cast<void>(machine.ForEachEntry(tstrFolder, L"*", visit, nullptr));
    }
    std::sort(found.begin(), found.end());
    return found;
}

/// A kind of request for one or two places in a folder; a number selects the details.
struct Kind {
    const char* szName;
    std::string (*pfn)(Machine& m, const std::wstring& tstrHome, const std::wstring& a, const std::wstring& b,
                       unsigned n);
};

#define REQUEST(name, call)                                                                                     \
    {                                                                                                           \
        name, [](Machine& m, [[maybe_unused]] const std::wstring& home, [[maybe_unused]] const std::wstring& a, \
                 [[maybe_unused]] const std::wstring& b, [[maybe_unused]] unsigned n) {                         \
            DWORD e = 0;                                                                                        \
            const bool bOk = call;                                                                              \
            return Shown(bOk, bOk ? 0 : e);                                                                     \
        }                                                                                                       \
    }

const auto& kSpare = Storage::Directory::SpareNone;
const Kind kKinds[] = {
    REQUEST("create", m.CreateFolder(a, &e)),
    REQUEST("copy over", m.CopyNow(a, b, CopyMode::eOverwrite, &e)),
    REQUEST("copy new", m.CopyNow(a, b, CopyMode::eNewImmediate, &e)),
    REQUEST("back up", m.BackUp(a, b, &e)),
    REQUEST("link", m.LinkTo(a, b, &e)),
    REQUEST("writable", m.MakeWritable(a, &e)),
    REQUEST("replace", m.ReplaceContent(a, "new", &e)),
    REQUEST("delete", m.DeleteNow(a, &e)),
    REQUEST("matching", n % 4 == 0 && !m.HasFile(a) && m.DeleteMatchingNow(a + L"\\", Pick(kPatterns, n), &e, kSpare)),
    REQUEST("move", !m.HasFolder(a) && m.MoveNow(a, b, &e)),
    REQUEST("file", m.HasFile(a, &e)),
    REQUEST("same", m.IsSameFile(a, b)),
    REQUEST("move later", m.MoveAtRestart(a, b, &e)),
    REQUEST("matching later", !m.HasFile(a) && m.DeleteMatchingAtRestart(a + L"\\", Pick(kPatterns, n), &e, kSpare)),
    REQUEST("tree later", !m.HasFile(a) && m.DeleteTreeAtRestart(a + L"\\", &e, kSpare)),
    REQUEST("INI", m.StoreIniValue(home + Pick(kIniFiles, n), Pick(kIniSections, n / 6), Pick(kIniKeys, n / 18),
                                   Pick(kTexts, n / 90), s_patience, &e)),
    {"list",
     [](Machine& m, const std::wstring&, const std::wstring& a, const std::wstring&, unsigned n) {
         if (m.HasFile(a)) return std::string();  // Windows says 267, Wine 123
         std::set<std::wstring> names;
         DWORD e = 0;
         const auto visit = [&](const Storage::Directory::Entry& entry) {
             names.insert(entry.tstrName + (entry.bFolder ? L"\\" : L""));
         };
         const bool bOk = m.ForEachEntry(a + L"\\", Pick(kPatterns, n), visit, &e);
         return Shown(bOk, e) + PrintToString(names);
     }},
    {"read",
     [](Machine& m, const std::wstring&, const std::wstring& a, const std::wstring&, unsigned) {
         DWORD e = 0;
         std::string strBytes;
         const bool bOk = m.ReadContent(a, 2, strBytes, &e);
         return Shown(bOk, e) + strBytes;
     }},
};

class SimulatedMachineTest : public RegistryTest {
protected:
    void Fill() const
    {
        m_home.Clear();
        for (const wchar_t* const szName : {L"a.txt", L"ro.txt", L"hid.txt", L"dir\\b.txt", L"dir\\deep\\c.TXT1"})
            m_home.Write(szName, String::ToUtf8(szName).substr(0, 2));
        m_home.MakeFolder(L"empty");
        m_home.Write(L"f.ini", "[S]\r\nk=v\r\n;c\r\nq = \"x y\" \r\n[T]\r\n");
        m_home.Write(L"u.ini", std::string("\xFF\xFE[\0S\0]\0\r\0\n\0", 12));
        ::SetFileAttributesW(m_home.PathOf(L"ro.txt").c_str(), FILE_ATTRIBUTE_READONLY);
        ::SetFileAttributesW(m_home.PathOf(L"hid.txt").c_str(), FILE_ATTRIBUTE_HIDDEN);
    }
    /// Carries out random requests; the same ones for the same seed.
    [[nodiscard]] std::vector<std::string> Carry(Machine& machine, unsigned uSeed) const
    {
        std::mt19937 random(uSeed);
        std::vector<std::string> results;
        for (int i = 0; i < 40; ++i) {
            const Kind& kind = Pick(kKinds, random());
            const std::wstring tstrOne = Pick(kPlaces, random());
            const std::wstring tstrOther = Pick(kPlaces, random());
            const unsigned uChoice = random() % 100000;
            results.push_back(kind.szName + String::ToUtf8(L" " + tstrOne + L" " + tstrOther + L" ") +
                              std::to_string(uChoice) + ": ");
            results.back() +=
                kind.pfn(machine, m_home.Path(), m_home.Path() + tstrOne, m_home.Path() + tstrOther, uChoice);
        }
        return results;
    }

    TempFolder m_home;
    WindowsMachine m_real;
};

}  // namespace

TEST_F(SimulatedMachineTest, AnswersAndChangesAsTheRealOne)
{
    for (unsigned uSeed = 0; uSeed < 45 && !HasFailure(); ++uSeed) {
        Fill();
        const auto before = FilesOf(m_real, m_home.Path());
        SimulatedMachine memory(&m_real);
        const auto found = Carry(memory, uSeed);
        const auto after = FilesOf(memory, m_home.Path());
        ASSERT_EQ(before, FilesOf(m_real, m_home.Path())) << "something real has changed";
        std::vector<std::wstring> simulated;
        for (const auto& move : memory.PendingMoves()) {
            std::wstring tstrMove = move.tstrSource + L" > " + move.tstrDestination;
            String::ReplaceAll(tstrMove, m_home.Path(), L"");
            simulated.push_back(Lower(tstrMove));
        }
        const SystemWatch watch(m_home.Path());
        EXPECT_EQ(Carry(m_real, uSeed), found);
        EXPECT_EQ(FilesOf(m_real, m_home.Path()), after) << "seed " << uSeed;
        std::vector<std::wstring> moves = watch.m_moves;
        for (std::wstring& tstrMove : moves) {
            for (const auto& [szFrom, szTo] : {std::pair(L"new. .", L"new"), {L"new.  >", L"new >"}, {L"dir/../", L""}})
                String::ReplaceAll(tstrMove, szFrom, szTo);
            tstrMove = Lower(tstrMove);
        }
        EXPECT_EQ(moves, simulated);
    }
}
