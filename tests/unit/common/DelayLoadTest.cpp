#include "runtime/DelayLoad.h"
#include "runtime/DelayTable.h"

#include "DelayedLibraries.h"

#include <gtest/gtest.h>

extern "C" const IMAGE_DOS_HEADER __ImageBase;
extern "C" FARPROC __imp_GetDoubleClickTime;

namespace {

// The unchanged entry of a function that no other code here calls.
const FARPROC g_pStub = __imp_GetDoubleClickTime;

template <class Target>
Target* At(ULONGLONG ullRva)
{
    return reinterpret_cast<Target*>(reinterpret_cast<ULONG_PTR>(&__ImageBase) + ullRva);
}

/// Sets the protection of every entry of the tables.
void Protect(DWORD dwProtection)
{
    for (const ImgDelayDescr* pLibrary : kDelayedLibraries) {
        for (auto* pEntry = At<FARPROC>(pLibrary->rvaIAT); *pEntry; ++pEntry) {
            DWORD dwOld = 0;
            EXPECT_TRUE(::VirtualProtect(pEntry, sizeof(*pEntry), dwProtection, &dwOld));
        }
    }
}

bool IsProtected(const FARPROC* pEntry)
{
    MEMORY_BASIC_INFORMATION page{};
    return ::VirtualQuery(pEntry, &page, sizeof(page)) && page.Protect == PAGE_READONLY;
}

// Some linkers put the tables into read-only memory.
TEST(DelayLoadTest, FillsTablesThatCannotBeWritten)
{
    Protect(PAGE_READONLY);
    const char* szMissing = "nothing";
    DWORD dwError = ERROR_SUCCESS;
    EXPECT_TRUE(LoadDelayedLibraries(szMissing, dwError)) << szMissing << ' ' << dwError;
    unsigned cFunctions = 0;
    for (const ImgDelayDescr* pLibrary : kDelayedLibraries) {
        const auto* pName = At<const IMAGE_THUNK_DATA>(pLibrary->rvaINT);
        const HMODULE hModule = ::GetModuleHandleA(At<const char>(pLibrary->rvaDLLName));
        for (auto* pEntry = At<FARPROC>(pLibrary->rvaIAT); *pEntry; ++pEntry, ++pName, ++cFunctions) {
            const char* szName = At<const IMAGE_IMPORT_BY_NAME>(pName->u1.AddressOfData)->Name;
            EXPECT_EQ(::GetProcAddress(hModule, szName), *pEntry) << szName;
            EXPECT_TRUE(IsProtected(pEntry)) << szName << " stays writable";
        }
        EXPECT_FALSE(pName->u1.AddressOfData) << "as many functions as names";
    }
    EXPECT_LT(0U, cFunctions);
    Protect(PAGE_READWRITE);
}

TEST(DelayLoadTest, FirstCallFillsAnEntryThatCannotBeWritten)
{
    StoreDelayedFunction(&__imp_GetDoubleClickTime, g_pStub);
    Protect(PAGE_READONLY);
    EXPECT_LT(0U, ::GetDoubleClickTime());
    EXPECT_NE(g_pStub, __imp_GetDoubleClickTime) << "the next call would search again";
    EXPECT_TRUE(IsProtected(&__imp_GetDoubleClickTime));
    Protect(PAGE_READWRITE);
}

}  // namespace
