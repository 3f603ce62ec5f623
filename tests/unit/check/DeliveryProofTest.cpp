// Checks that the agent delivers exactly what a manifest lists: deploys an update on a machine in memory, restarts it
// and verifies.
#include "agent/DeployFramework.h"
#include "check/simulate/PlanMachine.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_Result.h"
#include "unit/check/KeyTrial.h"
#include "unit/check/VerifyFixture.h"

#include <map>
#include <random>
#include <regex>

using namespace KzCommon;
using KzCommon::String::ToUtf8;

namespace {

/// The small files of a machine in memory.
class SimulatedContents : public ContentReader {
public:
    explicit SimulatedContents(const SimulatedMachine& machine) : m_machine(machine) {}

    [[nodiscard]] bool ReadSize(const std::wstring& tstrPath, ULONGLONG& ullSize, DWORD* pdwError) override
    {
        Content content;
        if (!Read(tstrPath, content, pdwError)) return false;
        ullSize = content.ullSize;
        return true;
    }
    [[nodiscard]] bool Read(const std::wstring& tstrPath, Content& content, DWORD* pdwError) override
    {
        std::string strBytes;
        DWORD dwError = ERROR_SUCCESS;
        const bool bRead = ReadWhole(tstrPath, 1 << 20, strBytes, &dwError);
        const bool bEdited = dwError == ERROR_NOT_SUPPORTED;  // an INI file, whose bytes are not known
        return (bRead || bEdited || Storage::Fail(dwError, pdwError)) && HashBytes(strBytes, content, pdwError);
    }
    [[nodiscard]] bool Compare(const std::wstring& tstrPath, const Content& content, bool& bSame,
                               DWORD* pdwError) override
    {
        Content found;
        const bool bRead = Read(tstrPath, found, pdwError);
        bSame = bRead && found == content;
        return bRead;
    }
    [[nodiscard]] bool ReadWhole(const std::wstring& tstrPath, std::size_t cbMost, std::string& strBytes,
                                 DWORD* pdwError) override
    {
        return m_machine.ReadContent(tstrPath, cbMost, strBytes, pdwError);
    }

private:
    const SimulatedMachine& m_machine;
};

/// Every folder that a deploy step copies, some with a subfolder, and some that no step copies.
constexpr char kFolders[] = R"(p1\64bit\p1 p1\64bit\p1\Driver p1\64bit\p1\Sub p1\Engine\Preload p1\Share\Engine
    p1\Share\Patterns p1\Share\7-Zip p1\Share\7-Zip\Sub p1\Share\QorFirefoxExt p1\Share\QorIEExt p1\Share\UI
    p1\Share\UI\Sub p1\Share\Resource\Sub p1\Share\Task p1\Share\Setting p1\Share\Setting\Sub r1\Sub
    p1\Share\QorNativeMessaging)";
constexpr char kNames[] = "a.dll A.DLL b.sys config.xml readme.htm ~kzcomn-00000abc-01.tmp";
constexpr char kSettings[] = R"(config.xml config_DE-DE.xml config_fr-fr.xml qorshcut_DE-DE.xml qorshcut.xml
    readme_DE-DE.htm readme_FR-FR.htm readme.htm UpdateInfo.ini config_EN-US.xml config_.xml readme_EN-US.htm
    Config_EN-US.XML config_DE-DE.xml.bak)";
/// Records of the instruction file, one section a line. They delete no files of the update.
constexpr const char* kRecords[] = {
    R"([QOR_DIR] add={InstalledDir}New\Deep delete={InstalledDir}Legacy)",
    R"([QOR_FILE] delete={InstalledDir}Old*.txt delete_now={InstalledDir}/Legacy/./n?w.txt)",
    R"([QOR_REGISTRY_PATCH] add=@!N!REG_DWORD!7 add=@!N!REG_SZ!{InstalledDir}{UdComponentsSrcDir} delete=@!n
        add_if_non=@!N!REG_QDWORD!9 add_if_non=@!(Default)!REG_SZ!x add=@!M!REG_DWORD!3943305780)",
    "[QOR_CONFIG_MERGE] migrate=/a migrate=/own",
    "[UPDATE_INFO] modify=COMPONENT_LIST!Component101_Version!3.9 modify=S!K!'v'"};

