// Whose rights count as those of standard users, with the descriptors of Windows 10 and 11.
#include "unit/check/CheckFixture.h"

#include "check/update/UserRights.h"

#include <sddl.h>

// A descriptor, and what it lets standard users do: nothing (0), change the place (1), also put something else in the
// place of a folder in it (2), even if the place is the root of a drive (3).
// "&": of the system, with full rights for it and administrators; "@": these rights; "#": a domain; "%": the Windows
// installer.
// clang-format off
static constexpr std::pair<const wchar_t*, int> kRows[] = {
    // C:\, C:\Program Files, C:\Program Files\X
    {L"O:%D:PAI@(A;OICI;0x1200a9;;;BU)(A;OICIIO;SDGXGWGR;;;AU)(A;;LC;;;AU)", 1},
    {L"O:%D:PAI(A;;FA;;;%)(A;CIIO;GA;;;%)(A;;0x1301bf;;;SY)(A;;0x1301bf;;;BA)(A;;0x1200a9;;;BU)(A;OICIIO;GXGR;;;BU)(A;OICIIO;GA;;;CO)(A;;0x1200a9;;;S-1-15-2-1)", 0},
    {L"O:BAD:AI(A;ID;FA;;;%)(A;CIIOID;GA;;;%)@(A;ID;0x1200a9;;;BU)(A;OICIIOID;GXGR;;;BU)(A;OICIIOID;GA;;;CO)(A;ID;0x1200a9;;;S-1-15-2-2)", 0},
    // C:\X, D:\ of a new data drive
    {L"O:BAD:AI@(A;OICIID;0x1200a9;;;BU)(A;ID;0x1301bf;;;AU)(A;OICIIOID;SDGXGWGR;;;AU)", 2}, {L"O:BAD:@(A;OICIIO;SDGXGWGR;;;AU)(A;;0x1301bf;;;AU)", 2},
    // C:\ProgramData, C:\ProgramData\X, C:\Windows\Temp
    {L"O:SYD:PAI@(A;OICIIO;GA;;;CO)(A;OICI;0x1200a9;;;BU)(A;CI;DCLCRPCR;;;BU)", 1}, {L"O:BAD:AI@(A;CIID;DCLCRPCR;;;BU)", 1}, {L"O:SYD:PAI@(A;CI;0x100026;;;BU)(A;OICIIO;FA;;;CO)", 1},
    // C:\Users, C:\Users\me, C:\Users\me\Downloads
    {L"O:SYD:PAI@(A;;0x1200a9;;;BU)(A;OICIIO;GXGR;;;BU)(A;;0x1200a9;;;WD)", 0}, {L"&(A;OICI;FA;;;#-1001)", 3}, {L"O:#-1001D:AI@(A;OICIID;FA;;;#-1001)", 3},
    // owners, who can rewrite the list; administrators
    {L"O:#-1001D:P@", 3}, {L"O:#-1001D:P@(A;;0x1200a9;;;S-1-3-4)", 3}, {L"D:P@", 3}, {L"O:#-500D:P@(A;;FA;;;#-512)(A;;FA;;;#-519)(A;;FA;;;S-1-5-80-0)(A;;FA;;;CO)(A;;FA;;;S-1-3-4)", 0},
    // Domain Users, Power Users, every user of a domain; identifiers of another length or authority
    {L"&(A;;0x1301bf;;;#-513)", 2}, {L"&(A;;FA;;;S-1-5-32-547)", 3}, {L"&(A;;FA;;;S-1-5-21-0-0-0-497)", 3}, {L"&(A;;FA;;;S-1-5-21-1-2-500)", 3}, {L"&(A;;FA;;;S-1-5-32-544-500)", 3}, {L"&(A;;FA;;;S-1-1-18)", 3}, {L"&(A;;FA;;;S-1-261-18)", 3},
    // the attributes, deleting what is in it, becoming the owner; denied rights; an empty list, and none
    {L"&(A;;0x100;;;BU)", 1}, {L"&(A;;DT;;;BU)", 3}, {L"&(A;;WO;;;BU)", 3}, {L"&(D;;FA;;;WD)(A;;WD;;;BU)", 3}, {L"&(D;;FA;;;WD)", 0}, {L"O:SYD:P", 0}, {L"O:SY", 3},
};
// clang-format on

TEST(UserRightsTest, OnlyAdministratorsMayChangeASafePlace)
{
    for (const auto& [szSddl, iExpected] : kRows) {
        std::wstring tstrSddl = szSddl;
        KzCommon::String::ReplaceAll(tstrSddl, L"&", L"O:SYD:P@");
        KzCommon::String::ReplaceAll(tstrSddl, L"@", L"(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
        KzCommon::String::ReplaceAll(tstrSddl, L"#", L"S-1-5-21-1-2-3");
        KzCommon::String::ReplaceAll(tstrSddl, L"%", L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464");
        SCOPED_TRACE(KzCommon::String::ToUtf8(tstrSddl));
        PSECURITY_DESCRIPTOR pDescriptor = nullptr;
        ASSERT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(tstrSddl.c_str(), SDDL_REVISION_1,
                                                                           &pDescriptor, nullptr));
        EXPECT_EQ(iExpected, GrantsUsers(pDescriptor, kChangeRights) + GrantsUsers(pDescriptor, kExchangeRights) +
                                 GrantsUsers(pDescriptor, kExchangeRightsInRoot));
        ::LocalFree(pDescriptor);
    }
}
