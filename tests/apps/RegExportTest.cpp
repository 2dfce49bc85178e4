// `varnick reg export` prints what the library wrote to the registry store.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "CRegistry.h"
#include "platform/Registry.h"
#include "platform/WideText.h"
#include "support/ProgramRun.h"
#include "support/TempHome.h"

namespace {

testsupport::ProgramRun Varnick(const std::string &arguments) {
    return testsupport::RunProgram("varnick", arguments);
}

class RegExport : public testsupport::HomeTest {
protected:
    void TearDown() override { platform::CloseRegistryConnections(); }
};

}  // namespace

TEST_F(RegExport, PrintsAKeyWrittenByCRegistryWithEverythingBelowIt) {
    {
        CRegistry product;
        product.CreateAppKey(L"Software\\Orvane Labs\\Varnick");
        DWORD count = 7;
        BYTE data[] = {0x01, 0xFF};
        ASSERT_EQ(product.WriteRegSetting(L"Name", L"Varnick \u00e9t\u00e9"), 1);
        ASSERT_EQ(product.WriteRegSetting(L"Count", &count), 1);
        ASSERT_EQ(product.WriteRegSetting(L"Data", static_cast<void *>(data), DWORD{2}), 1);
        ASSERT_EQ(product.WriteRegSetting(L"Path", true, L"%HOME%", 12u), 1);
        std::vector<BYTE> list = platform::ToUtf16Bytes(std::wstring(L"a\0b\0\0", 5));
        ASSERT_EQ(product.WriteRegSetting(L"List", list.data(), static_cast<int>(list.size())), 1);
        CRegistry options;
        options.CreateAppKey(L"Software\\Orvane Labs\\Varnick\\Options");
        DWORD level = 0xFFFFFFFF;
        ASSERT_EQ(options.WriteRegSetting(L"Level", &level), 1);
        ASSERT_EQ(options.WriteRegSetting(L"", L"default text"), 1);
    }
    testsupport::ProgramRun run = Varnick("reg export 'HKCU\\Software\\Orvane Labs'");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_EQ(run.output,
              "HKEY_CURRENT_USER\\Software\\Orvane Labs\n"
              "  (Default),REG_SZ,\"(value not set)\"\n"
              "  HKEY_CURRENT_USER\\Software\\Orvane Labs\\Varnick\n"
              "    (Default),REG_SZ,\"(value not set)\"\n"
              "    Name,REG_SZ,\"Varnick \xC3\xA9t\xC3\xA9\"\n"
              "    Count,REG_DWORD,7\n"
              "    Data,REG_BINARY,01,ff\n"
              "    Path,REG_EXPAND_SZ\n"
              "    List,REG_MULTI_SZ\n"
              "    HKEY_CURRENT_USER\\Software\\Orvane Labs\\Varnick\\Options\n"
              "      (Default),REG_SZ,\"default text\"\n"
              "      Level,REG_DWORD,-1\n");
}

TEST_F(RegExport, ShowsEveryTypeAndCutsDataAtOneKilobyte) {
    HKEY key = nullptr;
    DWORD disposition = 0;
    ASSERT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, L".vnk", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                              &key, &disposition),
              ERROR_SUCCESS);
    std::vector<BYTE> big(1100, 0xAB);
    const std::uint64_t quad = 5;
    ASSERT_EQ(RegSetValueExW(key, L"None", 0, REG_NONE, nullptr, 0), ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExW(key, L"Big", 0, REG_BINARY, big.data(), 1100), ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExW(key, L"Quad", 0, REG_QWORD, reinterpret_cast<const BYTE *>(&quad), 8),
              ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExW(key, L"Odd", 0, 42, big.data(), 3), ERROR_SUCCESS);
    RegCloseKey(key);

    testsupport::ProgramRun run = Varnick("reg export 'hkey_classes_root\\.VNK'");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    std::string bigLine = "  Big,REG_BINARY";
    for (int i = 0; i < 1024; ++i) bigLine += ",ab";
    EXPECT_EQ(run.output,
              "HKEY_CLASSES_ROOT\\.VNK\n"
              "  (Default),REG_SZ,\"(value not set)\"\n"
              "  None,REG_NONE\n" +
                  bigLine +
                  "\n"
                  "  Quad,REG_QWORD\n"
                  "  Odd,ERROR_UNDEFINED,\n");
}

TEST_F(RegExport, AMissingKeyIsAnErrorAndBadUsageIsTwo) {
    testsupport::ProgramRun missing = Varnick("reg export 'HKCU\\Software\\Nowhere'");
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.output.find("HKEY_CURRENT_USER\\Software\\Nowhere: no such key"),
              std::string::npos)
        << missing.output;

    testsupport::ProgramRun hive = Varnick("reg export 'HKXX\\Software'");
    EXPECT_EQ(hive.exitCode, 2);
    EXPECT_NE(hive.output.find("unknown hive"), std::string::npos) << hive.output;
    EXPECT_EQ(Varnick("reg").exitCode, 2);
    EXPECT_EQ(Varnick("reg import x").exitCode, 2);
    EXPECT_EQ(Varnick("reg export a b").exitCode, 2);
}
