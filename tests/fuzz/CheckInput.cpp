// The input of the checking program in broken and malicious variants: it does not crash, hang or write, and accesses
// only paths below the product's folders, even if a manifest contains others.
#include "check/lint/Lint.h"
#include "check/verify/Manifest.h"
#include "check/simulate/Plan.h"
#include "check/trace/TraceSummary.h"
#include "check/verify/Record.h"
#include "check/verify/SignedManifest.h"
#include "check/verify/Verify.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"
#include "common/KzComn_XmlParser.h"
#include "fuzz/Variants.h"
#include "support/RegistryFixture.h"
#include "support/TempFolder.h"
#include "support/watch/SystemWatch.h"

#include <gtest/gtest.h>

using namespace KzCommon;
using namespace Check;

namespace {

constexpr wchar_t kPackage[] = L"Component\\c21t2103v0.0.0l1p1r1o1\\";

/// Whether a path is below one of the folders allowed in a manifest, without ".." in it.
bool IsBelow(const MachineFolders& folders, const std::wstring& tstrPath)
{
    if ((tstrPath + L"\\").find(L"\\..\\") != std::wstring::npos) return false;
    const std::wstring tstrPlace = folders.PlaceOf(tstrPath);
    return tstrPlace != tstrPath && tstrPath.find(L':', 2) == std::wstring::npos;
}

class CheckInput : public RegistryTest {
protected:
    CheckInput()
    {
        EXPECT_TRUE(m_expat.LoadBesideProgram());
        m_sandbox.Write(std::wstring(kPackage) + L"64bit\\c21t2103v0.0.0l1p1r1o1\\Qorvault.exe", "new");
        m_sandbox.Write(L"installed\\Qorvault.exe", "old");
        WriteProduct(L"ProductPath", m_sandbox.PathOf(L"installed\\"));
    }

    /// Runs a verb, which may list folders and read files but not change anything.
    void Run(int (*pfnVerb)(const Arguments&, Output&), const Arguments& arguments)
    {
        const SystemWatch watch(m_sandbox.Path(),
                                [](std::string_view strCall, auto&&) { return strCall == "FindFirstFileW"; });
        Output output;
        const int iExitCode = pfnVerb(arguments, output);
        EXPECT_NE(iExitCode, kWrongUse);
        EXPECT_TRUE(iExitCode == kCannotRead ? !output.tstrErrors.empty() : output.strText.ends_with('\n'));
    }

