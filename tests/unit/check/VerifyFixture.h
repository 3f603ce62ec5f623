// An update and a machine, each in its own folder, and the "verify" results.
#pragma once

#include "check/verify/Verify.h"
#include "common/KzComn_WindowsMachine.h"
#include "unit/check/CheckFixture.h"

/// An update in one folder, and a machine with its registry in another.
class VerifyTest : public UpdateTest {
protected:
    VerifyTest() { WriteProduct(L"ProductPath", m_machine.Path()); }

    [[nodiscard]] ExpectedState Collect() const
    {
        ExpectedState expected;
        std::wstring tstrErrors;
        EXPECT_TRUE(CollectExpectedState(Open(), expected, tstrErrors)) << tstrErrors;
        return expected;
    }
    /// "VERDICT what" for each item, without the install folder and the key, after the exit code.
    template <class AnyMachine = KzCommon::WindowsMachine>
    [[nodiscard]] std::vector<std::string> Verify(const ExpectedState& expected,
                                                  const std::wstring& tstrPending = {}) const
    {
        MachineFolders folders(m_machine.Path(), expected.tstrProduct);
        std::wstring tstrRaw;
        KzCommon::String::ReplaceAll(tstrRaw = tstrPending, L"@", L"\\??\\" + m_machine.Path());
        std::replace(tstrRaw.begin(), tstrRaw.end(), L'|', L'\0');
        const AnyMachine machine;
        ContentReader contents;
        VerifyContext context{machine,  contents,    folders, PendingPlaces(machine, ParsePendingMoves(tstrRaw)),
                              L"de-de", m_optArrived};
        const std::vector<VerifyResult> results = VerifyState(expected, context);
        std::vector<std::string> found{std::to_string(ExitCodeOf(results))};
        std::wstring tstrText = FormatResults(results, L"");
        KzCommon::String::ReplaceAll(tstrText, m_machine.Path(), L"");
        KzCommon::String::ReplaceAll(tstrText, L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Vault: ", L"");
        while (tstrText.find(L"  ") != std::wstring::npos) KzCommon::String::ReplaceAll(tstrText, L"  ", L" ");
        std::istringstream text(KzCommon::String::ToUtf8(tstrText));
        for (std::string strLine; std::getline(text, strLine);) found.push_back(strLine);
        found.pop_back();  // the counts
        return found;
    }

    TempFolder m_machine;
    std::optional<ULONGLONG> m_optArrived;  // the time of the update's arrival
};
