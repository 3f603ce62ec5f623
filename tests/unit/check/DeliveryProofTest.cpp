// Checks that the agent delivers exactly what a manifest lists: deploys an update on a machine in memory, restarts it
// and verifies.
#include "agent/DeployFramework.h"
#include "check/simulate/PlanMachine.h"
#include "common/Frwk_Utility.h"
#include "unit/check/VerifyFixture.h"

#include <random>

using namespace KzCommon;
using KzCommon::String::ToUtf8;

namespace {

/// The files of a machine in memory.
class SimulatedContents : public ContentReader {
public:
    explicit SimulatedContents(const SimulatedMachine& machine) : m_machine(machine) {}

    [[nodiscard]] bool ReadSize(const std::wstring& tstrPath, ULONGLONG& ullSize, DWORD* pdwError) override
    {
        return Open(tstrPath, pdwError) &&
               (m_content.tstrReal.empty() ? (ullSize = m_content.optBytes.value_or("").size(), true)
                                           : ContentReader::ReadSize(m_content.tstrReal, ullSize, pdwError));
    }
    [[nodiscard]] bool Read(const std::wstring& tstrPath, Content& content, DWORD* pdwError) override
    {
        return Open(tstrPath, pdwError) &&
               (m_content.tstrReal.empty() ? HashBytes(m_content.optBytes.value_or(""), content, pdwError)
                                           : ContentReader::Read(m_content.tstrReal, content, pdwError));
    }
    [[nodiscard]] bool Compare(const std::wstring& tstrPath, const Content& content, bool& bSame,
                               DWORD* pdwError) override
    {
        Content found;
        if (!Read(tstrPath, found, pdwError)) return false;
        bSame = found == content;
        return true;
    }
    [[nodiscard]] bool ReadWhole(const std::wstring& tstrPath, std::size_t cbMost, std::string& strBytes,
                                 DWORD* pdwError) override
    {
        return m_machine.ReadContent(tstrPath, cbMost, strBytes, pdwError);
    }

private:
    bool Open(const std::wstring& tstrPath, DWORD* pdwError)
    {
        return m_machine.OpenContent(tstrPath, m_content, pdwError);
    }

    const SimulatedMachine& m_machine;
    SimulatedMachine::Content m_content;
};

constexpr const wchar_t* kLanguages[] = {L"DE-DE", L"FR-FR", L"EN-US"};

/// Every folder that a deploy step copies, some with a subfolder, and some that no step copies.
constexpr const wchar_t* kFolders[] = {L"p1\\64bit\\p1\\",
                                       L"p1\\64bit\\p1\\Driver\\",
                                       L"p1\\64bit\\p1\\Sub\\",
                                       L"p1\\Engine\\Preload\\",
                                       L"p1\\Share\\Engine\\",
                                       L"p1\\Share\\Patterns\\",
                                       L"p1\\Share\\7-Zip\\",
                                       L"p1\\Share\\7-Zip\\Sub\\",
                                       L"p1\\Share\\QorFirefoxExt\\",
                                       L"p1\\Share\\QorIEExt\\",
                                       L"p1\\Share\\UI\\",
                                       L"p1\\Share\\UI\\Sub\\",
                                       L"p1\\Share\\Resource\\Sub\\",
                                       L"p1\\Share\\Task\\",
                                       L"p1\\Share\\Setting\\",
                                       L"p1\\Share\\Setting\\Sub\\",
                                       L"r1\\Sub\\",
                                       L"p1\\Share\\QorNativeMessaging\\"};
constexpr const wchar_t* kNames[] = {L"a.dll",      L"A.DLL",      L"b.sys",
                                     L"config.xml", L"readme.htm", L"~kzcomn-00000abc-01.tmp"};
constexpr const wchar_t* kSettings[] = {
    L"config.xml",       L"config_DE-DE.xml", L"config_fr-fr.xml", L"qorshcut_DE-DE.xml",  L"qorshcut.xml",
    L"readme_DE-DE.htm", L"readme_FR-FR.htm", L"readme.htm",       L"UpdateInfo.ini",      L"config_EN-US.xml",
    L"config_.xml",      L"readme_EN-US.htm", L"Config_EN-US.XML", L"config_DE-DE.xml.bak"};
/// Lines of the instruction file. They delete no files of the update.
constexpr std::pair<const char*, const char*> kRecords[] = {
    {"QOR_DIR", "add={InstalledDir}New\\Deep"},
    {"QOR_DIR", "delete={InstalledDir}Legacy"},
    {"QOR_FILE", "delete={InstalledDir}Old*.txt"},
    {"QOR_FILE", "delete_now={InstalledDir}/Legacy/./n?w.txt"},
    {"QOR_REGISTRY_PATCH", "add=@!N!REG_DWORD!7"},
    {"QOR_REGISTRY_PATCH", "add=@!N!REG_SZ!{InstalledDir}{UdComponentsSrcDir}"},
    {"QOR_REGISTRY_PATCH", "delete=@!n"},
    {"QOR_REGISTRY_PATCH", "add_if_non=@!N!REG_QDWORD!9"},
    {"QOR_REGISTRY_PATCH", "add_if_non=@!(Default)!REG_SZ!x"},
    {"QOR_REGISTRY_PATCH", "add=@!M!REG_DWORD!3943305780"},
    {"QOR_CONFIG_MERGE", "migrate=/a"},
    {"QOR_CONFIG_MERGE", "migrate=/own"},
    {"UPDATE_INFO", "modify=COMPONENT_LIST!Component101_Version!3.9"},
    {"UPDATE_INFO", "modify=S!K!' v'"},
};

class DeliveryProofTest : public VerifyTest {
protected:
    [[nodiscard]] bool Chance(unsigned uOneOf) { return m_random() % uOneOf == 0; }

