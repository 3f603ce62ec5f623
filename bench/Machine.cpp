#include "Machine.h"

#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_Registry.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

using namespace KzCommon;

namespace Bench {

namespace {

constexpr wchar_t kProductKey[] = L"Software\\Kazmere\\KZVLT";
constexpr wchar_t kTraceKey[] = L"Software\\Kazmere\\KZVLT\\1\\DebugLog\\";
constexpr const wchar_t* kSessions[] = {L"InteractiveSession", L"ServiceSession", L"ProtectedSession"};
constexpr wchar_t kSessionManager[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t kPendingMoves[] = L"PendingFileRenameOperations";
constexpr DWORD kEveryLevel = 0x111;

// The component's own identifier: the name of the package's folder without an "UpdateInfo.ini".
constexpr wchar_t kDownload[] = L"Component\\c21t2103v0.0.0l1p1r1o1\\";
constexpr wchar_t kPackage[] = L"Component\\c21t2103v0.0.0l1p1r1o1\\Share\\";
constexpr struct {
    const wchar_t* szSource;
    const wchar_t* szDestination;
} kFolders[] = {
    {L"Engine\\", L""}, {L"Patterns\\", L"Patterns\\"}, {L"QorFirefoxExt\\", L"QorFirefoxExt\\"},
    {L"UI\\", L""},     {L"Task\\", L"Task\\"},
};

UniqueFile CreateNew(const std::wstring& tstrPath)
{
    UniqueFile file(
        ::CreateFileW(tstrPath.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    Require(file.IsValid(), "a file can be created");
    return file;
}

void CreateFolder(const std::wstring& tstrPath)
{
    Require(Storage::Directory::IsExisted(tstrPath) || Storage::Directory::Create(tstrPath, nullptr, nullptr),
            "a folder can be created");
}

template <class Value>
void SetValue(const std::wstring& tstrKey, const wchar_t* szName, const Value& value)
{
    Require(Storage::Reg::StoreValue(HKEY_LOCAL_MACHINE, tstrKey, szName, value, Storage::eViewDefault, nullptr),
            "the registry can be written");
}

void WriteInstructions(const std::string& strText)
{
    const UniqueFile file = CreateNew(std::wstring(kInstallDir) + L"QorPaFrwk.ini");
    DWORD cbWritten = 0;
    Require(::WriteFile(file.Get(), strText.data(), static_cast<DWORD>(strText.size()), &cbWritten, nullptr),
            "the instruction file can be written");
}

std::string RegistryRecord(unsigned uIndex)
{
    const std::string strName = std::to_string(1000 + uIndex);
    return "add=SOFTWARE\\B!" + strName + "!REG_SZ!" + strName;
}

// The longest text, each line with its terminator, that the growing buffer of a section takes.
constexpr std::size_t kMaxSectionCharacters = 127 * 256 - 3;
constexpr struct {
    const char* szSection;
    std::string (*pfnRecord)(unsigned uIndex);
} kLargestSections[] = {
    {"QOR_REGISTRY_PATCH", RegistryRecord},
    {"QOR_DIR",
     [](unsigned uIndex) {
         return "add=C:\\Bench\\Made\\" + std::to_string(uIndex);
     }},
    {"QOR_FILE",
     [](unsigned uIndex) {
         return "delete=C:\\Bench\\Gone\\" + std::to_string(uIndex);
     }},
    {"UPDATE_INFO",
     [](unsigned uIndex) {
         return "modify=S!" + std::to_string(uIndex) + "!" + std::string(900, 'u');
     }},
    {"QOR_CONFIG_MERGE",
     [](unsigned uIndex) {
         return "migrate=/Setting" + std::to_string(uIndex);
     }},
    {"Run",
     [](unsigned uIndex) {
         return "SysRunOnce=" + std::to_string(uIndex) + std::string(900, 'r');
     }},
};

}  // namespace

bool IsThrowawayMachine()
{
    HKEY hKey = nullptr;
    const bool bProduct = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kProductKey, 0, KEY_QUERY_VALUE, &hKey) == ERROR_SUCCESS;
    if (bProduct) ::RegCloseKey(hKey);
    return !bProduct && CountPendingTexts() == 0;
}

void InstallProduct()
{
    CreateFolder(kInstallDir);
    CreateFolder(kTraceDir);
    SetValue(kProductKey, L"ProductPath", std::wstring(kInstallDir));
    for (const wchar_t* szSession : kSessions) {
        const std::wstring tstrKey = std::wstring(kTraceKey) + szSession;
        for (const wchar_t* szName : {L"LogProcess", L"LogUnitType", L"Robust", L"Debugger", L"Enable"}) {
            SetValue(tstrKey, szName, DWORD{0});
        }
        SetValue(tstrKey, L"Level", kEveryLevel);
        SetValue(tstrKey, L"LogFolder", std::wstring(kTraceDir));
        SetValue(tstrKey, L"LogPrefix", std::wstring(L"KZVLT"));
        SetValue(tstrKey, L"LogFile", std::wstring());
        SetValue(tstrKey, L"LogExtension", std::wstring(L"log"));
    }
}

std::vector<FolderPair> MakePackage(unsigned cFiles, DWORD cbFile)
{
    std::string strContent(cbFile, '\0');
    for (std::size_t uAt = 0; uAt < strContent.size(); ++uAt) strContent[uAt] = static_cast<char>(uAt * uAt >> 8);
    std::vector<FolderPair> folders;
    for (const auto& row : kFolders) {
        folders.push_back(
            {std::wstring(kInstallDir) + kPackage + row.szSource, std::wstring(kInstallDir) + row.szDestination});
        CreateFolder(folders.back().tstrSource);
        CreateFolder(folders.back().tstrDestination);
        static_cast<void>(Storage::Directory::DeleteFiles(folders.back().tstrSource, L"*.*", nullptr));
    }
    for (unsigned uIndex = 0; uIndex < cFiles; ++uIndex) {
        const std::wstring& tstrFolder = folders[uIndex % folders.size()].tstrSource;
        const UniqueFile file = CreateNew(tstrFolder + L"QorComponentFile" + std::to_wstring(uIndex) + L".dll");
        std::memcpy(strContent.data(), &uIndex, std::min(strContent.size(), sizeof(uIndex)));
        DWORD cbWritten = 0;
        Require(::WriteFile(file.Get(), strContent.data(), cbFile, &cbWritten, nullptr), "a file can be written");
    }
    return folders;
}

void EnableTrace(bool bEnable)
{
    for (const wchar_t* szSession : kSessions) {
        SetValue(std::wstring(kTraceKey) + szSession, L"Enable", DWORD{bEnable});
    }
}

std::wstring RecordName(unsigned uIndex)
{
    return std::to_wstring(1000 + uIndex);
}

void WriteRegistryRecords(unsigned cRecords)
{
    std::string strText = "[QOR_REGISTRY_PATCH]\r\n";
    for (unsigned uIndex = 0; uIndex < cRecords; ++uIndex) strText += RegistryRecord(uIndex) + "\r\n";
    WriteInstructions(strText);
}

void WriteUpdateRecords(unsigned cRegistryRecords, unsigned cIniRecords)
{
    CreateFolder(std::wstring(kInstallDir) + kPackage + L"Setting\\");
    std::string strText = "[QOR_REGISTRY_PATCH]\r\n";
    for (unsigned uIndex = 0; uIndex < cRegistryRecords; ++uIndex) strText += RegistryRecord(uIndex) + "\r\n";
    strText += "[UPDATE_INFO]\r\n";
    for (unsigned uIndex = 0; uIndex < cIniRecords; ++uIndex) {
        const std::string strName = std::to_string(1000 + uIndex);
        strText += "modify=COMPONENT_LIST!" + strName + "!" + strName + "\r\n";
    }
    WriteInstructions(strText);
}

std::wstring UpdateInfoPath()
{
    return std::wstring(kInstallDir) + L"UpdateInfo.ini";
}

std::wstring EditedInfoPath()
{
    return std::wstring(kInstallDir) + kDownload + L"UpdateInfo.edited";
}

void WriteLargestInstructions()
{
    CreateFolder(std::wstring(kInstallDir) + kPackage + L"Setting\\");
    std::string strText;
    for (const auto& row : kLargestSections) {
        strText += std::string("[") + row.szSection + "]\r\n";
        std::size_t cchSection = 0;
        for (unsigned uIndex = 0;; ++uIndex) {
            std::string strRecord = row.pfnRecord(uIndex);
            cchSection += strRecord.size() + 1;
            if (cchSection > kMaxSectionCharacters) break;
            strText += strRecord + "\r\n";
        }
    }
    WriteInstructions(strText);
}

void ForgetPendingMoves()
{
    UniqueRegistryKey manager;
    Require(::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManager, 0, KEY_SET_VALUE, manager.Receive()) == ERROR_SUCCESS,
            "the list of pending moves can be opened");
    ::RegDeleteValueW(manager.Get(), kPendingMoves);
}

void Reset()
{
    ForgetPendingMoves();
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kRecordKey);
    ::DeleteFileW((std::wstring(kInstallDir) + kPackage + L"Setting\\UpdateInfo.ini").c_str());
    const UniqueFile updateInfo = CreateNew(UpdateInfoPath());
    CreateFolder(std::wstring(kInstallDir) + kDownload);
    const UniqueFile edited = CreateNew(EditedInfoPath());
    static_cast<void>(Storage::Directory::DeleteFiles(kTraceDir, L"*", nullptr));
}

std::size_t CountPendingTexts()
{
    DWORD cb = 0;
    if (::RegGetValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingMoves, RRF_RT_REG_MULTI_SZ, nullptr, nullptr,
                       &cb) != ERROR_SUCCESS) {
        return 0;
    }
    std::wstring tstrList(cb / sizeof(wchar_t), L'\0');
    Require(::RegGetValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingMoves, RRF_RT_REG_MULTI_SZ, nullptr,
                           tstrList.data(), &cb) == ERROR_SUCCESS,
            "the list of pending moves can be read");
    std::size_t cTexts = 0;
    for (std::size_t uAt = 0; uAt < tstrList.size() && tstrList[uAt]; uAt = tstrList.find(L'\0', uAt) + 1) ++cTexts;
    return cTexts;
}

void Require(bool bOk, const char* szWhat)
{
    if (bOk) return;
    std::fprintf(stderr, "bench: it is not true that %s (last error %lu)\n", szWhat, ::GetLastError());
    std::exit(1);
}

}  // namespace Bench
