// Every kind of input in an update, in thousands of broken and malicious variants: the agent does not crash or hang,
// and accesses only the places named in the input.
#include "agent/ConfigMerge.h"
#include "agent/IniEdits.h"
#include "agent/PostRestartRename.h"
#include "agent/QorDeployAgent.h"
#include "agent/RegistryPatch.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"
#include "common/KzComn_XmlParser.h"
#include "common/L10nReader.h"
#include "config/ConfigProvider.h"
#include "fuzz/Variants.h"
#include "support/RecordedTrace.h"
#include "support/RegistryFixture.h"
#include "support/watch/SystemWatch.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <algorithm>
#include <filesystem>

using namespace KzCommon;

namespace {

using Texts = std::vector<std::wstring>;

/// The places that the records of an instruction file name: their values with placeholders replaced, also as normalized
/// paths, and the agent's own registry keys.
Texts NamedIn(const std::wstring& tstrFile)
{
    const WindowsMachine machine;
    PathValues paths(machine);
    paths.ReadLogFolders();
    paths.ReadProductFolders();
    Texts named = {L"SOFTWARE\\Kazmere\\KZVLT", L"Software\\Kazmere\\KZVLT",
                   L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce"};
    for (const wchar_t* szSection : {L"QOR_REGISTRY_PATCH", L"QOR_DIR", L"QOR_FILE"}) {
        std::vector<wchar_t> section(0x8000);
        ::GetPrivateProfileSectionW(szSection, section.data(), 0x8000, tstrFile.c_str());
        for (const wchar_t* sz = section.data(); *sz; sz += std::wcslen(sz) + 1) {
            const wchar_t* szEqual = std::wcschr(sz, L'=');
            if (!szEqual) continue;
            named.push_back(szEqual + 1);
            paths.ExpandPlaceholders(named.emplace_back(named.back()));
            wchar_t szFull[0x1000] = {};
            ::GetFullPathNameW(named.back().c_str(), 0x1000, szFull, nullptr);
            named.emplace_back(szFull);
        }
    }
    return named;
}

/// Whether a file is the temporary file beside one that is replaced in one step.
bool IsNewContent(const std::wstring& tstrPlace, const std::wstring& tstrInstallDir)
{
    const std::wstring tstrFolder = String::FolderPart(tstrPlace);
    return tstrPlace.substr(tstrFolder.size()).starts_with(L"~kzcomn-") && tstrFolder.starts_with(tstrInstallDir);
}

/// An installed product deep inside a sandbox, with all trace levels enabled.
class FuzzInput : public RegistryTest {
protected:
    FuzzInput()
    {
        EXPECT_TRUE(m_expat.LoadBesideProgram());
        WriteProduct(L"ProductPath", m_tstrInstallDir);
        for (const std::wstring tstrSession : {L"Interactive", L"Service", L"Protected"}) {
            WriteLogFolder(tstrSession, m_sandbox.PathOf(tstrSession));
        }
    }

    static void WriteLogFolder(const std::wstring& tstrSession, const std::wstring& tstrFolder)
    {
        const std::wstring tstrKey = L"Software\\Kazmere\\KZVLT\\1\\DebugLog\\" + tstrSession + L"Session";
        WriteRaw(HKEY_LOCAL_MACHINE, tstrKey, L"LogFolder", RawText(tstrFolder));
    }

    void Install(const std::wstring& tstrName, const std::string& strBytes)
    {
        m_sandbox.Write(m_tstrInstallName + tstrName, strBytes);
    }

    /// Runs the variants as file `szName` of the install folder. `judge` checks every access of `act`, which must
    /// access something. Without a judge it must not access anything.
    void RunVariantsIn(const wchar_t* szName, const std::vector<std::string>& seeds, const std::function<void()>& act,
                       const Judge& judge = nullptr, std::size_t uShare = 1)
    {
        unsigned cJudged = 0;
        const auto attempt = [&](const std::string& strVariant) {
            for (const wchar_t* szVictim : {L"Legacy\\a\\b.txt", L"Keystride1.dll"}) {
                if (strVariant.size() % 16 == 0) Install(szVictim, "to be deleted");
            }
            m_trace.Clear();
            PutVariant(m_tstrInstallDir + szName, strVariant);
            const SystemWatch watch(m_sandbox.Path(), [&](std::string_view strCall, const std::wstring& tstrPlace) {
                ++cJudged;
                return judge && (IsNewContent(tstrPlace, m_tstrInstallDir) || judge(strCall, tstrPlace));
            });
            act();
        };
        RunVariants(seeds, attempt, uShare);
        EXPECT_EQ(judge != nullptr, cJudged > 0);
    }

    TempFolder m_sandbox;
    const std::wstring m_tstrInstallName = L"1\\2\\3\\4\\5\\6\\Product\\";
    const std::wstring m_tstrInstallDir = m_sandbox.MakeFolder(m_tstrInstallName);
    Library::Expat m_expat;  // stays loaded for all variants
    WindowsMachine m_machine;
    RecordedTrace m_trace;
};

TEST_F(FuzzInput, InstructionFiles)
{
    const std::wstring tstrSettings = m_sandbox.MakeFolder(m_tstrInstallName + L"Settings");
    const std::wstring tstrKept = m_tstrInstallDir + L"config.previous.";
    Texts named;
    const auto act = [&] {
        FrameworkDeployAgent agent(m_machine);
        agent.DoPreAction();
        PatchRegistry(agent.Run());
        RunContext run(m_machine);
        MergeConfig(run, {tstrSettings + L"config.xml", tstrSettings + L"config.xml"});
        ModifyUpdateInfo(m_machine, {tstrSettings + L"UpdateInfo.ini", tstrSettings + L"UpdateInfo.ini"});
        agent.DoPostAction();
        named.clear();
    };
    const auto judge = [&](std::string_view strCall, const std::wstring& tstrPlace) {
        if (named.empty()) named = NamedIn(m_tstrInstallDir + L"QorPaFrwk.ini");
        const std::wstring tstrFolder = String::EnsureBackslash(tstrPlace);
        const auto names = [&](const std::wstring& tstrText) {
            if (strCall.starts_with("Reg")) {
                return (L"!" + tstrText + L"!").find(L"!" + tstrPlace + L"!") != std::wstring::npos;
            }
            const std::wstring tstrNamed = String::EnsureBackslash(tstrText);
            if (strCall == "CreateDirectoryW") return tstrNamed.starts_with(tstrFolder);
            return String::IsFullPath(tstrText) &&
                   (tstrFolder.starts_with(tstrNamed) || String::FolderPart(tstrPlace) == String::FolderPart(tstrText));
        };
        return tstrPlace.starts_with(tstrSettings) || tstrPlace.starts_with(tstrKept) ||
               std::any_of(named.begin(), named.end(), names);
    };
    const std::string strConfig = "<Config><ProxySettings><Port type=\"int\">1</Port></ProxySettings></Config>";
    Install(L"config.xml", strConfig);
    Install(L"Settings\\config.xml", strConfig);
    ::CreateDirectoryW((m_tstrInstallDir + L"E:xt").c_str(), nullptr);  // a name in some variants, invalid on Windows
    // The whole file and each of its sections.
    std::vector<std::string> seeds = {Seed(kInstructionSeed)};
    for (std::size_t uAt = 0; uAt != std::string::npos; uAt = seeds[0].find("\n[", uAt + 1)) {
        seeds.push_back(seeds[0].substr(uAt, seeds[0].find("\n[", uAt + 1) - uAt));
    }
    RunVariantsIn(L"QorPaFrwk.ini", seeds, act, judge, kSlow);
}

TEST_F(FuzzInput, StringTables)
{
    const auto act = [&] {
        CL10nReader reader(m_machine);
        static_cast<void>(reader.ParseL10nFile(L"EN-US", L"IEBHO"));
        const wchar_t* szText = reader.GetString(L"S_STR_PRODUCT_NAME");
        EXPECT_TRUE(!szText || *szText) << "a text must not be empty";
    };
    RunVariantsIn(L"Resource\\EN-US\\StringTable.ini", {Seed("strings.ini")}, act);
}

TEST_F(FuzzInput, ShortcutFiles)
{
    const std::wstring tstrShell = m_sandbox.MakeFolder(L"Shell");
    unsigned cRuns = 0;
    const auto act = [&] {
        if (++cRuns % 4 == 0) InstallShortCut(m_tstrInstallDir, L"qorshcut.xml");  // slow: the shell creates the links
        UninstallShortCut(m_tstrInstallDir, L"qorshcut.xml");
    };
    const auto judge = [&](std::string_view, const std::wstring& tstrPlace) {
        // A name may have levels; wildcards in a pattern are not passed on; no path leads up or into a stream.
        const std::wstring tstrNormal = std::filesystem::path(tstrPlace).lexically_normal().wstring();
        return tstrNormal.starts_with(tstrShell) && tstrNormal.find(L':', tstrShell.size()) == std::wstring::npos;
    };
    RunVariantsIn(L"qorshcut.xml", {Seed("shortcuts.xml")}, act, judge);
    for (const std::wstring& tstrLeft : m_sandbox.List()) {  // written by the shell, unwatched
        EXPECT_TRUE(!tstrLeft.ends_with(L".lnk") || tstrLeft.starts_with(L"Shell")) << String::ToUtf8(tstrLeft);
    }
}

TEST_F(FuzzInput, ConfigurationFiles)
{
    const auto act = [&] {
        CConfigProvider provider(m_machine);
        ASSERT_EQ(0U, provider.PreInitialize());
        ASSERT_EQ(0U, provider.Initialize());
        Json::Value request;
        for (const char* szTag : {"/ProxySettings/Enable", "/ProxySettings/Password", "/a", "/a/a/a", "//", "/\xFF"}) {
            request["Data"][szTag] = "";
        }
        const DWORD dwRead = provider.MessageProc(CConfigProvider::kQuery, request);
        request["Data"]["/ProxySettings/New"] = "\xC3\xA4]]>&<";
        request["FilePath"] = String::ToUtf8(m_tstrInstallDir);
        request["FileName"] = "config.xml";
        static_cast<void>(provider.MessageProc(CConfigProvider::kWrite, request));
        EXPECT_EQ(dwRead == Config::eUnreadableFile,
                  provider.MessageProc(CConfigProvider::kQuery, request) == Config::eUnreadableFile);
    };
    RunVariantsIn(L"config.xml", {Seed("config.xml")}, act, [&](std::string_view, const std::wstring& tstrPlace) {
        return tstrPlace.starts_with(m_tstrInstallDir + L"config.xml");
    });
}

TEST_F(FuzzInput, UpdateInformation)
{
    Install(L"QorPaFrwk.ini", "[UPDATE_INFO]\r\nmodify=COMPONENT_LIST!Component101_Version!3.9\r\n");
    for (const std::wstring tstrName : {L"c21t2103v0.0.0l1p1r1o1\\", L"c21t2103v3.9.0l1p1r1o1\\"}) {
        Install(L"Component\\" + tstrName + L"64bit\\" + tstrName + L"a.dll", "a");
        Install(L"Component\\" + tstrName + L"Share\\Setting\\c.htm", "c");
    }
    const auto act = [&] {
        FrameworkDeployAgent agent(m_machine);
        agent.DoPreAction();
        agent.DoDeploy();
    };
    const auto judge = [&](std::string_view strCall, const std::wstring& tstrPlace) {
        const bool bSource = strCall == "MoveFileExW source";
        const std::wstring tstrFull = Storage::Directory::FullPath(tstrPlace);
        return tstrFull.starts_with(m_tstrInstallDir + (bSource ? L"Component\\" : L""));
    };
    // As it is, and with names of a package elsewhere.
    std::vector<std::string> seeds = {Seed("updateinfo.ini"), Seed("updateinfo.ini")};
    m_sandbox.Write(m_tstrInstallName + L"..\\Elsewhere\\Share\\Setting\\d.htm", "d");
    for (std::size_t uAt; (uAt = seeds[1].find("c21")) != std::string::npos;) {
        seeds[1].replace(uAt, seeds[1].find_first_of("\r\n", uAt) - uAt, "..\\..\\Elsewhere");
    }
    RunVariantsIn(L"UpdateInfo.ini", seeds, act, judge, kSlow);
}

}  // namespace
