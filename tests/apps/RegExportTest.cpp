// `varnick reg export` prints what the library wrote to the registry store.
#include <gtest/gtest.h>

#include <string>

#include "CRegistry.h"
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
        // The line form of each type is the support report's case.
        CRegistry product;
        product.CreateAppKey(L"Software\\Orvane Labs\\Varnick");
        ASSERT_EQ(product.WriteRegSetting(L"Name", L"Varnick \u00e9t\u00e9"), 1);
        CRegistry options;
        options.CreateAppKey(L"Software\\Orvane Labs\\Varnick\\Options");
        ASSERT_EQ(options.WriteRegSetting(L"", L"default text"), 1);
    }
    testsupport::ProgramRun run =
        testsupport::RunToSuccess("varnick", "reg export 'HKCU\\Software\\Orvane Labs'");
    EXPECT_EQ(run.output,
              "HKEY_CURRENT_USER\\Software\\Orvane Labs\n"
              "  (Default),REG_SZ,\"(value not set)\"\n"
              "  HKEY_CURRENT_USER\\Software\\Orvane Labs\\Varnick\n"
              "    (Default),REG_SZ,\"(value not set)\"\n"
              "    Name,REG_SZ,\"Varnick \xC3\xA9t\xC3\xA9\"\n"
              "    HKEY_CURRENT_USER\\Software\\Orvane Labs\\Varnick\\Options\n"
              "      (Default),REG_SZ,\"default text\"\n");
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
    EXPECT_EQ(Varnick("reg import x").exitCode, 2);
    EXPECT_EQ(Varnick("reg export a b").exitCode, 2);
}
