// Runs a step so that its failure does not end the run.
#pragma once

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Exception.h"

#include <utility>

/// Runs `step`. Any exception ends only the step and is traced at level 256 under the name `szStep`; the result is then
/// false.
template <class Step>
bool RunGuarded(const wchar_t* szStep, Step&& step)
{
    DWORD dwError = ERROR_SUCCESS;
    if (KzCommon::Storage::Guarded(&dwError, std::forward<Step>(step))) return true;
    KzCommon::Trace(KzCommon::kTraceError, L"*** %s ended early. [0x%08x]", szStep, dwError);
    return false;
}
