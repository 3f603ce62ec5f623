// Used by almost every unit test.
#pragma once

#include "common/KzComn_Exception.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_String.h"
#include "support/RecordedTrace.h"
#include "support/RegistryFixture.h"
#include "support/TempFolder.h"
#include "support/watch/SystemWatch.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <set>
#include <thread>

using namespace KzCommon;
using namespace testing;
namespace fs = std::filesystem;

/// The code of the exception that an operation throws; 0 without an exception.
inline long CodeOf(const std::function<void()>& operation)
{
    DWORD dwCode = ERROR_SUCCESS;
    const bool bOk = Storage::Guarded(&dwCode, operation);
    return bOk == (dwCode == ERROR_SUCCESS) ? static_cast<long>(dwCode) : -1;
}

/// Opens a file, shared as given; creates it if it does not exist.
[[nodiscard]] inline UniqueFile HoldFile(const std::wstring& tstrPath, DWORD dwShare = 0)
{
    return UniqueFile(::CreateFileW(tstrPath.c_str(), GENERIC_READ, dwShare, nullptr, OPEN_ALWAYS, 0, nullptr));
}

/// Another program has the file open for a quarter of a second, unshared.
[[nodiscard]] inline std::jthread HoldForAMoment(const std::wstring& tstrPath)
{
    return std::jthread([held = HoldFile(tstrPath)] { ::Sleep(250); });
}

/// In milliseconds.
inline ULONGLONG TimeOf(const std::function<void()>& action)
{
    const ULONGLONG ullStart = ::GetTickCount64();
    action();
    return ::GetTickCount64() - ullStart;
}
