// Claiming extensions and giving them back in HKEY_CLASSES_ROOT of a
// private registry: the saved values, the rebuilt zip registration and the
// shell notices.
#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "AssociationTestSupport.h"
#include "CAppUtils.h"
#include "CRegistry.h"
#include "CStartupSupport.h"
#include "FileAssociations.h"
#include "platform/ShellNotify.h"
#include "platform/WinPath.h"
#include "shell/ZipRestoration.h"
#include "support/LoadedResources.h"
#include "support/TempHome.h"

using shelltest::ClassesKeyExists;
using shelltest::ClassesText;
using shelltest::SetClassesText;

namespace {

constexpr const wchar_t *kUserChoice =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\FileExts\\.zip\\UserChoice";

class FileAssociationsTest : public testsupport::HomeTest {
protected:
    void SetUp() override { CStartupSupport::SetGeneralFileAssociationStrings(); }

    static void MakeUserChoice() {
        HKEY key = nullptr;
        ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, kUserChoice, 0, nullptr, 0, KEY_ALL_ACCESS,
                                  nullptr, &key, nullptr),
                  ERROR_SUCCESS);
        RegCloseKey(key);
        CRegistry choice;
        choice.SetAppKey(kUserChoice);
        choice.WriteRegSetting(L"ProgId", L"SomeViewer.zip");
    }
    static bool UserChoiceExists() {
        CRegistry choice;
        choice.SetAppKey(kUserChoice);
        DWORD type = 0;
        DWORD size = 0;
        return choice.GetTypeAndSize(L"ProgId", &type, &size) != 0;
    }

    testsupport::LoadedResources resources;
    shelltest::NoticeRecorder notices;
};

}  // namespace

TEST_F(FileAssociationsTest, ProgIdsAndTaskClassAreWrittenTheEditCommandWithNoBlankBeforeThePath) {
    const std::wstring viewer = platform::JoinPath(CAppUtils::GetExePath(), L"Varnick14.exe");
    const std::wstring scheduler = platform::JoinPath(CAppUtils::GetExePath(), L"Scheduler.exe");
    const std::wstring icons = CAppUtils::GetInstResNLPath();

    EXPECT_EQ(ClassesText(L"Varnick.Archive.Open.Zip\\DefaultIcon"), L"\"" + icons + L"\",6");
    EXPECT_EQ(ClassesText(L"Varnick.Archive.Open.Rar\\DefaultIcon"), L"\"" + icons + L"\",7");
    EXPECT_EQ(ClassesText(L"Varnick.Archive.Open.Generic"), CAppUtils::LoadString(405));
    EXPECT_EQ(ClassesText(L"Varnick.Archive.Open.Tar\\shell\\Open\\Command"),
              L"\"" + viewer + L"\" -o \"%1\"");
    EXPECT_EQ(ClassesText(L".varnicktask"), L"Varnick.Scheduler.Task");
    EXPECT_EQ(ClassesText(L"Varnick.Scheduler.Task\\shell\\Open\\Command"),
              L"\"" + scheduler + L"\" -s \"%1\"");
    EXPECT_EQ(ClassesText(L"Varnick.Scheduler.Task\\shell\\Edit\\Command"),
              L"\"" + scheduler + L"\" -se\"%1\"");
    // No archive extension is touched.

    for (format::type type : kFileAssociationTypes) {
        EXPECT_FALSE(ClassesKeyExists(GetFormatExtension(type))) << "kind " << type;
    }
    EXPECT_TRUE(notices.Events().empty());
}

TEST_F(FileAssociationsTest, OnlyTheProductsProgIdPrefixCountsAsAssociated) {
    EXPECT_FALSE(IsAssociatedWithVarnick(format::rar)) << "no key";
    SetClassesText(L".rar", nullptr, L"vArNiCk.ArChIvE.oPeN.whatever");
    EXPECT_TRUE(IsAssociatedWithVarnick(format::rar));
    SetClassesText(L".rar", nullptr, L"Varnick.Archive");
    EXPECT_FALSE(IsAssociatedWithVarnick(format::rar));
    SetClassesText(L".rar", nullptr, L"");
    EXPECT_FALSE(IsAssociatedWithVarnick(format::rar));

    // A kind outside the table is never associated, nor can it be claimed.
    SetClassesText(GetFormatExtension(format::vnkseg), nullptr, L"Varnick.Archive.Open.Vnk");
    EXPECT_FALSE(IsAssociatedWithVarnick(format::vnkseg));
    EXPECT_FALSE(IsAssociatedWithVarnick(format::unknown));
    EXPECT_TRUE(SetFileAssociation(format::vnkseg, 1, false)) << "no extension: only a notice";
    EXPECT_EQ(notices.Events(), std::vector<LONG>{SHCNE_ASSOCCHANGED});
    EXPECT_EQ(ClassesText(GetFormatExtension(format::vnkseg)), L"Varnick.Archive.Open.Vnk");
}

