// Files in use, as "ready" finds them.
#include "check/ready/Ready.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_WindowsMachine.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Check;
using namespace testing;

TEST(ReadyTest, AFileThatCannotBeReplacedNowIsInUse)
{
    TempFolder installed;
    installed.Write(L"config.xml", "<c/>");
    installed.Write(L"copied.ini", "a");
    installed.Write(L"moved.exe", "a");
    const KzCommon::WindowsMachine machine;
    const Folder folder(installed.Path());
    const Change copied{.eAction = KzCommon::Action::eCopy,
                        .eOutcome = KzCommon::Outcome::eReplace,
                        .tstrTarget = folder / L"copied.ini"};
    const Change moved{.eAction = KzCommon::Action::eMove,
                       .eOutcome = KzCommon::Outcome::eReplace,
                       .bAtRestart = true,
                       .tstrTarget = folder / L"moved.exe"};
    const Plan plan{{}, folder, {{L"", L"", {copied, moved}}}};
    const Update update;
    std::vector<PendingMove> pending;
    const auto found = [&] {
        std::vector<std::wstring> files;
        for (const ReadyFinding& finding : CheckReadiness({machine, update, folder, plan, pending}).findings) {
            if (finding.uNumber == 2) files.push_back(folder.Relative(finding.tstrWhat));
        }
        return files;
    };
    EXPECT_THAT(found(), IsEmpty());
    // A reader that does not share the right to delete stops a replacement; at the restart it no longer has the file.
    for (const DWORD dwShared : {DWORD{0}, DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE}}) {
        std::vector<KzCommon::UniqueFile> readers;
        for (const wchar_t* const szFile : {L"config.xml", L"copied.ini", L"moved.exe"}) {
            readers.emplace_back(::CreateFileW((folder / szFile).c_str(), GENERIC_READ, dwShared, nullptr,
                                               OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        }
        EXPECT_THAT(found(), ElementsAre(L"config.xml", L"copied.ini"));
    }
    pending.push_back({.tstrSource = folder / L"Component\\a.dll", .tstrDestination = {}});
    EXPECT_THAT(CheckReadiness({machine, update, folder, plan, pending}).findings,
                Contains(Field(&ReadyFinding::uNumber, 4U)));
}
