// Files beside a stand-in library or the program that uses it. Environment variables do not work here: a program
// started after a restart does not inherit them.
#pragma once

#include "common/KzComn_Handle.h"

#include <string>

/// Full path of a file in a module's folder; without a module, in the program's folder.
inline std::wstring BesideModule(HMODULE hModule, const wchar_t* szName)
{
    wchar_t szPath[MAX_PATH] = {};
    const std::wstring tstrPath(szPath, ::GetModuleFileNameW(hModule, szPath, MAX_PATH));
    return tstrPath.substr(0, tstrPath.rfind(L'\\') + 1) + szName;
}

/// Full path of a file in the folder of the library that contains this code.
inline std::wstring BesideLibrary(const wchar_t* szName)
{
    HMODULE hModule = nullptr;
    constexpr DWORD kFlags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    ::GetModuleHandleExW(kFlags, reinterpret_cast<LPCWSTR>(&BesideLibrary), &hModule);
    return BesideModule(hModule, szName);
}

/// Appends a line in UTF-8 to a file.
inline void RecordLine(const std::wstring& tstrPath, const std::wstring& tstrLine)
{
    char szBytes[4096] = {};
    const int cb =
        ::WideCharToMultiByte(CP_UTF8, 0, (tstrLine + L"\r\n").c_str(), -1, szBytes, sizeof(szBytes), nullptr, nullptr);
    const KzCommon::UniqueFile file(::CreateFileW(tstrPath.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr,
                                                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD cbWritten = 0;
    if (cb > 1) ::WriteFile(file.Get(), szBytes, static_cast<DWORD>(cb - 1), &cbWritten, nullptr);
}
