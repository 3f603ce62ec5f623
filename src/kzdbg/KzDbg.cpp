// The exported procedures of "KzDbg64.dll".
#include "common/KzDbg.h"

#include "kzdbg/TraceFile.h"
#include "common/KzComn_Retry.h"

#include <map>
#include <memory>
#include <mutex>
#include <new>

namespace {

using KzDbg::TraceFile;

/// The open traces. A handle is a number that is never used again, so that closed and invalid handles are detected.
class OpenTraces {
public:
    [[nodiscard]] void* Add(std::shared_ptr<TraceFile> trace)
    {
        const std::lock_guard lock(m_lock);
        m_traces.emplace(++m_uLast, std::move(trace));
        return reinterpret_cast<void*>(m_uLast);
    }
    [[nodiscard]] std::shared_ptr<TraceFile> Find(void* pTrace)
    {
        const std::lock_guard lock(m_lock);
        const auto itTrace = m_traces.find(reinterpret_cast<ULONG_PTR>(pTrace));
        return itTrace == m_traces.end() ? nullptr : itTrace->second;
    }
    [[nodiscard]] bool Remove(void* pTrace)
    {
        const std::lock_guard lock(m_lock);
        return m_traces.erase(reinterpret_cast<ULONG_PTR>(pTrace)) != 0;
    }

private:
    std::mutex m_lock;
    std::map<ULONG_PTR, std::shared_ptr<TraceFile>> m_traces;
    ULONG_PTR m_uLast = 0;
};

OpenTraces s_traces;

/// Runs `action` and turns an exception into a code: exceptions must not leave the library.
template <class Action>
DWORD WithoutThrowing(Action&& action) noexcept
{
    try {
        return action();
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (...) {
        return ERROR_INTERNAL_ERROR;
    }
}

}  // namespace

extern "C" {

DWORD __stdcall KzDbgInitialize(void** ppTrace, const DebugLogConfig* pConfig)
{
    if (!ppTrace || !pConfig) return ERROR_INVALID_PARAMETER;
    return WithoutThrowing([&]() -> DWORD {
        auto trace = std::make_shared<TraceFile>(*pConfig);
        const DWORD dwError = trace->Open(pConfig->stOpened);
        // A later line may succeed in opening a file that is in use for a moment. A problem with the folder is
        // permanent, and the trace must not retry it for every line.
        if (dwError != ERROR_SUCCESS && !KzCommon::Storage::IsInUse(dwError)) return dwError;
        *ppTrace = s_traces.Add(std::move(trace));
        return ERROR_SUCCESS;
    });
}

DWORD __stdcall KzDbgTrace(void* pTrace, const SYSTEMTIME* pTime, const wchar_t* szLine)
{
    if (!pTime || !szLine) return ERROR_INVALID_PARAMETER;
    return WithoutThrowing([&]() -> DWORD {
        const std::shared_ptr<TraceFile> trace = s_traces.Find(pTrace);
        return trace ? trace->Append(*pTime, szLine) : ERROR_INVALID_HANDLE;
    });
}

DWORD __stdcall KzDbgUninitialize(void* pTrace)
{
    return WithoutThrowing([&]() -> DWORD { return s_traces.Remove(pTrace) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE; });
}
}
