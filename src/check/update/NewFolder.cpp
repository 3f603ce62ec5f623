#include "check/update/NewFolder.h"

#include "check/update/HostPaths.h"
#include "check/update/LongPath.h"

#include "common/KzComn_File.h"
#include "common/KzComn_FileReplace.h"
#include "common/KzComn_Result.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace Check {

namespace {

bool MakeFolderOf(const std::wstring& tstrPath, DWORD* pdwError)
{
    return MakeFolder(tstrPath.substr(0, tstrPath.rfind(L'\\')), pdwError);
}

}  // namespace

bool MakeFolder(const std::wstring& tstrFolder, DWORD* pdwError)
{
    const std::wstring tstrPath = LongPath(tstrFolder);
    if (!HostPathOf(tstrFolder)) return Storage::Directory::Create(tstrPath, nullptr, pdwError);
    if (Storage::Directory::IsExisted(tstrPath)) return true;
    const std::wstring tstrAbove = tstrFolder.substr(0, tstrFolder.find_last_not_of(L'\\') + 1);
    if (!MakeFolder(tstrAbove.substr(0, tstrAbove.rfind(L'\\')), pdwError)) return false;
    return ::CreateDirectoryW(tstrPath.c_str(), nullptr) || Storage::Directory::IsExisted(tstrPath) ||
           Storage::Fail(::GetLastError(), pdwError);
}

bool IsFreeFolder(const std::wstring& tstrGiven, Output& output)
{
    const std::wstring tstrPath = LongPath(Storage::Directory::FullPath(tstrGiven));
    bool bFree = !Storage::File::IsExisted(tstrPath);
    if (!bFree) {
        output.tstrErrors += tstrGiven + L": is a file\n";
        return false;
    }
    static_cast<void>(Storage::Directory::ForEachEntry(
        String::EnsureBackslash(tstrPath), L"*", [&](const Storage::Directory::Entry&) { bFree = false; }, nullptr));
    if (!bFree) output.tstrErrors += tstrGiven + L": is not empty; name a new folder or an empty one\n";
    return bFree;
}

bool WriteNewFile(const std::wstring& tstrPath, std::string_view strBytes, DWORD* pdwError)
{
    Storage::File::Replacement file(LongPath(tstrPath));
    return MakeFolderOf(tstrPath, pdwError) && file.Create({}, FILE_ATTRIBUTE_NORMAL, pdwError) &&
           file.Write(strBytes, pdwError) && file.TakePlace(pdwError);
}

bool CopyNewFile(const std::wstring& tstrPath, const std::wstring& tstrSource, DWORD* pdwError)
{
    if (!MakeFolderOf(tstrPath, pdwError)) return false;
    return ::CopyFileW(LongPath(tstrSource).c_str(), LongPath(tstrPath).c_str(), TRUE) ||
           Storage::Fail(::GetLastError(), pdwError);
}

std::string ToUtf16File(const std::wstring& tstrText)
{
    constexpr std::string_view kMark = "\xFF\xFE";
    return std::string(kMark) +
           std::string(reinterpret_cast<const char*>(tstrText.data()), tstrText.size() * sizeof(wchar_t));
}

}  // namespace Check