std::vector<std::string> Words(const char* szText)
{
    std::istringstream text(szText);
    return {std::istream_iterator<std::string>(text), {}};
}

class DeliveryProofTest : public VerifyTest {
protected:
    [[nodiscard]] bool Chance(unsigned uOneOf) { return m_random() % uOneOf == 0; }

    void MakeUpdate()
    {
        m_update.Clear();
        Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\nComponent101_DownloadPath=p1\nComponent2_DownloadPath=r1\n");
        Bring({L"p1\\Share\\UI\\always.htm"});
        Write(kTrialSource, "e7k");
        unsigned uContent = 0;
        for (const std::string& strFolder : Words(kFolders)) {
            for (const std::string& strName : Words(kNames)) {
                if (!Chance(4)) continue;
                Write(L"Component\\" + String::FromAnsi(strFolder + "\\" + strName),
                      "<c>" + std::to_string(++uContent));
            }
        }
        const bool bSettings = !Chance(5);
        for (const std::string& strName : Words(kSettings)) {
            if (!bSettings || !Chance(2)) continue;
            const std::string strText = "<c><a>" + std::to_string(++uContent) + "</a><b/></c>";
            Write(L"Component\\p1\\Share\\Setting\\" + String::FromAnsi(strName),
                  strName.ends_with(".ini") ? "[S]\nX=1\n" : strText);
        }
        std::map<std::string, std::string> sections;
        for (const char* const szSection : kRecords) {
            const std::vector<std::string> words = Words(szSection);
            std::string& strRecords = sections[words.front()];
            for (const std::string& strWord : words) {
                if (&strWord != &words.front() && Chance(2)) strRecords += strWord + "\n";
            }
        }
        for (const ::Section& section : kSections) {
            for (const SectionKey& key : section.keys) {
                std::string& strRecords = sections["[" + NameOf(section) + "]"];
                if (!Chance(4)) continue;
                // The run may change the source of a copy first.
                const std::regex source(Chance(2) ? R"(Own\\e7k\.dat)" : "none");
                const std::string strRecord =
                    std::regex_replace(TrialOf(key).strRecord, source, R"(Setting\config.xml)");
                strRecords += ToUtf8(key.szKey) + "=" + strRecord + "\n";
            }
        }
        std::string strInstructions;
        for (const auto& [strSection, strRecords] : sections) strInstructions += strSection + "\n" + strRecords;
        Instruct(strInstructions);
    }

    /// The installed product before the update.
    void MakeMachine(SimulatedMachine& machine)
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
    void Prove(SimulatedMachine& machine, const ExpectedState& expected, const wchar_t* szLanguage)
    {
        machine.SetValue({.tstrKeyPath = Frwk::Utility::kProductKey,
                          .tstrName = L"Language",
                          .dwView = Frwk::Utility::ProductRegistryView()},
                         ToStored(std::wstring(szLanguage)));
        ASSERT_TRUE(DeployFramework(machine));
        for (const int iExitCode : {int{kRestartPending}, int{kClean}}) {
            const std::vector<VerifyResult> results = VerifyOn(machine, expected);
            EXPECT_EQ(ExitCodeOf(results), iExitCode) << szLanguage << ToUtf8(FormatResults(results, L""));
            machine.Restart();
        }
    }

    std::mt19937 m_random;
};

}  // namespace

TEST_F(DeliveryProofTest, ExpectedFilesArriveInEveryLanguage)
{
    const char* const szSeeds = std::getenv("BREVANT_PROOF_SEEDS");
    const unsigned cSeeds = szSeeds ? static_cast<unsigned>(std::atoi(szSeeds)) : 25;
    const WindowsMachine real;
    for (unsigned uSeed = 0; uSeed < cSeeds && !HasFailure(); ++uSeed) {
        SCOPED_TRACE(uSeed);
        m_random.seed(uSeed);
        MakeUpdate();
        const ExpectedState expected = Collect();
        for (const wchar_t* const szLanguage : {L"DE-DE", L"FR-FR", L"EN-US"}) {
            SimulatedMachine machine(&real);
            static_cast<void>(PrepareForPlan(machine, {m_update.Path(), m_machine.Path(), false}));
            MakeMachine(machine);
            Prove(machine, expected, szLanguage);
        }
    }
}
