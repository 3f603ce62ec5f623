#include "check/lint/Suppressions.h"

#include "check/update/Update.h"
#include "common/KzComn_String.h"

#include <set>
#include <utility>
#include <vector>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::size_t kMaxWords = 100;

/// Line and rule; line 0 for the whole update.
using Intended = std::set<std::pair<unsigned, std::wstring>>;

Intended ReadIntended(const IniScan& scan)
{
    Intended intended;
    for (const IniComment& comment : scan.Comments()) {
        bool bMore = false;
        const std::vector<std::wstring> words = String::SplitFields(comment.tstrText, L' ', kMaxWords, bMore);
        if (words.empty() || words.front() != L"BrevantCheck:") continue;
        for (const std::wstring& tstrWord : words) intended.emplace(comment.uLine, tstrWord);
    }
    return intended;
}

}  // namespace

void RemoveSuppressed(const IniScan& scan, Report& report)
{
    const Intended intended = ReadIntended(scan);
    if (intended.empty()) return;
    report.Remove([&](const Finding& finding) {
        if (finding.eSeverity == Severity::eError) return false;
        const std::wstring tstrId = IdOf(finding.eRule);
        const bool bInstruction = finding.tstrPath == kInstructionFile;
        return intended.count({0, tstrId}) > 0 || (bInstruction && intended.count({finding.place.uLine, tstrId}) > 0);
    });
}

}  // namespace Check
