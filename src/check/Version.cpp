#include "check/Version.h"

#include <windows.h>

#include <cstring>

namespace Check {

namespace {

/// Where the fixed part of a version resource begins: behind three numbers, the key "VS_VERSION_INFO" and a gap.
constexpr DWORD kFixedPart = 40;

VS_FIXEDFILEINFO ReadFixedPart()
{
    VS_FIXEDFILEINFO info{};
    const HMODULE hModule = ::GetModuleHandleW(nullptr);
    const HRSRC hResource = ::FindResourceW(hModule, MAKEINTRESOURCEW(1), RT_VERSION);
    if (!hResource || ::SizeofResource(hModule, hResource) < kFixedPart + sizeof(info)) return info;
    const auto* pbData = static_cast<const BYTE*>(::LockResource(::LoadResource(hModule, hResource)));
    if (pbData) std::memcpy(&info, pbData + kFixedPart, sizeof(info));
    return info;
}

}  // namespace

std::wstring ProgramVersion()
{
    const VS_FIXEDFILEINFO info = ReadFixedPart();
    std::wstring tstrVersion;
    for (const unsigned uPart : {HIWORD(info.dwFileVersionMS), LOWORD(info.dwFileVersionMS),
                                 HIWORD(info.dwFileVersionLS), LOWORD(info.dwFileVersionLS)}) {
        if (!tstrVersion.empty()) tstrVersion += L'.';
        tstrVersion += std::to_wstring(uPart);
    }
    return tstrVersion;
}

}  // namespace Check