TEST_F(FileAssociationsTest, ClaimSavesThePreviousValuesAndReleasePutsThemBack) {
    SetClassesText(L".rar", nullptr, L"OtherTool.rar");
    SetClassesText(L".rar", L"Content Type", L"application/x-rar");

    EXPECT_TRUE(SetFileAssociation(format::rar, 1, false));
    EXPECT_EQ(ClassesText(L".rar"), L"Varnick.Archive.Open.Rar");
    EXPECT_EQ(ClassesText(L".rar", L"Content Type"), L"application/varnick");
    EXPECT_EQ(ClassesText(L"Varnick.Archive.Open.Rar\\.rar"), L"OtherTool.rar");
    EXPECT_EQ(ClassesText(L"Varnick.Archive.Open.Rar\\.rar", L"Content Type"),
              L"application/x-rar");
    EXPECT_TRUE(IsAssociatedWithVarnick(format::rar));
    EXPECT_EQ(notices.Events(), (std::vector<LONG>{SHCNE_UPDATEIMAGE, SHCNE_ASSOCCHANGED}));

    notices.Clear();
    EXPECT_FALSE(SetFileAssociation(format::rar, 1, false)) << "already claimed";
    EXPECT_TRUE(notices.Events().empty()) << "nothing to do sends no notice either";

    EXPECT_TRUE(SetFileAssociation(format::rar, 0, false));
    EXPECT_EQ(ClassesText(L".rar"), L"OtherTool.rar");
    EXPECT_EQ(ClassesText(L".rar", L"Content Type"), L"application/x-rar");
    EXPECT_EQ(ClassesText(L"Varnick.Archive.Open.Rar\\.rar"), L"OtherTool.rar")
        << "the saved value stays in the ProgID";
    EXPECT_EQ(notices.Events(), (std::vector<LONG>{SHCNE_UPDATEIMAGE, SHCNE_ASSOCCHANGED}));

    notices.Clear();
    EXPECT_FALSE(SetFileAssociation(format::rar, 0, false));
    EXPECT_TRUE(notices.Events().empty());
}

TEST_F(FileAssociationsTest, KindWithNothingBeforeIsLeftEmptyWithoutContentType) {
    ASSERT_TRUE(SetFileAssociation(format::arj, 1, false));
    EXPECT_EQ(ClassesText(L".arj"), L"Varnick.Archive.Open.Generic");
    EXPECT_FALSE(ClassesText(L"Varnick.Archive.Open.Generic\\.arj")) << "nothing to save";

    ASSERT_TRUE(SetFileAssociation(format::arj, 0, false));
    EXPECT_EQ(ClassesText(L".arj"), L"");
    EXPECT_FALSE(ClassesText(L".arj", L"Content Type"));
    EXPECT_FALSE(IsAssociatedWithVarnick(format::arj));
}

TEST_F(FileAssociationsTest, AnotherOfTheProductsProgIdsIsLeftInPlaceOnRelease) {
    SetClassesText(L".zip", nullptr, L"Varnick.Archive.Open.Tar");
    SetClassesText(L".zip", L"Content Type", L"application/varnick");
    EXPECT_TRUE(SetFileAssociation(format::zip, 0, false));
    EXPECT_EQ(ClassesText(L".zip"), L"Varnick.Archive.Open.Tar");
    EXPECT_EQ(ClassesText(L".zip", L"Content Type"), L"application/varnick");
    EXPECT_FALSE(ClassesKeyExists(L".zip\\PersistentHandler"));
    EXPECT_EQ(notices.Events(), std::vector<LONG>{SHCNE_ASSOCCHANGED});
}

