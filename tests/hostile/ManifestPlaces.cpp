// Manifests in broken and malicious variants: nothing is looked at but what lies below the product's folders, whatever
// a manifest names.
#include "check/Manifest.h"
#include "check/Verify.h"
#include "common/KzComn_XmlParser.h"
#include "common/KzComn_String.h"
#include "hostile/Variants.h"
#include "support/RegistryFixture.h"
#include "support/TempFolder.h"
#include "support/watch/SystemWatch.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace Check;
using namespace KzCommon;

namespace {

/// One of each kind of promise.
Promises Seed()
{
    Promises promises;
    promises.tstrProduct = L"p1";
    promises.folders = {L"{InstalledDir}Lang"};
    const Content content{3, std::string(64, 'a')};
    promises.files = {{L"{InstalledDir}a\\b.dll", L"Component\\p1\\Share\\UI\\b.dll", true, L"", content},
                      {L"{InstalledDir}readme.htm", L"Component\\p1\\Share\\Setting\\readme.htm", true, L"EN-US", {}},
                      {L"{AppData}Kazmere\\e.bin", L"Component\\p1\\Engine\\Preload\\e.bin", false, L"", content}};
    promises.files[1].optSettings = SettingsPromise{L"c", {L"/a/b"}, {L"/c"}};
    promises.deletions = {{L"{InstalledDir}Old*.dll", false, true}, {L"{InstalledDir}Legacy", true, true}};
    promises.registry.resize(2);
    for (RegistryPromise& value : promises.registry) value.tstrKeyPath = L"SOFTWARE\\Vault";
    promises.registry[1].eState = ValueState::eData;
    promises.registry[1].eType = RegistryType::eText;
    promises.registry[1].tstrData = L"{InstalledDir}{UdComponentsSrcDir}";
    promises.updateInfo = {{L"COMPONENT_LIST", L"Component101_Version", L"3.9"}};
    return promises;
}

/// Whether a path lies below one of the folders that a manifest may name, and goes no detour.
bool IsBelow(const MachineFolders& folders, const std::wstring& tstrPath)
{
    if ((tstrPath + L"\\").find(L"\\..\\") != std::wstring::npos) return false;
    const std::wstring tstrPlace = folders.PlaceOf(tstrPath);
    return tstrPlace != tstrPath && tstrPath.find(L':', 2) == std::wstring::npos;
}

class Manifests : public RegistryTest {};

TEST_F(Manifests, PlacesOfManifests)
{
    TempFolder sandbox;
    sandbox.Write(L"outside.txt", "secret");
    const std::wstring tstrInstalled = sandbox.MakeFolder(L"1\\2\\Product");
    sandbox.Write(L"1\\2\\Product\\a\\b.dll", "new");
    sandbox.Write(L"1\\2\\Product\\Legacy\\c\\d.txt", "old");
    sandbox.Write(L"1\\2\\Product\\readme.htm", "<c><a><b/></a></c>");
    sandbox.Write(L"1\\2\\Product\\config.previous.xml", "<c><c/></c>");
    Library::Expat expat;
    EXPECT_TRUE(expat.LoadBesideProgram());  // kept loaded for all variants
    WriteProduct(L"ProductPath", tstrInstalled);
    const MachineFolders known(tstrInstalled, L"p1");
    unsigned cLookedUp = 0;
    RunVariants({FormatManifest(Seed())}, [&](const std::string& strVariant) {
        const SystemWatch watch(sandbox.Path(), [&](std::string_view strCall, const std::wstring& tstrPlace) {
            return strCall == "FindFirstFileW" && IsBelow(known, tstrPlace);
        });
        Promises promises;
        std::wstring tstrError;
        if (!ParseManifest(strVariant, promises, tstrError)) return;
        MachineFolders folders(tstrInstalled, promises.tstrProduct);
        Machine machine{folders, PendingPlaces({}), L"en-us"};
        for (const Answer& answer : VerifyPromises(promises, machine)) {
            const bool bFile = answer.tstrWhat.find(L": ") == std::wstring::npos;
            if (answer.eVerdict == Verdict::eRefused || !bFile) continue;
            ++cLookedUp;
            EXPECT_TRUE(IsBelow(folders, answer.tstrWhat)) << String::ToUtf8(answer.tstrWhat);
        }
    });
    EXPECT_GT(cLookedUp, 0u);
}

}  // namespace
