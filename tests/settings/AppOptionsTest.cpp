// CAppOptionsRepository: the defaults and folders of a new record, the
// registry form with its list replacement, the job-file form, and where the
// two stores differ.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "CAppOptionsRepository.h"
#include "CFSUtils.h"
#include "CIniFile.h"
#include "platform/Registry.h"
#include "platform/SpecialFolders.h"
#include "platform/WinFile.h"
#include "settings/OptionStore.h"
#include "support/LoadedResources.h"
#include "support/TempHome.h"

namespace {

using optionstore::OptionKey;
using Strings = std::vector<std::wstring>;

std::wstring Folder(int csidl) { return platform::SpecialFolder(csidl, false); }

// The values of a registry key as "name=text", or the names alone.
Strings RegistryList(const std::wstring &subKey, bool withText = true) {
    OptionKey key(subKey.c_str());
    Strings values;
    wchar_t name[256] = {};
    for (int found = key.Registry().FindFirst(name, 256); found;
         found = key.Registry().FindNext(name, 256)) {
        std::wstring text;
        if (withText) key.Read(name, text);
        values.push_back(withText ? std::wstring(name) + L"=" + text : std::wstring(name));
    }
    return values;
}

class AppOptionsTest : public testsupport::HomeTest {
protected:
    void TearDown() override { platform::CloseRegistryConnections(); }

    std::wstring JobFile() { return (home.Scratch() / "job.ini").wstring(); }

    // A job file written by hand, as UTF-8 with its mark.
    void WriteJobFile(const std::string &text) {
        testsupport::WriteBytes(home.Scratch() / "job.ini", "\xEF\xBB\xBF" + text);
    }

    // The product root exists once anything below it was created.
    void CreateRoot() { OptionKey(L"\\ArchiveViewer", true); }

