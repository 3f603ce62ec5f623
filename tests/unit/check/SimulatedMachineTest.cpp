// Compares a machine in memory with the real one: same results, same state afterwards.
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

constexpr DWORD kAttributes = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

/// One request, which returns its result as text.
using Request = std::function<std::string(Machine& machine, const std::wstring& tstrHome)>;

std::string Shown(bool bOk, DWORD dwError)
{
    return bOk ? "done" : "refused " + std::to_string(dwError);
}

std::string Utf8(const std::wstring& tstrText)
{
    return String::ToUtf8(tstrText);
}

const wchar_t* const kIniSections[] = {L"S", L"t", L"New"};
const wchar_t* const kIniKeys[] = {L"k", L"Q", L"added", L"a=b", L" s "};
const wchar_t* const kTexts[] = {L"v", L" x y ", L"\"quoted\"", L"\u4e00\u00e4", L"a=b", L"x\ty"};

std::string Sections(const Machine& machine, const std::wstring& tstrPath)
{
    std::string strAll;
    for (const wchar_t* const szSection : kIniSections) {
        const Storage::Ini::Section section = machine.ReadIniSection(tstrPath, szSection, {1024, 1024, 4096});
        strAll += Utf8(szSection) + std::to_string(static_cast<int>(section.eOutcome));
        std::vector<std::string> entries;  // in any order: new keys are last in a file, but sorted in memory
        for (const auto& [tstrKey, tstrValue] : section.entries) entries.push_back(Utf8(tstrKey + L"=" + tstrValue));
        std::sort(entries.begin(), entries.end());
        strAll += PrintToString(entries);
        for (const wchar_t* const szKey : kIniKeys) {
            std::wstring tstrValue;
            EXPECT_TRUE(machine.ReadIniValue(tstrPath, szSection, szKey, L"-", tstrValue, nullptr));
            strAll += Utf8(tstrValue) + ",";
        }
    }
    return strAll;
}

const wchar_t* const kKeys[] = {L"SOFTWARE\\V", L"software\\v\\", L"SOFTWARE\\New\\Deep", L"\\SOFTWARE\\V", L""};
const wchar_t* const kNames[] = {L"Text", L"MULTI", L"Number", L"Odd", L"None", L""};

std::string ReadAll(const Machine& machine, const RegistryPlace& place)
{
    std::string strAll;
    for (RegistryData data : {RegistryData(L"none"), RegistryData(DWORD{1}), RegistryData(ULONGLONG{2})}) {
        DWORD dwError = 0;
        const bool bOk = machine.ReadValue(place, data, &dwError);
        strAll += Shown(bOk, bOk ? 0 : dwError) + " " +
                  std::visit([](const auto& value) { return PrintToString(value); }, data) + ";";
    }
    StoredValue stored;
    DWORD dwError = 0;
    const bool bOk = machine.ReadStored(place, stored, &dwError);
    return strAll + Shown(bOk, dwError) + std::to_string(stored.dwType) + PrintToString(stored.strBytes) +
           (machine.HasKey(place) ? "key" : "no key");
}

std::vector<std::string> RegistryOf(const Machine& machine)
{
    std::vector<std::string> all;
    for (const wchar_t* const szKey : kKeys) {
        for (const wchar_t* const szName : kNames) {
            all.push_back(ReadAll(machine, {.tstrKeyPath = szKey, .tstrName = szName}));
        }
    }
    return all;
}

