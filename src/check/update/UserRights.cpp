#include "check/update/UserRights.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace Check {

namespace {

constexpr DWORD kAny = 0xFFFFFFFF;

/// An identity by the numbers of its identifier: S-1-authority-number-number...
struct Identity {
    BYTE bAuthority;
    std::size_t cNumbers;
    DWORD numbers[6];
};

/// Everybody else is a standard user, members of other groups of Windows included.
constexpr Identity kTrusted[] = {
    {5, 1, {18}},                                // the system
    {5, 2, {32, 544}},                           // Administrators
    {5, 2, {80, 0}},                             // all services
    {5, 6, {80, kAny, kAny, kAny, kAny, kAny}},  // one service, such as the Windows installer
    {5, 5, {21, kAny, kAny, kAny, 500}},         // the built-in Administrator
    {5, 5, {21, kAny, kAny, kAny, 512}},         // Domain Admins
    {5, 5, {21, kAny, kAny, kAny, 519}},         // Enterprise Admins
    // Nobody's: they grant nothing in an entry, and the owner is judged for himself.
    {3, 1, {0}},                  // CREATOR OWNER
    {3, 1, {4}},                  // OWNER RIGHTS
    {5, 5, {21, 0, 0, 0, 1000}},  // Wine's only user, its administrator; no Windows machine has this identifier
};

bool IsTrusted(PSID pSid)
{
    if (!::IsValidSid(pSid)) return false;
    const BYTE(&authority)[6] = ::GetSidIdentifierAuthority(pSid)->Value;
    const std::size_t cNumbers = *::GetSidSubAuthorityCount(pSid);
    if (std::any_of(std::begin(authority), std::end(authority) - 1, [](BYTE b) { return b != 0; })) return false;
    return std::any_of(std::begin(kTrusted), std::end(kTrusted), [&](const Identity& identity) {
        bool bSame = identity.bAuthority == authority[5] && identity.cNumbers == cNumbers;
        for (DWORD u = 0; bSame && u < cNumbers; ++u) {
            bSame = identity.numbers[u] == kAny || identity.numbers[u] == *::GetSidSubAuthority(pSid, u);
        }
        return bSame;
    });
}

bool GrantsUsers(const ACCESS_ALLOWED_ACE& entry, ACCESS_MASK rights)
{
    if ((entry.Header.AceFlags & INHERIT_ONLY_ACE) || !(entry.Mask & rights)) return false;
    switch (entry.Header.AceType) {
        case ACCESS_DENIED_ACE_TYPE:
        case ACCESS_DENIED_CALLBACK_ACE_TYPE: return false;
        case ACCESS_ALLOWED_ACE_TYPE:
        case ACCESS_ALLOWED_CALLBACK_ACE_TYPE:  // its condition follows the identifier
            return !IsTrusted(const_cast<DWORD*>(&entry.SidStart));
        default: return true;  // an entry of a kind that files do not have
    }
}

}  // namespace

bool GrantsUsers(PSECURITY_DESCRIPTOR pDescriptor, ACCESS_MASK rights)
{
    BOOL bPresent = FALSE;
    BOOL bDefaulted = FALSE;
    PSID pOwner = nullptr;
    PACL pList = nullptr;
    if (!::GetSecurityDescriptorOwner(pDescriptor, &pOwner, &bDefaulted) || !pOwner || !IsTrusted(pOwner) ||
        !::GetSecurityDescriptorDacl(pDescriptor, &bPresent, &pList, &bDefaulted) || !bPresent || !pList) {
        return true;
    }
    for (DWORD uEntry = 0; uEntry < pList->AceCount; ++uEntry) {
        void* pEntry = nullptr;
        if (!::GetAce(pList, uEntry, &pEntry) || GrantsUsers(*static_cast<ACCESS_ALLOWED_ACE*>(pEntry), rights)) {
            return true;
        }
    }
    return false;
}

}  // namespace Check
