// `varnick reg export` prints what the library wrote to the registry store.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CRegistry.h"
#include "platform/WideText.h"
#include "support/ProgramRun.h"
#include "support/RegistryHome.h"

namespace {

testsupport::ProgramRun Varnick(const std::string &arguments) {
    return testsupport::RunProgram("varnick", arguments);
}

using RegExport = testsupport::RegistryHomeTest;

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
