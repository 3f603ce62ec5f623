// What the checking program reads, in broken and malicious variants: nothing crashes or hangs, and nothing is written.
#include "check/Lint.h"
#include "check/Manifest.h"
#include "check/Plan.h"
#include "check/TraceSummary.h"
#include "common/KzComn_XmlParser.h"
#include "hostile/Variants.h"
#include "support/RegistryFixture.h"
#include "support/TempFolder.h"
#include "support/watch/SystemWatch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>

using namespace KzCommon;
using namespace Check;

namespace {

constexpr wchar_t kPackage[] = L"Component\\c21t2103v0.0.0l1p1r1o1\\";

class CheckInput : public RegistryTest {
protected:
    CheckInput()
    {
        EXPECT_TRUE(m_expat.LoadBesideProgram());
        m_sandbox.Write(std::wstring(kPackage) + L"64bit\\c21t2103v0.0.0l1p1r1o1\\Qorvault.exe", "new");
        m_sandbox.Write(L"installed\\Qorvault.exe", "old");
        WriteProduct(L"ProductPath", m_sandbox.PathOf(L"installed\\"));
    }

    /// Puts a file in place that is as old as no other one was: the system trusts its copy of a file only when that
    /// cannot be newer.
    void Put(const std::wstring& tstrName, const std::string& strBytes)
    {
        const std::filesystem::path path = m_sandbox.PathOf(tstrName);
        std::ofstream(path, std::ios::binary) << strBytes;
        std::filesystem::last_write_time(path, m_time += std::chrono::seconds(1));
    }

    /// Runs a verb, which may list folders and read files, but change nothing.
    void Run(int (*pfnVerb)(const Arguments&, Output&), const Arguments& arguments)
    {
        const SystemWatch watch(m_sandbox.Path(),
                                [](std::string_view strCall, auto&&) { return strCall == "FindFirstFileW"; });
        Output output;
        const int iExitCode = pfnVerb(arguments, output);
        EXPECT_NE(iExitCode, kWrongUse);
        EXPECT_TRUE(iExitCode == kCannotRead ? !output.tstrErrors.empty() : output.strText.ends_with('\n'));
    }

    /// Puts updates together of which every file is the variant: none of them must be taken for another kind with less
    /// care.
    void ForEachUpdate(const std::function<void(Arguments& arguments, std::size_t cbVariant)>& run)
    {
        const std::wstring tstrShare = std::wstring(kPackage) + L"Share\\";
        const std::wstring names[] = {kInstructionFile, kUpdateInfoFile, tstrShare + L"Setting\\config_EN-US.xml",
                                      tstrShare + L"Setting\\qorshcut_EN-US.xml",
                                      tstrShare + L"Resource\\EN-US\\StringTable.ini"};
        for (const std::wstring& tstrName : names) m_sandbox.Write(tstrName, "");
        Arguments arguments;
        arguments.operands = {m_sandbox.Path()};
        arguments.optInstalled = m_sandbox.PathOf(L"installed");
        RunVariants({Seed("instructions.ini"), Seed("updateinfo.ini"), Seed("config.xml"), Seed("shortcuts.xml"),
                     Seed("strings.ini")},
                    [&](const std::string& strVariant) {
                        for (const std::wstring& tstrName : names) Put(tstrName, strVariant);
                        run(arguments, strVariant.size());
                    });
    }

    TempFolder m_sandbox;
    Library::Expat m_expat;  // kept loaded for all variants
    std::filesystem::file_time_type m_time =
        std::filesystem::file_time_type::clock::now() - std::chrono::hours(24 * 365);
};

TEST_F(CheckInput, UpdatesToCheck)
{
    ForEachUpdate([&](Arguments& arguments, std::size_t cbVariant) {
        // The long outputs are slow to make.
        arguments.eFormat = cbVariant % 16 == 1 ? Format::eSarif : Format::eText;
        Run(cbVariant % 16 == 0 ? RunManifest : RunLint, arguments);
    });
}

TEST_F(CheckInput, UpdatesToPlan)
{
    ForEachUpdate([&](Arguments& arguments, std::size_t cbVariant) {
        arguments.eFormat = cbVariant % 16 == 0 ? Format::eJson : Format::eText;
        Run(RunPlan, arguments);
    });
}

TEST_F(CheckInput, TracesToRead)
{
    const std::string strSeed =
        "\xEF\xBB\xBF"
        "21/11/2026 08:37:01.500 00d0:00d4 @@@ <Brevant> Paramter is /DeployFramework - Brevant.cpp(12)\r\n"
        "21/11/2026 08:37:02.500 00d0:00d4 >>> <Brevant> [Enter] FrameworkDeployAgent::DoDeploy() - Brevant.cpp(12)\r\n"
        "21/11/2026 08:37:02.501 00d0:00d4 !!! <Brevant> *** ::MoveFileEx(a) failed. [0x00000005] - A.cpp(1)\r\n"
        "21/11/2026 23:59:59.999 00e0:00d4 @@@ <Brevant> Paramter is /ApplyNewName - Brevant.cpp(12)\r\n"
        "22/11/2026 00:00:00.000 00d0:00d4 @@@ <Brevant> ***QorPatchTool.exe stop. - Brevant.cpp(12)\r\n";
    Arguments arguments;
    arguments.operands = {m_sandbox.PathOf(L"Brevant.log")};
    RunVariants({strSeed}, [&](const std::string& strVariant) {
        Put(L"Brevant.log", strVariant);
        Put(L"Brevant.log.1", strSeed);
        arguments.bAll = strVariant.size() % 2 == 0;
        Run(RunTrace, arguments);
    });
}

}  // namespace
