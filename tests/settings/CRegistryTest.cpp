// CRegistry over the registry store: hives, the level-by-level creation of
// the application key, the type and size rule of each overload, removal,
// and the two cursors.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CRegistry.h"
#include "platform/Registry.h"
#include "platform/WideText.h"
#include "support/RegistryHome.h"

namespace {

constexpr wchar_t kProductKey[] = L"Software\\Orvane Labs\\Varnick";

bool KeyExists(HKEY hive, const wchar_t *path) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(hive, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
    RegCloseKey(key);
    return true;
}

std::vector<std::wstring> TopLevelKeys(CRegistry &registry) {
    std::vector<std::wstring> keys;
    wchar_t name[256];
    for (int found = registry.FindFirstKey(name, 256); found;
         found = registry.FindNextKey(name, 256)) {
        keys.push_back(name);
    }
    return keys;
}

class CRegistryTest : public testsupport::RegistryHomeTest {
protected:
    // An instance whose application key exists.
    static void Prepare(CRegistry &registry, const wchar_t *path = kProductKey) {
        registry.CreateAppKey(path);
        ASSERT_TRUE(KeyExists(HKEY_CURRENT_USER, path));
    }
};

}  // namespace

TEST_F(CRegistryTest, MajorKeysZeroOneTwoSelectTheHivesAndAnyOtherChangesNothing) {
    CRegistry machine;
    machine.SetMajorKey(1);
    machine.CreateAppKey(L"SOFTWARE\\Orvane Labs");
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orvane Labs"));
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, L"Software\\Orvane Labs"));

    CRegistry classes;
    classes.SetMajorKey(2);
    classes.SetMajorKey(7);
    classes.CreateAppKey(L".vnk");
    EXPECT_TRUE(KeyExists(HKEY_CLASSES_ROOT, L".vnk"));
    classes.SetMajorKey(0);
    classes.SetMajorKey(3);
    EXPECT_TRUE(classes.WriteRegSetting(L"", L"Varnick.Archive.Open.Vnk") == 0);  // no ".vnk" here
    classes.CreateAppKey(L".vnk");
    EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, L".vnk"));
}

TEST_F(CRegistryTest, CreateAppKeyWalksTheStoredAppKeyBelowTheArgumentsFirstLevelNeverMakingIt) {
    CRegistry registry;
    registry.CreateAppKey(L"Elsewhere\\Orvane Labs\\Varnick");
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, L"Elsewhere"));
    EXPECT_EQ(registry.WriteRegSetting(L"Name", L"x"), 0);
    CRegistry single;  // a single level is made directly below the hive
    single.CreateAppKey(L"Elsewhere");
    EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, L"Elsewhere"));

    CRegistry crossed;
    crossed.SetAppKey(L"Ignored\\Deep\\Key");
    crossed.CreateAppKey(L"Software\\Whatever");
    EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, L"Software\\Deep\\Key"));
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, L"Ignored"));
}

TEST_F(CRegistryTest, EachWriterStoresItsTypeAndSizeTextWithoutTerminatorAndEmptyAsOneByte) {
    CRegistry registry;
    Prepare(registry);
    DWORD number = 0x01020304;
    ASSERT_EQ(registry.WriteRegSetting(L"Number", &number), 1);
    BYTE blob[] = {9, 8, 0, 7};
    ASSERT_EQ(registry.WriteRegSetting(L"Blob", static_cast<void *>(blob), DWORD{sizeof blob}), 1);
    std::vector<BYTE> list = platform::ToUtf16Bytes(std::wstring(L"one\0two\0\0", 9));
    ASSERT_EQ(registry.WriteRegSetting(L"List", list.data(), static_cast<int>(list.size())), 1);
    // The size of an expandable text is stored as given, here two characters.
    ASSERT_EQ(registry.WriteRegSetting(L"Path", true, L"%HOME%", 4u), 1);
    ASSERT_EQ(registry.WriteRegSetting(L"Name", L"abc"), 1);
    ASSERT_EQ(registry.WriteRegSetting(L"Empty", L""), 1);

    struct Expected {
        const wchar_t *name;
        DWORD type;
        DWORD size;
    };
    for (const Expected &value :
         {Expected{L"Number", REG_DWORD, 4}, Expected{L"Blob", REG_BINARY, 4},
          Expected{L"List", REG_MULTI_SZ, 18}, Expected{L"Path", REG_EXPAND_SZ, 4},
          Expected{L"Name", REG_SZ, 6}, Expected{L"Empty", REG_SZ, 1}}) {
        SCOPED_TRACE(platform::ToUtf8(value.name));
        DWORD type = 0, size = 0;
        ASSERT_EQ(registry.GetTypeAndSize(value.name, &type, &size), 1);
        EXPECT_EQ(type, value.type);
        EXPECT_EQ(size, value.size);
    }

    wchar_t path[8] = {};
    ASSERT_EQ(registry.GetRegSetting(L"Path", path, 14), 1);
    EXPECT_STREQ(path, L"%H");
    ASSERT_EQ(registry.GetRegSetting(L"Name", path, 14), 1);
    EXPECT_STREQ(path, L"abc");
    ASSERT_EQ(registry.GetRegSetting(L"Empty", path, 14), 1);
    EXPECT_STREQ(path, L"");
}

