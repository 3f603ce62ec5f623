#include "check/update/NewFolder.h"

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
    return Storage::Directory::Create(LongPath(tstrPath.substr(0, tstrPath.rfind(L'\\') + 1)), nullptr, pdwError);
}

}  // namespace

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
