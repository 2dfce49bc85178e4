// What CAppUtils keeps in and reads from the registry: the installation's
// version code and the registry parts of the support link.
#include <gtest/gtest.h>

#include <string>

#include "CAppUtils.h"
#include "CRegistry.h"
#include "platform/WideText.h"
#include "support/RegistryHome.h"

namespace {

constexpr wchar_t kProductKey[] = L"Software\\Orvane Labs\\Varnick";

class AppUtilsRegistry : public testsupport::RegistryHomeTest {
protected:
    static void Store(const wchar_t *name, const wchar_t *text) {
        CRegistry registry;
        registry.CreateAppKey(kProductKey);
        ASSERT_EQ(registry.WriteRegSetting(name, text), 1);
    }
};

}  // namespace

TEST_F(AppUtilsRegistry, VersionCodeIsMadeOnceAndKeptInTheProductKey) {
    const std::wstring code = CAppUtils::GetOrCreateVersionCode();
    ASSERT_FALSE(code.empty());
    EXPECT_GE(std::stoi(code), 1);
    EXPECT_LE(std::stoi(code), 100);

    CRegistry registry;
    registry.SetAppKey(kProductKey);
    DWORD type = 0, size = 0;
    ASSERT_EQ(registry.GetTypeAndSize(L"UIClass", &type, &size), 1);
    EXPECT_EQ(type, REG_SZ);
    EXPECT_EQ(size, code.size() * 2);
    EXPECT_EQ(CAppUtils::GetOrCreateVersionCode(), code);
}

TEST_F(AppUtilsRegistry, AStoredVersionCodeIsReportedAsItStands) {
    Store(L"UIClass", L"B7");
    EXPECT_STREQ(CAppUtils::GetOrCreateVersionCode(), L"B7");
}

TEST_F(AppUtilsRegistry, SupportLinkCarriesEngineVersionCodeAndTheOemValueOnlyWhenStored) {
    Store(L"UIClass", L"42");
    Store(L"EngineVersion", L"1.0.0.1");
    std::wstring url = CAppUtils::GetISupportURL(SUPPORT_PAGE_VCHK, false);
    EXPECT_NE(url.find(L"&v=14&e=1.0.0.1&l="), std::wstring::npos) << platform::ToUtf8(url);
    EXPECT_EQ(url.substr(url.size() - 6), L"&vc=42") << platform::ToUtf8(url);
    EXPECT_EQ(url.find(L"xoem"), std::wstring::npos);

    Store(L"OEM", L"ACME");
    url = CAppUtils::GetISupportURL(SUPPORT_PAGE_VCHK, false);
    EXPECT_EQ(url.substr(url.size() - 16), L"&vc=42&xoem=ACME") << platform::ToUtf8(url);
}