/// The contents of a folder: attributes and content of every file.
std::vector<std::string> FilesOf(const Machine& machine, const std::wstring& tstrHome)
{
    std::vector<std::string> found;
    std::vector<std::wstring> folders{tstrHome};
    while (!folders.empty()) {
        const std::wstring tstrFolder = folders.back();
        folders.pop_back();
        const auto visit = [&](const Storage::Directory::Entry& entry) {
            const std::wstring tstrPath = tstrFolder + entry.tstrName;
            DWORD dwAttributes = 0;
            std::string strBytes;
            EXPECT_TRUE(machine.ReadAttributes(tstrPath, dwAttributes, nullptr)) << Utf8(tstrPath);
            EXPECT_EQ(entry.bFolder, (dwAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) << Utf8(tstrPath);
            std::wstring tstrName = tstrPath.substr(tstrHome.size());
            ::CharLowerBuffW(tstrName.data(),
                             static_cast<DWORD>(tstrName.size()));  // a replaced file may keep either name
            std::string strLine = Utf8(tstrName);
            if (entry.bFolder) {
                folders.push_back(tstrPath + L"\\");
            } else {
                const bool bIni = tstrName.ends_with(L".ini");
                if (bIni) strBytes = Sections(machine, tstrPath);
                EXPECT_TRUE(bIni || machine.ReadContent(tstrPath, 1000, strBytes, nullptr)) << Utf8(tstrPath);
                strLine += " " + std::to_string(dwAttributes & kAttributes) + " " + strBytes;
            }
            found.push_back(strLine);
        };
        static_cast<void>(machine.ForEachEntry(tstrFolder, L"*", visit, nullptr));
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::string Listed(const Machine& machine, const std::wstring& tstrFolder, const std::wstring& tstrPattern)
{
    std::vector<std::string> names;
    DWORD dwError = ERROR_SUCCESS;
    const auto visit = [&](const Storage::Directory::Entry& entry) {
        names.push_back(Utf8(entry.tstrName) + (entry.bFolder ? "\\" : ""));
    };
    const bool bOk = machine.ForEachEntry(tstrFolder, tstrPattern, visit, &dwError);
    std::sort(names.begin(), names.end());
    return Shown(bOk, dwError) + " " + PrintToString(names);
}

class SimulatedMachineTest : public RegistryTest {
protected:
    SimulatedMachineTest()
    {
        WriteRaw(HKEY_LOCAL_MACHINE, L"SOFTWARE\\V", L"Text", RawText(L"t"));
        WriteRaw(HKEY_LOCAL_MACHINE, L"SOFTWARE\\V", L"Multi", RawText(std::wstring(L"a\0b\0", 4), REG_MULTI_SZ));
        WriteRaw(HKEY_LOCAL_MACHINE, L"SOFTWARE\\V", L"Number", RawNumber(7));
        WriteRaw(HKEY_LOCAL_MACHINE, L"SOFTWARE\\V", L"Odd", {REG_DWORD, "abc"});
    }

    void Fill() const
    {
        m_home.Write(L"a.txt", "A");
        m_home.Write(L"ro.txt", "RO");
        m_home.Write(L"hid.txt", "HID");
        m_home.Write(L"dir\\b.txt", "B");
        m_home.Write(L"dir\\deep\\c.TXT1", "C");
        m_home.MakeFolder(L"empty");
        m_home.Write(L"f.ini", "[S]\r\nk=v\r\n;c\r\nq = \"x y\" \r\n[T]\r\n");
        m_home.Write(L"u.ini", std::string("\xFF\xFE[\0S\0]\0\r\0\n\0", 12));
        ::SetFileAttributesW(m_home.PathOf(L"ro.txt").c_str(), FILE_ATTRIBUTE_READONLY);
        ::SetFileAttributesW(m_home.PathOf(L"hid.txt").c_str(), FILE_ATTRIBUTE_HIDDEN);
    }

    /// Carries out the requests in memory over the unchanged real machine, then on the real machine, and compares.
    void Compare(const std::vector<std::pair<std::string, Request>>& requests)
    {
        SimulatedMachine memory(&m_real);
        const auto before = FilesOf(m_real, m_home.Path());
        std::vector<std::string> expected;
        std::string strAll;
        std::vector<std::string> found;
        for (const auto& [strName, request] : requests)
            found.push_back(strName + ": " + request(memory, m_home.Path()));
        const auto after = FilesOf(memory, m_home.Path());
        const auto registry = RegistryOf(memory);
        ASSERT_EQ(before, FilesOf(m_real, m_home.Path())) << "something real has changed";
        std::vector<std::wstring> moves;
        {
            const SystemWatch watch(m_home.Path());
            for (const auto& [strName, request] : requests) {
                expected.push_back(strName + ": " + request(m_real, m_home.Path()));
            }
            moves = watch.m_moves;
        }
        for (std::size_t u = 0; u < found.size(); ++u) EXPECT_EQ(expected[u], found[u]);
        EXPECT_EQ(FilesOf(m_real, m_home.Path()), after);
        EXPECT_EQ(RegistryOf(m_real), registry);
        std::vector<std::wstring> simulated;
        for (const auto& move : memory.PendingMoves()) {
            simulated.push_back(move.tstrSource + L" > " + move.tstrDestination);
            String::ReplaceAll(simulated.back(), m_home.Path(), L"");
        }
        for (std::wstring& tstrMove : moves) {
            String::ReplaceAll(tstrMove, L"new. .", L"new");
            String::ReplaceAll(tstrMove, L"new.  >", L"new >");
            String::ReplaceAll(tstrMove, L"dir/../", L"");
        }
        EXPECT_EQ(moves, simulated);
    }

    TempFolder m_home;
    WindowsMachine m_real;
};

/// Creates requests of one kind for one or two places; a number selects the details.
struct Maker {
    const char* szName;
    std::string (*pfn)(Machine& machine, const std::wstring& tstrOne, const std::wstring& tstrOther, unsigned uChoice);
};

template <class List>
const auto& Pick(const List& list, unsigned uChoice)
{
    return list[uChoice % std::size(list)];
}

std::wstring IniOf(const std::wstring& tstrPath, unsigned uChoice)
{
    const std::wstring tstrHome = tstrPath.substr(0, tstrPath.find(L'\\', tstrPath.find(L"brevant-")) + 1);
    static const wchar_t* const s_files[] = {L"f.ini", L"U.INI", L"dir\\n.ini", L"missing\\n.ini", L"dir", L"bad|name"};
    return tstrHome + Pick(s_files, uChoice);
}

RegistryPlace PlaceOf(unsigned uChoice)
{
    return {.tstrKeyPath = Pick(kKeys, uChoice), .tstrName = Pick(kNames, uChoice / 7)};
}

RegistryData DataOf(unsigned uChoice)
{
    if (uChoice % 3 == 0) return Pick(kTexts, uChoice);
    if (uChoice % 3 == 1) return DWORD{uChoice};
    return ULONGLONG{uChoice};
}

const wchar_t* const kPatterns[] = {L"*", L"*.*", L"*.txt", L"?.TXT", L"b.txt", L"x*", L"", L"a.txt."};

#define REQUEST(name, call)                                                                                  \
    {                                                                                                        \
        name, [](Machine& m, [[maybe_unused]] const std::wstring& a, [[maybe_unused]] const std::wstring& b, \
                 [[maybe_unused]] unsigned n) {                                                              \
            DWORD e = 0;                                                                                     \
            const bool bOk = call;                                                                           \
            return Shown(bOk, bOk ? 0 : e);                                                                  \
        }                                                                                                    \
    }

const Maker kMakers[] = {
    REQUEST("create", m.CreateFolder(a, &e)),
    REQUEST("copy over", m.CopyNow(a, b, CopyMode::eOverwrite, &e)),
    REQUEST("copy new", m.CopyNow(a, b, CopyMode::eNewImmediate, &e)),
    REQUEST("back up", m.BackUp(a, b, &e)),
    REQUEST("link", m.LinkTo(a, b, &e)),
    REQUEST("writable", m.MakeWritable(a, &e)),
    REQUEST("replace", m.ReplaceContent(a, "new", &e)),
    REQUEST("delete", m.DeleteNow(a, &e)),
    REQUEST("delete matching", n % 4 == 0 && !m.HasFile(a) && m.DeleteMatchingNow(a + L"\\", Pick(kPatterns, n), &e, &Storage::Directory::SpareNone)),
    REQUEST("move", !m.HasFolder(a) && m.MoveNow(a, b, &e)),
    REQUEST("file", m.HasFile(a, &e)),
    REQUEST("same", m.IsSameFile(a, b)),
    REQUEST("move at restart", m.MoveAtRestart(a, b, &e)),
    REQUEST("delete at restart", !m.HasFile(a) && m.DeleteMatchingAtRestart(a + L"\\", Pick(kPatterns, n), &e, &Storage::Directory::SpareNone)),
    REQUEST("delete tree", !m.HasFile(a) && m.DeleteTreeAtRestart(a + L"\\", &e, &Storage::Directory::SpareNone)),
    REQUEST("INI", m.StoreIniValue(IniOf(a, n), Pick(kIniSections, n / 6), Pick(kIniKeys, n / 18), Pick(kTexts, n / 90), s_patience, &e)),
    REQUEST("value", m.StoreValue(PlaceOf(n), DataOf(n / 42), &e)),
    REQUEST("no value", m.DeleteValue(PlaceOf(n), &e)),
    {"list",
     [](Machine& m, const std::wstring& a, const std::wstring&, unsigned n) {
         if (m.HasFile(a)) return std::string();  // Windows says 267, Wine 123
         return Listed(m, a + L"\\", Pick(kPatterns, n));
     }},
    {"read",
     [](Machine& m, const std::wstring& a, const std::wstring&, unsigned) {
         DWORD e = 0;
         std::string strBytes;
         const bool bOk = m.ReadContent(a, 2, strBytes, &e);
         return Shown(bOk, e) + strBytes;
     }},
};

const wchar_t* const kPlaces[] = {L"a.txt",     L"RO.TXT",      L"hid.txt",    L"dir",      L"dir\\b.txt",
                                  L"dir\\new",  L"empty",       L"empty\\x",   L"missing",  L"missing\\x",
                                  L"a.txt\\x",  L"bad|name",    L"dir\\bad*x", L"new. .",   L"dir/../b.txt",
                                  L"dir\\deep", L"empty\\x\\y", L"x",          L"hid.txt2", L"dir\\deep\\c.txt1"};

}  // namespace

TEST_F(SimulatedMachineTest, AnswersAndChangesAsTheRealOne)
{
    std::mt19937 random(20261122);
    for (int iRound = 0; iRound < 40; ++iRound) {
        m_home.Clear();
        Fill();
        std::vector<std::pair<std::string, Request>> requests;
        for (int i = 0; i < 40; ++i) {
            const Maker& maker = Pick(kMakers, random());
            const wchar_t* const szOne = Pick(kPlaces, random());
            const wchar_t* const szOther = Pick(kPlaces, random());
            const unsigned uChoice = random() % 100000;
            std::string strName =
                std::string(maker.szName) + " " + Utf8(szOne) + " " + Utf8(szOther) + " " + std::to_string(uChoice);
            requests.emplace_back(std::move(strName),
                                  [&maker, szOne, szOther, uChoice](Machine& machine, const std::wstring& tstrHome) {
                                      return maker.pfn(machine, tstrHome + szOne, tstrHome + szOther, uChoice);
                                  });
        }
        Compare(requests);
    }
}
