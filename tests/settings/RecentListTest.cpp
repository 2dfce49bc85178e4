#include "CRecentList.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "CPathFolders.h"
#include "CRegistry.h"
#include "platform/WideText.h"
#include "support/RegistryHome.h"

namespace {

constexpr const wchar_t *kListKey = L"Software\\Orvane Labs\\Varnick\\RecentList";

class RecentListTest : public testsupport::RegistryHomeTest {
protected:
    // An existing file below the home, as a wide path.
    std::wstring MakeFile(const std::string &name) {
        auto path = home.Scratch() / name;
        testsupport::WriteBytes(path, "x");
        return platform::FromUtf8(path.string());
    }

    static void Store(const wchar_t *name, const std::wstring &value) {
        CRegistry registry;
        registry.SetAppKey(kListKey);
        registry.CreateAppKey(kListKey);
        registry.WriteRegSetting(name, value.c_str());
    }

    // The stored value, or "<none>".
    static std::wstring Stored(const wchar_t *name) {
        CRegistry registry;
        registry.SetAppKey(kListKey);
        wchar_t buffer[512] = {};
        if (!registry.GetRegSetting(name, buffer, sizeof buffer - 2)) return L"<none>";
        return buffer;
    }

    static std::vector<std::wstring> Items(CRecentList &list) {
        std::vector<std::wstring> items;
        for (unsigned i = 0; i < list.GetSize(); ++i) items.push_back(list.GetItem(i));
        return items;
    }
};

TEST_F(RecentListTest, AddPutsNewestFirstAndMovesAnEqualPathWithItsNewSpelling) {
    const std::wstring a = MakeFile("a.vnkx"), b = MakeFile("b.vnkx");
    std::wstring upperA = a;
    upperA.replace(upperA.size() - 6, 6, L"A.VNKX");

    CRecentList list;
    list.Add(a.c_str());
    list.Add(b.c_str());
    EXPECT_EQ(Items(list), (std::vector<std::wstring>{b, a}));
    list.Add(upperA.c_str());
    EXPECT_EQ(Items(list), (std::vector<std::wstring>{upperA, b}));

    list.Remove(a.c_str());  // ignoring case
    EXPECT_EQ(Items(list), (std::vector<std::wstring>{b}));
}

TEST_F(RecentListTest, LimitCutsSizeItemsAndSaveButNotTheArray) {
    std::vector<std::wstring> files;
    for (int i = 0; i < 6; ++i) files.push_back(MakeFile("f" + std::to_string(i)));

    CRecentList list;
    for (const auto &file : files) list.Add(file.c_str());
    EXPECT_EQ(list.GetSize(), 5u);
    EXPECT_STREQ(list.GetItem(4), files[1].c_str());
    EXPECT_STREQ(list.GetItem(5), L"");
    list.Save();
    EXPECT_EQ(Stored(L"0"), files[5]);
    EXPECT_EQ(Stored(L"4"), files[1]);
    EXPECT_EQ(Stored(L"5"), L"<none>");

    // The sixth entry is still held: removing one brings it into view.
    list.Remove(files[5].c_str());
    EXPECT_STREQ(list.GetItem(4), files[0].c_str());

    CRecentList reread;
    EXPECT_EQ(Items(reread),
              (std::vector<std::wstring>{files[5], files[4], files[3], files[2], files[1]}));
}

TEST_F(RecentListTest, ReadDeletesGoneFilesSaveClosesTheGapsButNeverRemovesOnlyClearDoes) {
    const std::wstring first = MakeFile("first"), last = MakeFile("last");
    Store(L"0", first);
    Store(L"2", platform::FromUtf8((home.Scratch() / "deleted").string()));
    Store(L"3", last);  // "1" is missing altogether

    CRecentList list;
    EXPECT_EQ(Items(list), (std::vector<std::wstring>{first, last}));
    EXPECT_EQ(Stored(L"2"), L"<none>");

    list.Save();
    EXPECT_EQ(Stored(L"1"), last);
    // The old value of the moved entry stays behind under its old index:
    // a save never removes a stored value, even of an empty list; only
    // Clear does.
    EXPECT_EQ(Stored(L"3"), last);
    list.Remove(first.c_str());
    list.Remove(last.c_str());
    list.Save();
    EXPECT_EQ(Stored(L"0"), first);
    list.Clear();
    EXPECT_EQ(list.GetSize(), 0u);
    EXPECT_EQ(Stored(L"0"), L"<none>");
}

class PathFoldersTest : public testsupport::HomeTest {};

std::vector<std::wstring> Folders(CPathFolders &folders) {
    std::vector<std::wstring> names;
    for (std::wstring name = folders.GetNextFolder(); !name.empty(); name = folders.GetNextFolder())
        names.push_back(name);
    return names;
}

TEST_F(PathFoldersTest, FoldersComeInnermostFirstFromTheFileOrFolderGiven) {
    const auto folder = home.Scratch("outer") / "inner";
    std::filesystem::create_directories(folder);
    testsupport::WriteBytes(folder / "file.txt", "x");
    const std::wstring base = platform::FromUtf8(home.Scratch("outer").string());
    const std::wstring innerPath = base + L"/inner";

    CPathFolders ofFile((innerPath + L"/file.txt").c_str());
    std::vector<std::wstring> names = Folders(ofFile);
    ASSERT_GE(names.size(), 3u);
    EXPECT_EQ(names[0], L"inner");
    EXPECT_EQ(names[1], L"outer");
    EXPECT_STREQ(ofFile.GetNextFolder(), L"");  // stays at the end

    // A path that does not exist is taken for a folder; doubled and trailing
    // separators give no empty names.
    CPathFolders missing((innerPath + L"//gone/").c_str());
    std::vector<std::wstring> withGone = Folders(missing);
    ASSERT_EQ(withGone.size(), names.size() + 1);
    EXPECT_EQ(withGone[0], L"gone");

    // What is left before the first separator comes last.
    CPathFolders relative(L"c:/a/b");
    EXPECT_EQ(Folders(relative), (std::vector<std::wstring>{L"b", L"a", L"c:"}));
}

}  // namespace