TEST_F(CRegistryTest, ABufferTooSmallOrAKeyThatDoesNotExistGivesZero) {
    CRegistry registry;
    Prepare(registry);
    ASSERT_EQ(registry.WriteRegSetting(L"Name", L"abcdef"), 1);
    wchar_t small[2] = {};
    EXPECT_EQ(registry.GetRegSetting(L"Name", small, 4), 0);
    // Four bytes at most into a number, whatever the type: the default stays.
    DWORD number = 77;
    EXPECT_EQ(registry.GetRegSetting(L"Name", &number), 0);
    EXPECT_EQ(number, 77u);
    unsigned char bytes[4];
    int size = sizeof bytes;
    EXPECT_EQ(registry.GetRegSetting(L"Name", bytes, &size), 0);
    EXPECT_EQ(size, 12);  // out: the size needed

    CRegistry missing;
    missing.SetAppKey(L"Software\\Never\\Made");
    wchar_t text[8] = {};
    EXPECT_EQ(missing.WriteRegSetting(L"Name", L"x"), 0);
    EXPECT_EQ(missing.GetRegSetting(L"Name", text, 14), 0);
    EXPECT_EQ(missing.RemoveName(L"Name"), 0);
    EXPECT_EQ(missing.RemoveKey(), 0);
    EXPECT_EQ(missing.FindFirst(text, 8), 0);
}

TEST_F(CRegistryTest, RemoveNameAndRemoveKeyDeleteAndTheInstanceKeepsItsPath) {
    CRegistry registry;
    Prepare(registry);
    ASSERT_EQ(registry.WriteRegSetting(L"Name", L"x"), 1);
    EXPECT_EQ(registry.RemoveName(L"Name"), 1);
    EXPECT_EQ(registry.RemoveName(L"Name"), 0);

    CRegistry child;
    Prepare(child, L"Software\\Orvane Labs\\Varnick\\Options\\Deep");
    EXPECT_EQ(registry.RemoveKey(), 1);
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, kProductKey));
    EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, L"Software\\Orvane Labs"));
    EXPECT_EQ(registry.RemoveKey(), 0);
    registry.CreateAppKey(L"Software\\Unrelated\\Argument");
    EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, kProductKey));
}

TEST_F(CRegistryTest, FindFirstAndFindNextListValueNamesSkipOnesThatDoNotFitAndStartOver) {
    CRegistry registry;
    Prepare(registry, L"Software\\Orvane Labs\\Varnick\\ExcludeLocations");
    for (const wchar_t *name : {L"/home/a", L"/home/b", L"/mnt/c"}) {
        ASSERT_EQ(registry.WriteRegSetting(name, L""), 1);
    }
    wchar_t shortName[8];
    ASSERT_EQ(registry.FindFirst(shortName, 8), 1);
    EXPECT_EQ(registry.FindNext(shortName, 7), 0);  // "/home/b" does not fit
    ASSERT_EQ(registry.FindNext(shortName, 7), 1);
    EXPECT_STREQ(shortName, L"/mnt/c");
    std::vector<std::wstring> names;
    wchar_t name[1024];
    for (int found = registry.FindFirst(name, 1024); found; found = registry.FindNext(name, 1024)) {
        names.push_back(name);
    }
    EXPECT_EQ(names, (std::vector<std::wstring>{L"/home/a", L"/home/b", L"/mnt/c"}));
    EXPECT_EQ(registry.FindNext(name, 1024), 0);
    ASSERT_EQ(registry.FindFirst(name, 1024), 1);
    EXPECT_STREQ(name, L"/home/a");

    // GetNextString leaves the cursor alone.
    ASSERT_EQ(registry.GetNextString(2, name, 1024), 1);
    EXPECT_STREQ(name, L"/mnt/c");
    ASSERT_EQ(registry.FindNext(name, 1024), 1);
    EXPECT_STREQ(name, L"/home/b");
}

TEST_F(CRegistryTest, FindFirstKeyWalksTheTopLevelOfTheHiveNotTheAppKey) {
    CRegistry registry;
    Prepare(registry);
    CRegistry child;
    Prepare(child, L"Software\\Orvane Labs\\Varnick\\Child");
    CRegistry top;
    top.CreateAppKey(L"AppEvents");
    EXPECT_EQ(TopLevelKeys(registry), (std::vector<std::wstring>{L"AppEvents", L"Software"}));
    wchar_t name[256];
    ASSERT_EQ(registry.FindFirstKey(name, 256), 1);
    EXPECT_STREQ(name, L"AppEvents");
}
