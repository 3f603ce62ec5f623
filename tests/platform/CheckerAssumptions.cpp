// Restart Manager, the event log, signatures, and what else "ready" and "verify" ask Windows for.
#include "Assumptions.h"

#include "check/ready/FilesInUse.h"
#include "check/update/OpenFolder.h"
#include "check/verify/EventLog.h"
#include "check/verify/PendingMoves.h"
#include "check/verify/Signature.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_WindowsMachine.h"

#include <shlobj.h>

#include <cstdlib>

using namespace Check;
using namespace KzCommon;
using namespace std::string_view_literals;

namespace Platform {

namespace {

/// This program has the file open.
Text NameUsers(const Text& tstrFolder, DWORD)
{
    const UniqueFile file = Open(WriteFileAt(tstrFolder + L"config.xml", ""), GENERIC_READ, FILE_SHARE_READ);
    const Text tstrUsers = UsersOf(tstrFolder + L"config.xml");
    return tstrUsers.find(L"WindowsTrial") != Text::npos ? L"named" : L"named \"" + tstrUsers + L"\"";
}

// -- the event log --

/// The messages of "BrevantCheck.exe" beside this program: their numbers and the beginning of each.
Text ListMessages(const Text&, DWORD)
{
    const Text tstrProgram = Process::ResolveBesideProgram(L"BrevantCheck.exe");
    const UniqueModule program(::LoadLibraryExW(tstrProgram.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE));
    constexpr DWORD kFlags = FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_IGNORE_INSERTS;
    Text tstrFound;
    for (DWORD dw = 0; dw < 6; ++dw) {
        wchar_t szText[64] = {};
        if (::FormatMessageW(kFlags, program.Get(), dw, 0, szText, 64, nullptr))
            tstrFound += std::to_wstring(dw) + Text(szText, 2);
    }
    return tstrFound;
}

/// Writes an event, which stays in the log, and reads it as the event viewer shows it; the source is registered as the
/// guide says, or not.
Text WriteAndReadEvent(const Text& tstrFolder, DWORD dwRegister)
{
    const Text tstrProgram = Process::ResolveBesideProgram(L"BrevantCheck.exe");
    const Text tstrKey = L" HKLM\\SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\BrevantCheck ";
    const auto run = [](const Text& tstrCommand) {
        return ::_wsystem((tstrCommand + L" 2>nul").c_str()) == 0;
    };
    if (!Exists(tstrProgram) || !::IsUserAnAdmin() || run(L"reg query" + tstrKey + L">nul")) return {};
    if (dwRegister)
        run(L"reg add" + tstrKey + L"/v EventMessageFile /t REG_EXPAND_SZ /d \"" + tstrProgram + L"\" >nul");
    Record record;
    record.eVerdict = MachineVerdict::ePending;
    DWORD dwError = ERROR_SUCCESS;
    const Text tstrDone = OutcomeOf(WriteEvent(record, &dwError), dwError);
    ::Sleep(1000);  // until the log has it
    run(L"wevtutil qe Application /c:1 /rd:true /f:RenderedXml \"/q:*[System[Provider[@Name='BrevantCheck'] and "
        L"TimeCreated[timediff(@SystemTime) <= 5000]]]\" >\"" +
        tstrFolder + L"event.xml\"");
    if (dwRegister) run(L"reg delete" + tstrKey + L"/f >nul");
    const std::string strEvent = ReadFileAt(tstrFolder + L"event.xml");
    if (strEvent.find(">2</EventID>") == std::string::npos) return tstrDone + L", not in the log";
    return tstrDone + L", number 2" +
           (strEvent.find("<Message>The update waits") != std::string::npos ? L" and text" : L"");
}

// -- signatures --

/// With line ends of both kinds.
constexpr char kKey[] =
    "-----BEGIN PUBLIC KEY-----\r\n"
    "MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEbRwFE1T+P0PIhfd6YLwWFnQWmKen\n"
    "h8DsVb6aJa2xLn7oPr1FX3s+nWeepN64DwaizLvRYJUfrNYdwDqp0fYYOw==\n"
    "-----END PUBLIC KEY-----\n";
/// Of "manifest". Its first number is short by a byte, its second has a zero in front, as DER wants it.
constexpr std::string_view kSignature =
    "0D\x02\x1f,X\xe3k\x66\xba\xedm\x9f\xa0\x85\x90(\x9e|\xa5\x9d\xf8%\xab\xb0\x36\x30[5u\xe2\x42Q\xed\xcc\x02!\0\x95"
    "\xf0UP_\xe7\f}\xe2\x97$\x84\x39\x05[\xef\xe1\x87W\xec\x9d\v/\xf6\xaayp\xb1K\xc4\xa1\x65"sv;

Text CheckSignature(const Text&, DWORD)
{
    PublicKey key;
    if (!key.Read(kKey, nullptr)) return L"no key";
    if (!key.HasSigned("manifest", kSignature)) return L"refused";
    return key.HasSigned("Manifest", kSignature) ? L"accepted, for another text, too" : L"accepted";
}

// -- the machine --

enum { eFastStartup, eFreeSpace, eRights };

Text AskMachine(const Text& tstrFolder, DWORD dwWhat)
{
    const WindowsMachine machine;
    DWORD dwError = ERROR_SUCCESS;
    const RegistryPlace place{.tstrKeyPath = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Power",
                              .tstrName = L"HiberbootEnabled"};
    RegistryData data = DWORD{0};
    if (dwWhat == eFastStartup) return machine.ReadValue(place, data, nullptr) ? L"a number" : L"no number";
    const Text tstrVolume = machine.VolumeOf(tstrFolder).tstrMountPoint;
    if (dwWhat == eFreeSpace) return Outcome(::GetDiskFreeSpaceExW(tstrVolume.c_str(), nullptr, nullptr, nullptr));
    const Text tstrRoot = machine.VolumeOf(Process::WindowsFolder()).tstrMountPoint;
    Text tstrRights = IsOpenToUsers(tstrRoot, &dwError, kExchangeRightsInRoot).value_or(true) ? L"open" : L"closed";
    for (const Text& tstr : {Process::WindowsFolder(), tstrRoot + L"Program Files", Process::CommonAppDataFolder()})
        tstrRights += IsOpenToUsers(tstr, &dwError).value_or(true) ? L", open" : L", closed";
    return tstrRights;
}

/// Schedules a replacement and a deletion, and notes how the list shows them.
void DelayAndList(const Text& tstrFolder, DWORD)
{
    const Text tstrOne = WriteFileAt(tstrFolder + L"one", ""), tstrTwo = WriteFileAt(tstrFolder + L"two", "");
    Delay(tstrOne, tstrTwo.c_str());
    Delay(tstrTwo);
    std::string strListed;
    for (const PendingMove& move : ReadPendingMoves(WindowsMachine())) {
        if (move.tstrSource == tstrOne && move.tstrDestination == tstrTwo && move.bReplace) strListed += "replaced, ";
        if (move.tstrSource == tstrTwo && move.tstrDestination.empty()) strListed += "deleted";
    }
    WriteFileAt(tstrFolder + L"listed", strListed);
}

Text ShowListed(const Text& tstrFolder, DWORD)
{
    const std::string strListed = ReadFileAt(tstrFolder + L"listed");
    return {strListed.begin(), strListed.end()};
}

constexpr wchar_t kBeside[] = L"run it as an administrator, beside a BrevantCheck.exe that is not registered";

// question, assumed, Wine 8 | Wine 10 where they differ, what depends on it
// clang-format off
constexpr Assumption kCheckerRows[] = {
    {L"the program that has a file open, by Restart Manager", L"named", L"named \"\"", L"\"ready\" says what to end", &NameUsers},
    {L"the messages in BrevantCheck.exe", L"1%12%13%14%1", nullptr, L"events with a text", &ListMessages, 0, nullptr, kBeside},
    {L"an event of another source", L"done, number 2", L"done, not in the log", L"its exit code is the same", &WriteAndReadEvent, FALSE, nullptr, kBeside},
    {L"an event of a registered source", L"done, number 2 and text", L"done, not in the log", L"\"verify --event-log\"", &WriteAndReadEvent, TRUE, nullptr, kBeside},
    {L"a signature by openssl, with a short and a long number", L"accepted", nullptr, L"\"check-signature\" and \"verify --key\"", &CheckSignature},
    {L"the value of Fast Startup", L"a number", L"no number", L"\"ready\" advises to restart", &AskMachine, eFastStartup},
    {L"the free space of a folder's volume", L"done", nullptr, L"\"ready\" names a full drive", &AskMachine, eFreeSpace},
    {L"users' rights to exchange what is in C:\\, and in the folders of Windows, programs and their data", L"closed, closed, closed, open", L"closed, closed, closed, closed", L"folders that \"ready\" and \"check-signature\" trust", &AskMachine, eRights},
    {L"a delayed replacement and a delayed deletion in the list", L"replaced, deleted", nullptr, L"\"ready\" and \"verify\" know what waits", &ShowListed, 0, &DelayAndList},
};
// clang-format on

}  // namespace

std::span<const Assumption> CheckerAssumptions()
{
    return kCheckerRows;
}

}  // namespace Platform
