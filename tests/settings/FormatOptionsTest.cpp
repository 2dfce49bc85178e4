// CFormatOptionsRepository: the level and extent table from the engine's
// vnkx ranges with its copying quirks, the simple preset, the
// registry in both modes, and the job file with its two quirks.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "CEngine.h"
#include "CFormatOptionsRepository.h"
#include "OptionsTestSupport.h"

namespace {

using optionstore::OptionKey;
using testsupport::ValueNames;

// One range value of a vnkx method, asked of the engine directly; -1 when
// the engine has none.
LONG EngineRange(CEngine &engine, int method, const char *name) {
    SetFormatIntegerProperty(engine.GetEngine(), "vnkx", kFormatPropCompMethod, method);
    int32_t value = -1;
    if (GetFormatIntegerProperty(engine.GetEngine(), "vnkx", name, &value) != 0) return -1;
    return value;
}

using FormatOptionsTest = testsupport::JobFileTest;

TEST_F(FormatOptionsTest, LevelAndExtentTableFollowsTheEngineWithItsThreeCopyingExceptions) {
    CEngine engine;
    ASSERT_NE(engine.GetEngine(), nullptr);
    CFormatOptionsRepository options;
    options.Engine = &engine;
    options.SetLevelAndExtentTable();
    const auto &table = options.LevelAndExtentTable;

    const std::pair<int, const char *> ranges[] = {{kLevelLeast, kFormatPropCompressionLeast},
                                                   {kLevelMost, kFormatPropCompressionMost},
                                                   {kLevelDefault, kFormatPropCompressionDefault},
                                                   {kExtentLeast, kFormatPropCompExtentLeast},
                                                   {kExtentMost, kFormatPropCompExtentMost},
                                                   {kExtentDefault, kFormatPropCompExtentDefault}};
    for (int row = 1; row <= 9; ++row) {
        const bool noLevels = row == 6 || row == 7;
        for (auto [column, property] : ranges)
            EXPECT_EQ(table[row][column],
                      noLevels && column < kExtentDefault ? -1 : EngineRange(engine, row, property))
                << row << "," << column;
    }
    for (int row : {1, 2, 3, 6, 7}) {
        EXPECT_EQ(table[row][kLevelCurrent], table[row][kLevelDefault]) << row;
        EXPECT_EQ(table[row][kExtentCurrent], table[row][kExtentDefault]) << row;
    }
    // Row 5's level default lands in row 4; its own level column stays unset.
    EXPECT_EQ(table[4][kLevelCurrent], table[5][kLevelDefault]);
    EXPECT_EQ(table[4][kExtentCurrent], table[4][kExtentDefault]);
    EXPECT_EQ(table[5][kLevelCurrent], -1);
    EXPECT_EQ(table[5][kExtentCurrent], table[5][kExtentDefault]);
    // Row 9 hands both defaults to row 8.
    EXPECT_EQ(table[8][kLevelCurrent], table[9][kLevelDefault]);
    EXPECT_EQ(table[8][kExtentCurrent], table[9][kExtentDefault]);
    EXPECT_EQ(table[9][kLevelCurrent], -1);
    EXPECT_EQ(table[9][kExtentCurrent], -1);
    // Row 0 is never filled.
    for (LONG cell : table[0]) EXPECT_EQ(cell, -1);

    // The engine stays on the last method.
    int32_t method = 0;
    ASSERT_EQ(GetFormatIntegerProperty(engine.GetEngine(), "vnkx", kFormatPropCompMethod, &method),
              0);
    EXPECT_EQ(method, 9);
}

TEST_F(FormatOptionsTest, RowOneClearsLevelMostTwiceAndLeavesExtentMost) {
    CEngine engine;
    engine.Close();  // every engine call now fails and leaves its cell
    CFormatOptionsRepository options;
    options.Engine = &engine;
    for (LONG &cell : options.LevelAndExtentTable[1]) cell = 42;
    options.LevelAndExtentTable[2][kLevelLeast] = 42;
    options.SetLevelAndExtentTable();
    const auto &row = options.LevelAndExtentTable[1];
    EXPECT_EQ(row[kLevelMost], -1);
    EXPECT_EQ(row[kExtentLeast], -1);
    EXPECT_EQ(row[kExtentMost], 42);
    EXPECT_EQ(options.LevelAndExtentTable[2][kLevelLeast], 42);
}

TEST_F(FormatOptionsTest, SetupSimpleAppliesThePresetOnlyForMethodSix) {
    CFormatOptionsRepository options;
    options.VnkxCompressionLevel = 7;
    options.EmbedJPGThumbnails = true;
    options.SetupSimple();  // method 3
    EXPECT_EQ(options.VnkxCompressionLevel, 7u);
    EXPECT_TRUE(options.EmbedJPGThumbnails);
    EXPECT_FALSE(options.VnkxBackwardCompatible);

    // Without an engine the defaults of rows 1 and 5 come from one of its own.
    CEngine engine;
    EXPECT_EQ(options.LevelAndExtentTable[1][kLevelDefault],
              EngineRange(engine, 1, kFormatPropCompressionDefault));
    EXPECT_EQ(options.LevelAndExtentTable[1][kExtentDefault],
              EngineRange(engine, 1, kFormatPropCompExtentDefault));

    options.SimpleVnkxMethod = 6;
    options.VnkxCompressionMethod = 2;
    options.RecompressionMask = 5;
    options.SetupSimple();
    EXPECT_EQ(options.VnkxCompressionMethod, 5u);
    EXPECT_EQ(options.VnkxCompressionLevel,
              static_cast<DWORD>(EngineRange(engine, 5, kFormatPropCompressionDefault)));
    EXPECT_EQ(options.CompressionMemory,
              static_cast<DWORD>(EngineRange(engine, 5, kFormatPropCompExtentDefault)));
    EXPECT_FALSE(options.EmbedJPGThumbnails || options.ZipRecompression || options.VnkxOptimize);
    EXPECT_EQ(options.RecompressionMask, 0u);
    EXPECT_TRUE(options.VnkxBackwardCompatible);
}

TEST_F(FormatOptionsTest, ReadInSimpleModeSkipsTheDetailsAndReadWithoutItTakesThem) {
    OptionKey vnkx(L"\\VarnickXFormatOptions", true);
    vnkx.Write(L"VnkxUseSimple", DWORD{1});
    vnkx.Write(L"SimpleVnkxMethod", DWORD{6});
    vnkx.Write(L"CompressionLevel", DWORD{9});
    vnkx.Write(L"RecompressionMask", DWORD{77});
    vnkx.Write(L"UseBlockMode", DWORD{2});
    OptionKey(L"\\GZipFormatOptions", true).Write(L"CompressionLevel", DWORD{3});

    CFormatOptionsRepository simple;
    simple.Read(true);
    EXPECT_TRUE(simple.VnkxUseSimple);
    EXPECT_EQ(simple.Engine, nullptr);
    EXPECT_EQ(simple.GZipCompressionLevel, 3u);
    EXPECT_EQ(simple.RecompressionMask, 0u);  // the preset, not the stored 77
    EXPECT_NE(simple.VnkxCompressionLevel, 9u);
    EXPECT_NE(simple.LevelAndExtentTable[9][kExtentDefault], -1);

    CFormatOptionsRepository detailed;
    detailed.Read(false);
    EXPECT_FALSE(detailed.VnkxUseSimple);
    EXPECT_EQ(detailed.SimpleVnkxMethod, 6u);
    EXPECT_EQ(detailed.VnkxCompressionLevel, 9u);
    EXPECT_EQ(detailed.RecompressionMask, 77u);
    // True only for exactly 1.
    EXPECT_FALSE(detailed.UseBlockMode);
    EXPECT_EQ(detailed.LevelAndExtentTable[9][kExtentDefault], -1);
}

TEST_F(FormatOptionsTest, SaveInSimpleModeWritesTheDetailsOnlyWhenAskedForAll) {
    CFormatOptionsRepository options;
    options.Save(false);
    EXPECT_EQ(ValueNames(L"\\VarnickXFormatOptions"),
              (std::vector<std::wstring>{L"VnkxUseSimple", L"SimpleVnkxMethod"}));

    options.CompressionMemory = 27;
    options.Save(true);
    CFormatOptionsRepository read;
    read.Read(false);
    EXPECT_EQ(read.CompressionMemory, 27u);
}

TEST_F(FormatOptionsTest, JobFileGivesTheClassicMethodTheVnkxMethodAndTheLevelTheMemory) {
    CFormatOptionsRepository options;  // level 1, memory 22
    options.ZipCompressionLevel = 2;
    options.ZipEncryptionMethod = 4;
    options.VnkxUseSimple = false;
    options.EmbedJPGThumbnails = false;
    options.SaveToIni(JobFile().c_str());

    CFormatOptionsRepository read;
    read.CompressionMemory = 30;
    read.ReadFromIni(JobFile().c_str());
    EXPECT_EQ(read.VnkxCompressionLevel, 22u);
    EXPECT_EQ(read.CompressionMemory, 30u);
    EXPECT_EQ(read.VnkCompressionMethod, 5u);
    EXPECT_EQ(read.VnkxCompressionMethod, 5u);
    EXPECT_EQ(read.ZipCompressionLevel, 2u);
    EXPECT_EQ(read.ZipEncryptionMethod, 4u);
    EXPECT_FALSE(read.VnkxUseSimple);
    EXPECT_FALSE(read.EmbedJPGThumbnails);
}

TEST_F(FormatOptionsTest, JobFileLeavesMissingKeysAndReadsAnyNonZeroAsTrue) {
    WriteJobFile("[VarnickXFormatOptions]\r\nUseBlockMode=2\r\nVnkxOptimize=0\r\n");
    CFormatOptionsRepository options;
    options.UseBlockMode = false;
    options.ZipCompressionLevel = 4;
    options.ReadFromIni(JobFile().c_str());
    EXPECT_TRUE(options.UseBlockMode);
    EXPECT_FALSE(options.VnkxOptimize);
    EXPECT_EQ(options.ZipCompressionLevel, 4u);
    EXPECT_EQ(options.VnkCompressionMethod, 1u);
    EXPECT_EQ(options.LevelAndExtentTable[5][kLevelDefault], -1);
}

}  // namespace
