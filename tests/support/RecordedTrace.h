// Records the trace of the code under test with a stand-in for the trace library:
//
//     RecordedTrace trace;
//     DoSomething();
//     EXPECT_THAT(trace.Messages(), Contains("!!! *** DoSomething() failed. [0x00000002]"));
#pragma once

#include "common/KzComn_Handle.h"
#include "support/TempFolder.h"
#include "support/dll/KzDbg64/TraceSink.h"

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <vector>

/// Loads the stand-in library and receives its calls during its lifetime; does not open a trace. Only one at a time.
class TraceRecorder : public TraceSink {
public:
    TraceRecorder();
    TraceRecorder(const TraceRecorder&) = delete;
    TraceRecorder& operator=(const TraceRecorder&) = delete;
    virtual ~TraceRecorder();

    /// The folder of the stand-in "KzDbg64.dll", with trailing backslash.
    [[nodiscard]] static std::wstring LibraryFolder();

    /// The lines as received, with line ends.
    [[nodiscard]] const std::vector<std::wstring>& Lines() const noexcept { return m_lines; }
    /// The lines in UTF-8 as "TAG message", without time, ids, module and place; TAG is ".w." for level 1, "@@@" for
    /// 16, "!!!" for 256.
    [[nodiscard]] std::vector<std::string> Messages() const;
    /// The number of messages that match.
    [[nodiscard]] std::ptrdiff_t Count(const testing::Matcher<const std::string&>& message) const;
    void Clear() { m_lines.clear(); }

    DebugLogConfig m_config{};                         // the settings passed to the library
    DWORD m_dwInitializeResult = ERROR_SUCCESS;        // its result for them
    std::function<void(const char* szCall)> m_onCall;  // called first in each call: "open", "line", "close"

private:
    DWORD OnInitialize(void** ppTrace, const DebugLogConfig* pConfig) override;
    DWORD OnTrace(void* pTrace, const SYSTEMTIME* pTime, const wchar_t* szLine) override;
    DWORD OnUninitialize(void* pTrace) override;
    void SetSink(TraceSink* pSink) const;

    KzCommon::UniqueModule m_hModule;
    std::vector<std::wstring> m_lines;
};

/// Opens the process-wide trace with the stand-in library, module "Test"; the destructor closes it. Its settings come
/// from a file, so that tests may change the registry freely.
class RecordedTrace : public TraceRecorder {
public:
    explicit RecordedTrace(DWORD dwLevelMask = 0x111);
    ~RecordedTrace() override;

private:
    TempFolder m_folder;
};