    TempFolder m_sandbox;
    Library::Expat m_expat;  // stays loaded for all variants
};

// Every file of the update is the variant, so that files of other kinds are checked with the same care.
TEST_F(CheckInput, Updates)
{
    const std::wstring tstrShare = std::wstring(kPackage) + L"Share\\";
    const std::wstring names[] = {kInstructionFile,
                                  kUpdateInfoFile,
                                  tstrShare + L"Setting\\config_EN-US.xml",
                                  tstrShare + L"Setting\\qorshcut_EN-US.xml",
                                  tstrShare + L"Resource\\EN-US\\StringTable.ini",
                                  tstrShare + L"Setting\\" + kShippedManifest,
                                  std::wstring(L"installed\\") + kUpdateInfoFile,
                                  std::wstring(L"installed\\") + kShippedManifest};
    // One file with all these names.
    const std::wstring tstrVariant = m_sandbox.Write(L"variant", "");
    for (const std::wstring& tstrName : names) {
        ::DeleteFileW(m_sandbox.Write(tstrName, "").c_str());
        ASSERT_TRUE(::CreateHardLinkW(m_sandbox.PathOf(tstrName).c_str(), tstrVariant.c_str(), nullptr));
    }
    Arguments arguments;
    arguments.operands = {m_sandbox.Path()};
    arguments.optInstalled = m_sandbox.PathOf(L"installed");
    Arguments withoutFile;
    withoutFile.optInstalled = arguments.optInstalled;
    RunVariants(
        {Seed(kInstructionSeed), Seed("updateinfo.ini"), Seed("config.xml"), Seed("shortcuts.xml"),
         Seed("strings.ini")},
        [&](const std::string& strVariant) {
            PutVariant(tstrVariant, strVariant);
            // Long outputs are slow.
            const std::size_t uForm = strVariant.size() % 16;
            arguments.eFormat = uForm == 1 ? Format::eSarif : Format::eText;
            Run(uForm == 0 ? RunManifest : RunLint, arguments);
            arguments.eFormat = uForm == 0 ? Format::eJson : Format::eText;
            Run(RunPlan, arguments);
            if (uForm == 2) Run(RunVerify, withoutFile);
        },
        kSlow);
}

TEST_F(CheckInput, TracesToRead)
{
    const std::string strSeed = Seed("trace.log");
    Arguments arguments;
    arguments.operands = {m_sandbox.PathOf(L"Brevant.log")};
    RunVariants({strSeed}, [&](const std::string& strVariant) {
        PutVariant(m_sandbox.PathOf(L"Brevant.log"), strVariant);
        PutVariant(m_sandbox.PathOf(L"Brevant.log.1"), strSeed);
        arguments.bAll = strVariant.size() % 2 == 0;
        Run(RunTrace, arguments);
    });
}

TEST_F(CheckInput, PlacesOfManifests)
{
    const std::wstring tstrInstalled = m_sandbox.MakeFolder(L"1\\2\\Product");
    m_sandbox.Write(L"1\\2\\Product\\a\\b.dll", "new");
    m_sandbox.Write(L"1\\2\\Product\\Legacy\\c\\d.txt", "old");
    m_sandbox.Write(L"1\\2\\Product\\readme.htm", "<c><a><b/></a></c>");
    m_sandbox.Write(L"1\\2\\Product\\config.previous.xml", "<c><c/></c>");
    WriteProduct(L"ProductPath", tstrInstalled);
    const MachineFolders known(tstrInstalled, L"p1");
    unsigned cLookedUp = 0;
    RunVariants({Seed("manifest.json")}, [&](const std::string& strVariant) {
        const SystemWatch watch(m_sandbox.Path(), [&](std::string_view strCall, const std::wstring& tstrPlace) {
            return strCall == "FindFirstFileW" && IsBelow(known, tstrPlace);
        });
        ExpectedState expected;
        std::wstring tstrError;
        if (!ParseManifest(strVariant, expected, tstrError)) return;
        MachineFolders folders(tstrInstalled, expected.tstrProduct);
        const WindowsMachine machine;
        ContentReader contents;
        VerifyContext context{machine, contents, folders, PendingPlaces(machine, {}), L"en-us"};
        for (const VerifyResult& result : VerifyState(expected, context)) {
            const bool bFile = result.tstrWhat.find(L": ") == std::wstring::npos;
            if (result.eVerdict == Verdict::eRefused || !bFile) continue;
            ++cLookedUp;
            EXPECT_TRUE(IsBelow(folders, result.tstrWhat)) << String::ToUtf8(result.tstrWhat);
        }
    });
    EXPECT_GT(cLookedUp, 0u);
}

TEST_F(CheckInput, Records)
{
    RunVariants({Seed("record.json")}, [&](const std::string& strVariant) {
        Record record;
        Record again;
        std::wstring tstrError;
        if (!ParseRecord(strVariant, record, tstrError)) {
            EXPECT_FALSE(tstrError.empty());
            return;
        }
        ASSERT_TRUE(ParseRecord(FormatRecord(record), again, tstrError)) << String::ToUtf8(tstrError);
        EXPECT_EQ(FormatRecord(again), FormatRecord(record));
    });
}

// A file may have several keys, for a change of keys. If one block is not a key, the whole file is refused.
TEST_F(CheckInput, FilesWithSeveralKeys)
{
    const std::string strOwn = Seed("manifest.pub");
    const std::string strOther =
        "-----BEGIN PUBLIC KEY-----\n"
        "MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEF8vPqu+x+9964RtZNzGJIl0Wln0d\n"
        "JAVb/pULBPaHqQLzAvZqEwlEfbw2HygKAZrxjmiYomx/KdDhyOc/DxCIRQ==\n"
        "-----END PUBLIC KEY-----\n";
    for (const std::string& strPem :
         {strOther + strOwn, strOwn + strOther, strOwn + strOther.substr(0, 60), strOther.substr(27)}) {
        std::vector<PublicKey> keys;
        std::wstring tstrText;
        const bool bGood = strPem.size() == strOther.size() + strOwn.size();
        const bool bRead = ReadKeys({m_sandbox.Write(L"keys.pem", strPem)}, keys, tstrText);
        EXPECT_EQ(bRead && keys.size() == 2 && keys[0].Id() != keys[1].Id(), bGood) << strPem;
    }
}

// Only the one signature is that of the one manifest by the one key.
TEST_F(CheckInput, Signatures)
{
    const std::string strManifest = Seed("manifest.json");
    const std::string strSignature = Seed("manifest.json.sig");
    const std::string strKey = Seed("manifest.pub");
    PublicKey key;
    ASSERT_TRUE(key.Read(strKey, nullptr));
    ASSERT_TRUE(key.HasSigned(strManifest, strSignature));
    RunVariants({strSignature, strKey}, [&](const std::string& strVariant) {
        EXPECT_EQ(key.HasSigned(strManifest, strVariant), strVariant == strSignature);
        PublicKey other;
        if (!other.Read(strVariant, nullptr)) return;
        EXPECT_EQ(other.HasSigned(strManifest, strSignature), other.Id() == key.Id());
    });
}

}  // namespace
