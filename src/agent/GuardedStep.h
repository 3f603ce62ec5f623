// One step of the run that must not end the others.
#pragma once

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Exception.h"

#include <utility>

/// Runs `step`. An exception, of whatever kind, ends the step and not the run: it is traced, with what `szStep` calls
/// the step, at level 256. False then.
template <class Step>
bool RunGuarded(const wchar_t* szStep, Step&& step)
{
    DWORD dwError = ERROR_SUCCESS;
    if (KzCommon::Storage::Guarded(&dwError, std::forward<Step>(step))) return true;
    KzCommon::Trace(KzCommon::kTraceError, L"*** %s ended early. [0x%08x]", szStep, dwError);
    return false;
}
