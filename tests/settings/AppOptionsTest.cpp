// CAppOptionsRepository: a new record's defaults and folders, the registry
// form with its list replacement, the job-file form, and where the two
// stores differ.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CAppOptionsRepository.h"
#include "CFSUtils.h"
#include "CIniFile.h"
#include "OptionsTestSupport.h"
#include "support/LoadedResources.h"

namespace {

using optionstore::OptionKey;
using Strings = std::vector<std::wstring>;

class AppOptionsTest : public testsupport::JobFileTest {
protected:
    testsupport::LoadedResources resources;
};

TEST_F(AppOptionsTest, ANewRecordOnAnEmptyRegistryMakesItsFoldersBelowTheHome) {
    ASSERT_TRUE(resources.Loaded());
    CAppOptionsRepository options;
    const std::wstring myArchives = CFSUtils::GetMyArchivesFolder();
    EXPECT_EQ(options.LocationHistory, Strings{myArchives});
    for (const std::wstring &folder :
         {options.TempFolder, options.WizardTaskFolder, options.ArchiveIndexFolder, myArchives}) {
        EXPECT_TRUE(CFSUtils::FolderExists(folder.c_str())) << folder;
        EXPECT_EQ(folder.rfind(home.Path().wstring(), 0), 0u) << folder;
    }
}

TEST_F(AppOptionsTest, RegistryRoundTripReplacesTheListsWhole) {
    OptionKey(L"\\ArchiveViewer", true);  // the root must exist for its values
    {
        CAppOptionsRepository options;
        options.RecentListSize = 9;
        options.TempFolder = L"/tmp/elsewhere";
        options.DeleteSrc = true;
        options.ExcludeLocations = {L"/a", L"/b", L"/c"};
        options.SmartSendExtTriggers = {L".mov", L".iso"};
        options.LocationHistory = {L"/h1", L"/h2"};
        options.Save();
        options.ExcludeLocations = {L"/x"};
        options.Save();
    }
    EXPECT_EQ(testsupport::ValueNames(L"\\ExcludeLocations"), Strings{L"0"});
    CAppOptionsRepository read;
    EXPECT_EQ(read.RecentListSize, 9u);
    EXPECT_EQ(read.TempFolder, L"/tmp/elsewhere");
    EXPECT_TRUE(read.DeleteSrc);
    EXPECT_EQ(read.ExcludeLocations, Strings{L"/x"});
    EXPECT_EQ(read.SmartSendExtTriggers, (Strings{L".mov", L".iso"}));
    EXPECT_EQ(read.LocationHistory, (Strings{L"/h1", L"/h2"}));
}

TEST_F(AppOptionsTest, SaveLosesTheRootValuesWhileTheRootKeyDoesNotExist) {
    CAppOptionsRepository options;
    options.RecentListSize = 9;
    options.ViewState = 2;
    options.Save();
    CAppOptionsRepository first;
    EXPECT_EQ(first.RecentListSize, 5u);
    EXPECT_EQ(first.ViewState, 2u);

    options.Save();  // the first save made the root on its way to the subkeys
    EXPECT_EQ(CAppOptionsRepository().RecentListSize, 9u);
}

TEST_F(AppOptionsTest,
       RegistryDwordTwoReadsFalseLongStringsAreNotReadAndStoredNumbersAreReadAsTheyStand) {
    OptionKey compression(L"\\CompressionOptions", true);
    compression.Write(L"DeleteSrc", DWORD{2});
    compression.Write(L"CompressOrig", DWORD{2});
    compression.Write(L"CompressArcs", DWORD{1});
    OptionKey av(L"\\AVOptions", true);
    av.Write(L"AVPath", std::wstring(511, L'a'));
    av.Write(L"DropletLocation", std::wstring(512, L'b'));
    OptionKey(L"\\ExcludeLocations", true);  // a key without values

    // Neither store checks a range: the using code copes with what it finds.
    compression.Write(L"AddConflictMethod", DWORD{4000000000u});
    OptionKey(L"\\ExpansionOptions", true).Write(L"ExpandConflictMethod", DWORD{99});

    CAppOptionsRepository options;
    EXPECT_FALSE(options.DeleteSrc);
    EXPECT_FALSE(options.CompressOrig);
    EXPECT_TRUE(options.CompressArcs);
    EXPECT_EQ(options.AVPath.size(), 511u);
    EXPECT_TRUE(options.DropletLocation.empty());
    EXPECT_EQ(options.ExcludeLocations.size(), 3u);
    EXPECT_EQ(options.AddConflictMethod, 4000000000u);
    EXPECT_EQ(options.ExpandConflictMethod, 99u);

    WriteJobFile("[AppOptions]\r\nAddConflictMethod=77\r\nExpandConflictMethod=-1\r\n");
    options.ReadFromIni(JobFile().c_str());
    EXPECT_EQ(options.AddConflictMethod, 77u);
    EXPECT_EQ(options.ExpandConflictMethod, 0xFFFFFFFFu);
}

TEST_F(AppOptionsTest, CopyKeepsTheDestinationHistoryWhenTheSourceHistoryIsEmpty) {
    CAppOptionsRepository source(nullptr);
    source.SmartSendExtTriggers = {L".avi"};
    source.UnstoredFlag = true;
    source.ArchiveIndexFolder = L"/indexes";

    CAppOptionsRepository destination(nullptr);
    destination.LocationHistory = {L"/kept"};
    destination.ExcludeLocations = {L"/gone"};
    destination.Copy(&source);
    EXPECT_EQ(destination.LocationHistory, Strings{L"/kept"});
    EXPECT_TRUE(destination.ExcludeLocations.empty());
    EXPECT_EQ(destination.SmartSendExtTriggers, Strings{L".avi"});
    EXPECT_TRUE(destination.UnstoredFlag);
    EXPECT_EQ(destination.ArchiveIndexFolder, L"/indexes");

    source.LocationHistory = {L"/new"};
    destination.Copy(&source);
    EXPECT_EQ(destination.LocationHistory, Strings{L"/new"});
}

TEST_F(AppOptionsTest, JobFileRoundTripCarriesTheSnapshotButNotTheHistory) {
    CAppOptionsRepository options;
    options.AddConflictMethod = 3;
    options.ViewFlat = false;
    options.DropletLocation = L"/droplets";
    options.ExcludeLocations = {L"/e1", L"/e2"};
    options.ThumbnailSize = 32;  // not in a job file
    options.SaveToIni(JobFile().c_str());

    CAppOptionsRepository read(nullptr);
    read.LocationHistory = {L"/history"};
    read.ReadFromIni(JobFile().c_str());
    EXPECT_EQ(read.AddConflictMethod, 3u);
    EXPECT_FALSE(read.ViewFlat);
    EXPECT_EQ(read.DropletLocation, L"/droplets");
    EXPECT_EQ(read.TempFolder, options.TempFolder);
    EXPECT_EQ(read.ExcludeLocations, (Strings{L"/e1", L"/e2"}));
    EXPECT_EQ(read.ThumbnailSize, 96u);
    EXPECT_TRUE(read.LocationHistory.empty());
}

TEST_F(AppOptionsTest,
       JobFileMissingStringEmptiesTheFieldTwoReadsTrueAndAnOlderLineOfAnEmptyStringStays) {
    WriteJobFile("[AppOptions]\r\nDeleteSrc=2\r\nCompressOrig=0\r\n");
    CAppOptionsRepository options;
    options.ViewState = 2;
    options.ReadFromIni(JobFile().c_str());
    EXPECT_TRUE(options.DeleteSrc);
    EXPECT_FALSE(options.CompressOrig);
    EXPECT_EQ(options.ViewState, 2u);
    EXPECT_TRUE(options.TempFolder.empty());
    EXPECT_TRUE(options.DefaultCompressFolder.empty());
    EXPECT_EQ(options.ExcludeLocations.size(), 3u);  // no section: kept

    // An empty string is saved as no line, so an older line stays.
    WriteJobFile("[AppOptions]\r\nAVPath=/old/scanner\r\n");
    CAppOptionsRepository empty(nullptr);
    empty.SaveToIni(JobFile().c_str());
    empty.ReadFromIni(JobFile().c_str());
    EXPECT_EQ(empty.AVPath, L"/old/scanner");
}

}  // namespace
