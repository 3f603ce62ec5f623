#include "config/ConfigProtection.h"

#include <gtest/gtest.h>

using namespace Config;

namespace {

class ConfigProtectionTest : public ::testing::Test {
protected:
    ConfigProtectionTest() { EXPECT_TRUE(m_protection.Open(kStoreKey, m_dwError)); }

    [[nodiscard]] std::wstring Protected(const std::wstring& tstrClear)
    {
        std::wstring tstrText;
        EXPECT_TRUE(m_protection.Protect(tstrClear, tstrText, m_dwError));
        return tstrText;
    }

    ValueProtection m_protection;
    DWORD m_dwError = ERROR_SUCCESS;
};

}  // namespace

TEST_F(ConfigProtectionTest, ValuesComeBackAndNoTwoTextsAreAlike)
{
    for (const std::wstring& tstrClear : {std::wstring(L"x"), std::wstring(L"p\x00E4ss \xD83D\xDD11"),
                                          std::wstring(L"a\0b", 3), std::wstring(100'000, L's')}) {
        const std::wstring tstrText = Protected(tstrClear);
        EXPECT_NE(tstrText, Protected(tstrClear));
        EXPECT_EQ(tstrText.find_first_of(L"\r\n"), std::wstring::npos);
        Secret<std::wstring> clear;
        ASSERT_TRUE(m_protection.Unprotect(tstrText, clear, m_dwError));
        EXPECT_EQ(clear.value, tstrClear);
    }
    Secret<std::wstring> clear;
    clear.value = L"x";
    EXPECT_TRUE(m_protection.Unprotect(Protected(L""), clear, m_dwError));
    EXPECT_EQ(clear.value, L"");
}

// Files of installed products must stay readable: made with another implementation, nonce 00 01 ... 0B.
TEST_F(ConfigProtectionTest, ReadsTheFormThatInstalledProductsHold)
{
    Secret<std::wstring> clear;
    ASSERT_TRUE(m_protection.Unprotect(L"AAECAwQFBgcICQoLdGJe4AdZrks2Rh0EI2eJX9yzAiygF72tD8ow", clear, m_dwError));
    EXPECT_EQ(clear.value, L"geheim \xD83D\xDD11");
}

TEST_F(ConfigProtectionTest, AnythingElseIsRefused)
{
    constexpr DWORD kTagMismatch = 0xC000A002;
    const std::wstring tstrText = Protected(L"secret");
    Secret<std::wstring> clear;
    // The last character before "==" has bits that stand for nothing.
    for (std::size_t uAt = 0; uAt + 3 < tstrText.size(); ++uAt) {
        std::wstring tstrChanged = tstrText;
        tstrChanged[uAt] = tstrChanged[uAt] == L'A' ? L'B' : L'A';
        EXPECT_FALSE(m_protection.Unprotect(tstrChanged, clear, m_dwError)) << uAt;
        EXPECT_EQ(m_dwError, kTagMismatch);
    }
    for (const std::wstring& tstrBad :
         {std::wstring(L"hunter2!"), std::wstring(L"AAAA"), tstrText.substr(0, 36), tstrText.substr(4)}) {
        EXPECT_FALSE(m_protection.Unprotect(tstrBad, clear, m_dwError)) << tstrBad;
    }
    ValueProtection other;
    ASSERT_TRUE(other.Open(L"another key", m_dwError));
    EXPECT_FALSE(other.Unprotect(tstrText, clear, m_dwError));
    EXPECT_EQ(clear.value, L"");
}