TEST_F(FileAssociationsTest, ShortSavedValueEmptiesTheExtensionWithoutRebuildingZip) {
    SetClassesText(L".zip", nullptr, L"ab");
    ASSERT_TRUE(SetFileAssociation(format::zip, 1, false));
    EXPECT_EQ(ClassesText(L"Varnick.Archive.Open.Zip\\.zip"), L"ab");
    ASSERT_TRUE(SetFileAssociation(format::zip, 0, false));
    EXPECT_EQ(ClassesText(L".zip"), L"");
    EXPECT_FALSE(ClassesText(L".zip", L"Content Type"));
    EXPECT_FALSE(ClassesKeyExists(L".zip\\PersistentHandler"));
    EXPECT_FALSE(ClassesKeyExists(L".zip\\CompressedFolder"));
}

TEST_F(FileAssociationsTest, ZipWithoutSavedValueGetsTheSystemRegistrationBack) {
    MakeUserChoice();
    ASSERT_TRUE(SetFileAssociation(format::zip, 1, false));
    ASSERT_TRUE(SetFileAssociation(format::zip, 0, false));

    EXPECT_EQ(ClassesText(L".zip"), L"CompressedFolder");
    EXPECT_EQ(ClassesText(L".zip", L"Content Type"), L"application/x-zip-compressed");
    EXPECT_EQ(ClassesText(L".zip", L"PerceivedType"), L"compressed");
    EXPECT_EQ(ClassesText(L".zip\\CompressedFolder\\ShellNew", L"ItemName"),
              L"@%SystemRoot%\\system32\\zipfldr.dll,-10194");
    EXPECT_EQ(ClassesText(L".zip\\PersistentHandler"), L"{098f2470-bae0-11cd-b579-08002b30bfeb}");
    EXPECT_FALSE(UserChoiceExists()) << "the user's own choice would hide the restored handler";

    CRegistry shellNew;
    shellNew.SetMajorKey(2);
    shellNew.SetAppKey(L".zip\\CompressedFolder\\ShellNew");
    unsigned char data[64] = {};
    int size = sizeof data;
    ASSERT_TRUE(shellNew.GetRegSetting(L"Data", data, &size));
    const unsigned char emptyZip[22] = {'P', 'K', 5, 6};
    ASSERT_EQ(size, 22);
    EXPECT_EQ(std::memcmp(data, emptyZip, 22), 0);
}

TEST_F(
    FileAssociationsTest,
    ZipRestorationWritesOpenWithValueNameWithoutItsFirstLetterAndOlderSystemsLeaveOutTheLaterValues) {
    MakeUserChoice();
    RestoreZipRegistration(0x0501);
    EXPECT_EQ(ClassesText(L".zip"), L"CompressedFolder");
    EXPECT_EQ(ClassesText(L".zip\\OpenWithProgids", L"ompressedFolder"), L"");
    EXPECT_FALSE(ClassesText(L".zip\\OpenWithProgids", L"CompressedFolder"));
    EXPECT_FALSE(ClassesText(L".zip", L"PerceivedType"));
    EXPECT_FALSE(ClassesText(L".zip\\CompressedFolder\\ShellNew", L"ItemName"));
    EXPECT_TRUE(UserChoiceExists());
}

TEST_F(FileAssociationsTest, SaveAllAppliesEveryEntryOfTheTable) {
    SetClassesText(L".gz", nullptr, L"Varnick.Archive.Open.Generic");
    FILEASSOCIATIONS table;
    table.entries[0].associated = TRUE;   // vnkx
    table.entries[14].associated = TRUE;  // rar
    SaveAllFileAssociations(&table);
    for (const FILEASSOCIATION &entry : table.entries) {
        EXPECT_EQ(IsAssociatedWithVarnick(entry.type), entry.associated != FALSE)
            << "kind " << entry.type;
    }
    EXPECT_EQ(ClassesText(GetFormatExtension(format::vnkx)), L"Varnick.Archive.Open.Vnkx");
    EXPECT_EQ(ClassesText(L".rar"), L"Varnick.Archive.Open.Rar");
    EXPECT_EQ(ClassesText(L".gz"), L"");
    SaveAllFileAssociations(nullptr);
}