    void MakeUpdate()
    {
        m_update.Clear();
        Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\nComponent101_DownloadPath=p1\nComponent2_DownloadPath=r1\n");
        Bring({L"p1\\Share\\UI\\always.htm"});
        unsigned uContent = 0;
        for (const std::wstring tstrFolder : kFolders) {
            for (const std::wstring tstrName : kNames) {
                if (Chance(4)) Write(L"Component\\" + tstrFolder + tstrName, "<c>" + std::to_string(++uContent));
            }
        }
        const bool bSettings = !Chance(5);
        for (const std::wstring tstrName : kSettings) {
            if (!bSettings || !Chance(2)) continue;
            const std::string strText = "<c><a>" + std::to_string(++uContent) + "</a><b/></c>";
            Write(L"Component\\p1\\Share\\Setting\\" + tstrName, tstrName.ends_with(L".ini") ? "[S]\nX=1\n" : strText);
        }
        std::map<std::string, std::string> sections;
        for (const auto& [szSection, szRecord] : kRecords) {
            if (Chance(2)) sections[szSection] += std::string(szRecord) + "\n";
        }
        std::string strInstructions;
        for (const auto& [strSection, strRecords] : sections) strInstructions += "[" + strSection + "]\n" + strRecords;
        Instruct(strInstructions);
    }

