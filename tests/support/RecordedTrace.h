// Records the trace of the code under test:
//
//     RecordedTrace trace;
//     DoSomething();
//     EXPECT_THAT(trace.Messages(), Contains("!!! *** DoSomething() failed. [0x00000002]"));
#pragma once

#include "support/TempFolder.h"

#include <gmock/gmock.h>
#include <windows.h>

#include <string>
#include <vector>

/// The lines of a trace.
class TraceLines {
public:
    /// As received, with line ends.
    [[nodiscard]] const std::vector<std::wstring>& Lines() const noexcept { return m_lines; }
    /// The lines in UTF-8 as "TAG message", without time, ids, module and place; TAG is ".w." for level 1, "@@@" for
    /// 16, "!!!" for 256.
    [[nodiscard]] std::vector<std::string> Messages() const;
    /// The number of messages that match.
    [[nodiscard]] std::ptrdiff_t Count(const testing::Matcher<const std::string&>& message) const;
    void Clear() { m_lines.clear(); }

protected:
    std::vector<std::wstring> m_lines;
};

/// Opens the process-wide trace without a library, module "Test"; the destructor closes it.
class RecordedTrace : public TraceLines {
public:
    explicit RecordedTrace(DWORD dwLevelMask = 0x111);
    RecordedTrace(const RecordedTrace&) = delete;
    RecordedTrace& operator=(const RecordedTrace&) = delete;
    ~RecordedTrace();
};
