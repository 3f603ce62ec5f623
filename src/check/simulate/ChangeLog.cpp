#include "check/simulate/ChangeLog.h"

#include "common/KzComn_String.h"

#include <utility>

using namespace KzCommon;

namespace Check {

void ChangeLog::Begin(std::wstring tstrName)
{
    m_tstrRemark.clear();
    if (m_steps.empty() || m_steps.back().tstrName != tstrName) m_steps.push_back({std::move(tstrName), {}, {}});
}

void ChangeLog::ExplainNothing(std::wstring tstrReason)
{
    if (m_steps.empty()) Begin({});
    m_steps.back().tstrReason = std::move(tstrReason);
}

std::size_t ChangeLog::Add(Change change)
{
    if (m_steps.empty()) Begin({});
    const std::wstring tstrRemark = std::exchange(m_tstrRemark, {});
    if (change.tstrReason.empty()) change.tstrReason = tstrRemark;
    m_rows.push_back({std::move(change), m_steps.size() - 1});
    return m_rows.size() - 1;
}

void ChangeLog::EraseTarget(std::size_t uNumber)
{
    const std::wstring& tstrTarget = m_rows[uNumber].change.tstrTarget;
    for (Row& row : m_rows) row.bErased = row.bErased || String::EqualsNoCase(row.change.tstrTarget, tstrTarget);
}

void ChangeLog::ForEach(const std::function<void(Change&)>& visit)
{
    for (Row& row : m_rows) visit(row.change);
}

std::vector<PlanStep> ChangeLog::Steps() const
{
    std::vector<PlanStep> steps = m_steps;
    for (const Row& row : m_rows) {
        if (!row.bErased) steps[row.uStep].changes.push_back(row.change);
    }
    return steps;
}

}  // namespace Check
