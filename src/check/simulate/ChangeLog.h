// Records the requests of a run to a machine in memory, in the terms of a plan.
#pragma once

#include "common/KzComn_Change.h"

#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace Check {

using KzCommon::Action;
using KzCommon::Change;
using KzCommon::Outcome;

/// The changes of one operation of the run.
struct PlanStep {
    std::wstring tstrName;    ///< the operation's name as in traces
    std::wstring tstrReason;  ///< why the whole operation does nothing
    std::vector<Change> changes;
};

/// Changes by number, in the order in which they were added. A change that turns out to be part of another is erased.
class ChangeLog {
public:
    /// Begins an operation.
    void Begin(std::wstring tstrName);
    /// Explains why the current operation does nothing.
    void ExplainNothing(std::wstring tstrReason);
    /// Adds a remark to the next change, unless that change has its own reason.
    void Explain(std::wstring tstrReason) { m_tstrRemark = std::move(tstrReason); }

    /// Adds a change to the operation; returns its number.
    std::size_t Add(Change change);
    [[nodiscard]] Change& At(std::size_t uNumber) { return m_rows[uNumber].change; }
    [[nodiscard]] const Change& At(std::size_t uNumber) const { return m_rows[uNumber].change; }
    void Erase(std::size_t uNumber) { m_rows[uNumber].bErased = true; }

    /// Erases a change and all others with the same target.
    void EraseTarget(std::size_t uNumber);
    void ForEach(const std::function<void(Change&)>& visit);

    [[nodiscard]] std::vector<PlanStep> Steps() const;

private:
    struct Row {
        Change change;
        std::size_t uStep = 0;
        bool bErased = false;
    };
    std::vector<PlanStep> m_steps;  // without their changes
    std::deque<Row> m_rows;         // references into it stay valid
    std::wstring m_tstrRemark;
};

}  // namespace Check