    testsupport::LoadedResources resources;
};

TEST_F(AppOptionsTest, ANewRecordOnAnEmptyRegistryHasTheDefaultsAndMakesItsFolders) {
    ASSERT_TRUE(resources.Loaded());
    CAppOptionsRepository options;

    EXPECT_TRUE(options.ViewFlat);
    EXPECT_EQ(options.ViewState, 3u);
    EXPECT_TRUE(options.CheckForUpdates);
    EXPECT_EQ(options.RecentListSize, 5u);
    EXPECT_FALSE(options.DeleteSrc);
    EXPECT_FALSE(options.DeleteArcAfterExpand);
    EXPECT_TRUE(options.CompressOrig);
    EXPECT_FALSE(options.CompressArcs);
    EXPECT_FALSE(options.UseEncryption);
    EXPECT_TRUE(options.EnableContextMenu);
    EXPECT_TRUE(options.UseSmartArchiving);
    EXPECT_FALSE(options.UseWizard);
    EXPECT_EQ(options.AddConflictMethod, 7u);
    EXPECT_TRUE(options.AddMergeContents);
    EXPECT_TRUE(options.ExpandMergeContents);
    EXPECT_TRUE(options.WizardShowSchedulerPage);
    EXPECT_EQ(options.DblClickAction, 1u);
    EXPECT_EQ(options.ThumbnailSize, 96u);
    EXPECT_EQ(options.ThumbnailLimit, 4194304u);
    EXPECT_EQ(options.SmartSendSizeTrigger, 5242880u);
    EXPECT_EQ(options.SmartSendService, 1u);
    EXPECT_TRUE(options.AutoOpenExpandFolder);
    EXPECT_TRUE(options.ShowDropDblClickMsg);
    EXPECT_TRUE(options.ShowArcNameWarningMsg);
    EXPECT_FALSE(options.UnstoredFlag);
    EXPECT_TRUE(options.AVPath.empty());
    EXPECT_TRUE(options.DefaultExpandFolder.empty());
    EXPECT_TRUE(options.SmartSendExtTriggers.empty());

    // Folders below the local application data folder, made on disk.
    const std::wstring product = Folder(CSIDL_LOCAL_APPDATA) + L"/Orvane Labs/";
    EXPECT_EQ(options.TempFolder, product + L"Temp");
    EXPECT_EQ(options.WizardTaskFolder, product + L"WizardTasks");
    EXPECT_EQ(options.ArchiveIndexFolder, product + L"ArchiveIndexes");
    const std::wstring myArchives = CFSUtils::GetMyArchivesFolder();
    EXPECT_EQ(options.DefaultCompressFolder, myArchives);
    EXPECT_EQ(options.LocationHistory, Strings{myArchives});
    for (const std::wstring &folder :
         {options.TempFolder, options.WizardTaskFolder, options.ArchiveIndexFolder, myArchives})
        EXPECT_TRUE(CFSUtils::FolderExists(folder.c_str())) << folder;

    EXPECT_EQ(options.ExcludeLocations, (Strings{Folder(CSIDL_WINDOWS), Folder(CSIDL_PROGRAM_FILES),
                                                 Folder(CSIDL_INTERNET_CACHE)}));

    for (std::size_t i = 0; i < kFileAssociationCount; ++i) {
        EXPECT_EQ(options.FileAssociations.entries[i].type, kFileAssociationTypes[i]);
        EXPECT_FALSE(options.FileAssociations.entries[i].associated);
    }
}

TEST_F(AppOptionsTest, TheAssociationTableFollowsTheExtensionKeys) {
    HKEY key = nullptr;
    ASSERT_EQ(CRegistry::RegCreateKeyExW(HKEY_CLASSES_ROOT, L".zip", 0, nullptr, 0, KEY_ALL_ACCESS,
                                         nullptr, &key, nullptr),
              ERROR_SUCCESS);
    RegCloseKey(key);
    CRegistry zip;
    zip.SetMajorKey(2);
    zip.SetAppKey(L".zip");
    ASSERT_TRUE(zip.WriteRegSetting(L"", L"Varnick.Archive.Open.Zip"));

    CAppOptionsRepository options;
    for (const FILEASSOCIATION &entry : options.FileAssociations.entries)
        EXPECT_EQ(entry.associated != FALSE, entry.type == format::zip) << entry.type;
}

TEST_F(AppOptionsTest, RegistryRoundTripReplacesTheListsWhole) {
    CreateRoot();
    {
        CAppOptionsRepository options;
        options.RecentListSize = 9;
        options.CheckForUpdates = false;
        options.TempFolder = L"/tmp/elsewhere";
        options.ViewState = 2;
        options.ThumbnailLimit = 77;
        options.FormatType = 10;
        options.DeleteSrc = true;
        options.DefaultCompressFolder = L"/data/out";
        options.ExpandConflictMethod = 4;
        options.DefaultExpandFolder = L"/data/in";
        options.SmartSendSizeTrigger = 123;
        options.SmartSendFTPProfile = L"office";
        options.AVPath = L"/usr/bin/clamscan";
        options.AVOption = 4;
        options.ShowDropDblClickMsg = false;
        options.ExcludeLocations = {L"/a", L"/b", L"/c", L"/d"};
        options.SmartSendExtTriggers = {L".mov", L".iso"};
        options.LocationHistory = {L"/h1", L"/h2"};
        options.Save();
        // A shorter list later leaves no values of the longer one behind.
        options.ExcludeLocations = {L"/x"};
        options.Save();
    }
    EXPECT_EQ(RegistryList(L"\\ExcludeLocations"), Strings{L"0=/x"});
    EXPECT_EQ(RegistryList(L"\\StartActivity\\LocationHistory"), (Strings{L"0=/h1", L"1=/h2"}));

    CAppOptionsRepository read;
    EXPECT_EQ(read.RecentListSize, 9u);
    EXPECT_FALSE(read.CheckForUpdates);
    EXPECT_EQ(read.TempFolder, L"/tmp/elsewhere");
    EXPECT_EQ(read.ViewState, 2u);
    EXPECT_EQ(read.ThumbnailLimit, 77u);
    EXPECT_EQ(read.FormatType, 10u);
    EXPECT_TRUE(read.DeleteSrc);
    EXPECT_EQ(read.DefaultCompressFolder, L"/data/out");
    EXPECT_EQ(read.ExpandConflictMethod, 4u);
    EXPECT_EQ(read.DefaultExpandFolder, L"/data/in");
    EXPECT_EQ(read.SmartSendSizeTrigger, 123u);
    EXPECT_EQ(read.SmartSendFTPProfile, L"office");
    EXPECT_EQ(read.AVPath, L"/usr/bin/clamscan");
    EXPECT_EQ(read.AVOption, 4u);
    EXPECT_FALSE(read.ShowDropDblClickMsg);
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

    // The first save made the root on its way to the subkeys.
    options.Save();
    CAppOptionsRepository second;
    EXPECT_EQ(second.RecentListSize, 9u);
}

TEST_F(AppOptionsTest, RegistryBoolIsTrueOnlyForExactlyOne) {
    OptionKey compression(L"\\CompressionOptions", true);
    compression.Write(L"DeleteSrc", DWORD{2});
    compression.Write(L"CompressOrig", DWORD{2});
    compression.Write(L"CompressArcs", DWORD{1});
    CAppOptionsRepository options;
    EXPECT_FALSE(options.DeleteSrc);
    EXPECT_FALSE(options.CompressOrig);
    EXPECT_TRUE(options.CompressArcs);
}

TEST_F(AppOptionsTest, AnEmptyListKeyKeepsTheDefaultFolders) {
    OptionKey(L"\\ExcludeLocations", true);
    CAppOptionsRepository defaults;
    EXPECT_EQ(defaults.ExcludeLocations.size(), 3u);

    OptionKey(L"\\ExcludeLocations", true).Write(L"0", std::wstring(L"/only"));
    CAppOptionsRepository replaced;
    EXPECT_EQ(replaced.ExcludeLocations, Strings{L"/only"});
}

TEST_F(AppOptionsTest, RegistryStringOf512CharactersIsNotRead) {
    OptionKey av(L"\\AVOptions", true);
    const std::wstring fits(511, L'a');
    av.Write(L"AVPath", fits);
    EXPECT_EQ(CAppOptionsRepository().AVPath, fits);

    av.Write(L"AVPath", std::wstring(512, L'b'));
    CAppOptionsRepository options;
    EXPECT_TRUE(options.AVPath.empty());
}

TEST_F(AppOptionsTest, SaveNonOptionsWritesTheDropMessageFlagAlone) {
    CAppOptionsRepository options;
    options.ShowDropDblClickMsg = false;
    options.UseWizard = true;
    options.SaveNonOptions();
    EXPECT_EQ(RegistryList(L"\\StartActivity", false), Strings{L"ShowDropDblClickMsg"});
    CAppOptionsRepository read;
    EXPECT_FALSE(read.ShowDropDblClickMsg);
    EXPECT_FALSE(read.UseWizard);
}

TEST_F(AppOptionsTest, CopyKeepsTheDestinationHistoryWhenTheSourceHistoryIsEmpty) {
    CAppOptionsRepository source;
    source.LocationHistory.clear();
    source.ExcludeLocations.clear();
    source.SmartSendExtTriggers = {L".avi"};
    source.UnstoredFlag = true;
    source.ArchiveIndexFolder = L"/indexes";
    source.ThumbnailSize = 48;

    CAppOptionsRepository destination(nullptr);
    destination.LocationHistory = {L"/kept"};
    destination.ExcludeLocations = {L"/gone"};
    destination.Copy(&source);
    EXPECT_EQ(destination.LocationHistory, Strings{L"/kept"});
    EXPECT_TRUE(destination.ExcludeLocations.empty());
    EXPECT_EQ(destination.SmartSendExtTriggers, Strings{L".avi"});
    EXPECT_TRUE(destination.UnstoredFlag);
    EXPECT_EQ(destination.ArchiveIndexFolder, L"/indexes");
    EXPECT_EQ(destination.ThumbnailSize, 48u);

    source.LocationHistory = {L"/new"};
    destination.Copy(&source);
    EXPECT_EQ(destination.LocationHistory, Strings{L"/new"});

    CAppOptionsRepository copied(&source);
    EXPECT_EQ(copied.LocationHistory, Strings{L"/new"});
    EXPECT_EQ(copied.TempFolder, source.TempFolder);
}

TEST_F(AppOptionsTest, JobFileRoundTripCarriesTheSnapshotButNotTheHistory) {
    CAppOptionsRepository options;
    options.RecentListSize = 8;
    options.ViewFlat = false;
    options.AddConflictMethod = 3;
    options.WizardTaskFolder = L"/tasks";
    options.DropletLocation = L"/droplets";
    options.ExcludeLocations = {L"/e1", L"/e2"};
    options.SmartSendExtTriggers = {L".wav"};
    options.ThumbnailSize = 32;
    options.SaveToIni(JobFile().c_str());

    const std::string bytes = testsupport::ReadBytes(JobFile());
    EXPECT_EQ(bytes.substr(0, 2), "\xFF\xFE");
    CIniFile ini(JobFile().c_str());
    wchar_t value[64] = {};
    EXPECT_FALSE(ini.GetString(L"AppOptions", L"ThumbnailSize", value, 64));
    EXPECT_FALSE(ini.GetString(L"AppOptions", L"AVPath", value, 64));
    ASSERT_TRUE(ini.GetString(L"ExcludeLocations", L"1", value, 64));
    EXPECT_STREQ(value, L"/e2");

    CAppOptionsRepository read(nullptr);
    read.AVPath = L"/was/set";
    read.LocationHistory = {L"/history"};
    read.ReadFromIni(JobFile().c_str());
    EXPECT_EQ(read.RecentListSize, 8u);
    EXPECT_FALSE(read.ViewFlat);
    EXPECT_EQ(read.AddConflictMethod, 3u);
    EXPECT_EQ(read.WizardTaskFolder, L"/tasks");
    EXPECT_EQ(read.DropletLocation, L"/droplets");
    EXPECT_EQ(read.TempFolder, options.TempFolder);
    EXPECT_EQ(read.ExcludeLocations, (Strings{L"/e1", L"/e2"}));
    EXPECT_EQ(read.SmartSendExtTriggers, Strings{L".wav"});
    EXPECT_EQ(read.ThumbnailSize, 96u);
    // No line for the empty AVPath, so it reads back empty.
    EXPECT_TRUE(read.AVPath.empty());
    EXPECT_TRUE(read.LocationHistory.empty());
}

TEST_F(AppOptionsTest, JobFileWithoutTheSectionEmptiesStringsAndKeepsNumbers) {
    WriteJobFile("[Other]\r\nkey=1\r\n");
    CAppOptionsRepository options;
    options.DeleteSrc = true;
    options.ViewState = 2;
    options.ReadFromIni(JobFile().c_str());

    EXPECT_TRUE(options.DeleteSrc);
    EXPECT_EQ(options.ViewState, 2u);
    EXPECT_TRUE(options.TempFolder.empty());
    EXPECT_TRUE(options.DefaultCompressFolder.empty());
    EXPECT_TRUE(options.WizardTaskFolder.empty());
    EXPECT_TRUE(options.LocationHistory.empty());
    // The lists have no section here and stay.
    EXPECT_EQ(options.ExcludeLocations.size(), 3u);
    // Nothing was written.
    EXPECT_EQ(testsupport::ReadBytes(JobFile()), "\xEF\xBB\xBF[Other]\r\nkey=1\r\n");
}

TEST_F(AppOptionsTest, JobFileBoolIsTrueForAnythingButZero) {
    WriteJobFile("[AppOptions]\r\nDeleteSrc=2\r\nCompressOrig=0\r\nUseWizard=yes\r\n");
    CAppOptionsRepository options(nullptr);
    options.ReadFromIni(JobFile().c_str());
    EXPECT_TRUE(options.DeleteSrc);
    EXPECT_FALSE(options.CompressOrig);
    EXPECT_TRUE(options.UseWizard);
}

TEST_F(AppOptionsTest, JobFileKeepsAnOlderLineOfAStringSavedEmpty) {
    WriteJobFile("[AppOptions]\r\nAVPath=/old/scanner\r\n");
    CAppOptionsRepository options(nullptr);
    options.SaveToIni(JobFile().c_str());
    options.ReadFromIni(JobFile().c_str());
    EXPECT_EQ(options.AVPath, L"/old/scanner");
}

}  // namespace