    /// The installed product before the update, in a language.
    void MakeMachine(SimulatedMachine& machine, const wchar_t* szLanguage)
    {
        const auto at = [&](const wchar_t* szName) {
            return m_machine.PathOf(szName);
        };
        for (const wchar_t* const szFolder : {L"Driver", L"Engine", L"Patterns", L"Sub", L"QorFirefoxExt",
                                              L"QorNativeMessaging", L"Resource\\Sub", L"Task", L"Legacy\\Deep"}) {
            machine.AddFolder(at(szFolder));
        }
        machine.AddFolder(machine.FolderOf(KnownFolder::eCommonAppData) + L"Kazmere\\KZVLT\\Engine\\Preload");
        for (const wchar_t* const szFile : {L"Legacy\\Deep\\x.txt", L"Legacy\\new.txt", L"Old1.txt", L"readme.htm"}) {
            if (!Chance(3)) machine.AddFile(at(szFile), "old");
        }
        if (!Chance(4)) machine.AddFile(at(L"config.xml"), "<c><a>user's</a><own>2</own></c>");
        if (Chance(3)) machine.AddFile(at(L"a.dll"), "old", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
        if (Chance(2)) machine.SetValue({.tstrKeyPath = kVault, .tstrName = L"N"}, ToStored(DWORD{1}));
        SetLanguage(machine, szLanguage);
    }

    static void SetLanguage(SimulatedMachine& machine, const wchar_t* szLanguage)
    {
        machine.SetValue({.tstrKeyPath = Frwk::Utility::kProductKey,
                          .tstrName = L"Language",
                          .dwView = Frwk::Utility::ProductRegistryView()},
                         ToStored(std::wstring(szLanguage)));
    }

    [[nodiscard]] std::vector<VerifyResult> VerifyOn(const SimulatedMachine& machine, const ExpectedState& expected)
    {
        SimulatedContents contents(machine);
        MachineFolders folders(machine, Frwk::Utility::GetInstalledFolder(machine), expected.tstrProduct);
        std::vector<PendingMove> moves;
        for (const auto& move : machine.PendingMoves()) moves.push_back({move.tstrSource, move.tstrDestination, true});
        VerifyContext context{machine, contents, folders, PendingPlaces(machine, moves),
                              Frwk::Utility::GetLanguage(machine)};
        return VerifyState(expected, context);
    }

    /// Deploys: before the restart, everything that has not arrived is waiting; after it, nothing is missing.
    void Prove(SimulatedMachine& machine, const ExpectedState& expected, const std::string& strCase)
    {
        const std::string strWhat = strCase + ", " + ToUtf8(Frwk::Utility::GetLanguage(machine)) + "\n";
        ASSERT_TRUE(DeployFramework(machine)) << strWhat;
        const std::vector<VerifyResult> before = VerifyOn(machine, expected);
        EXPECT_EQ(ExitCodeOf(before), kRestartPending) << strWhat << ToUtf8(FormatResults(before, L""));
        machine.Restart();
        const std::vector<VerifyResult> after = VerifyOn(machine, expected);
        EXPECT_EQ(ExitCodeOf(after), kClean) << strWhat << ToUtf8(FormatResults(after, L""));
    }

    std::mt19937 m_random;
};

}  // namespace

TEST_F(DeliveryProofTest, ExpectedFilesArriveInEveryLanguage)
{
    const char* const szSeeds = std::getenv("BREVANT_PROOF_SEEDS");
    const unsigned cSeeds = szSeeds ? static_cast<unsigned>(std::atoi(szSeeds)) : 25;
    const WindowsMachine real;
    for (unsigned uSeed = 0; uSeed < cSeeds; ++uSeed) {
        m_random.seed(uSeed);
        MakeUpdate();
        const ExpectedState expected = Collect();
        for (const wchar_t* const szLanguage : kLanguages) {
            SimulatedMachine machine(&real);
            static_cast<void>(PrepareForPlan(machine, {m_update.Path(), m_machine.Path(), false}));
            MakeMachine(machine, szLanguage);
            Prove(machine, expected, "seed " + std::to_string(uSeed));
        }
        if (HasFailure()) break;
    }
}

TEST_F(DeliveryProofTest, TheSamplesFilesArriveInEveryLanguage)
{
    const std::wstring tstrUpdate =
        String::EnsureBackslash(Storage::Directory::FullPath(BREVANT_SAMPLES L"second\\update"));
    const std::wstring tstrInstalled =
        String::EnsureBackslash(Storage::Directory::FullPath(BREVANT_SAMPLES L"second\\installed"));
    Update update;
    ExpectedState expected;
    std::wstring tstrErrors;
    ASSERT_TRUE(update.Open(tstrUpdate, tstrInstalled, nullptr));
    ASSERT_TRUE(CollectExpectedState(update, expected, tstrErrors)) << ToUtf8(tstrErrors);
    const WindowsMachine real;
    for (const wchar_t* const szLanguage : {L"FR-FR", L"ES-ES", L"DE-DE"}) {
        SimulatedMachine machine(&real);
        EXPECT_THAT(PrepareForPlan(machine, {tstrUpdate, tstrInstalled, true}), IsEmpty());
        SetLanguage(machine, szLanguage);
        Prove(machine, expected, "the second sample");
    }
}
