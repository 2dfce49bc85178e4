// The format catalogue: lookups by name and by engine id, the
// quick archive test, and the names for new archives.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <regex>
#include <string>

#include "FormatCatalogue.h"
#include "archive/ArchiveTest.h"

namespace fs = std::filesystem;

namespace {

using archivetest::ArchiveTest;

constexpr unsigned kDefaultArchiveName = 498;
constexpr unsigned kIndexPrefix = 763;

// Changes the working folder for a scope.
class WorkingFolder {
public:
    explicit WorkingFolder(const fs::path &folder) : saved_(fs::current_path()) {
        fs::current_path(folder);
    }
    ~WorkingFolder() { fs::current_path(saved_); }

private:
    fs::path saved_;
};

std::string EngineId(format::type type) {
    FormatId id;
    std::memset(id, 'x', sizeof id);
    GetFormatID(type, id);
    return id;
}

// A name and the value its ending leads to.
struct Ending {
    const wchar_t *name;
    format::type type;
};

void ExpectTypes(std::initializer_list<Ending> endings) {
    for (const Ending &ending : endings)
        EXPECT_EQ(GetFormatType(ending.name), ending.type) << ending.name;
}

TEST(FormatCatalogue, PathLookupIgnoresCaseTestsCompoundEndingsFirstAndGivesTheContainerOfAliases) {
    ExpectTypes({
        {L"a.TAR.GZ", format::targz},
        {L"a.vnk.bin", format::vnkbin},
        {L"a.bin", format::bin},
        // These differ from the extension column on purpose; the last two
        // are the first piece of a split RAR or Zip.
        {L"a.tar.bz2", format::tbz2},
        {L"a.uu", format::uue},
        {L"a.cbz", format::zip},
        {L"a.001", format::rar},
        {L"a.z01", format::zip},
    });
}

TEST(FormatCatalogue, EngineIdLookupIsExactAndNotTheInverseOfGetFormatID) {
    EXPECT_EQ(GetFormatType("vnk5"), format::vnk);
    EXPECT_EQ(GetFormatType("vnk"), format::vnk);
    EXPECT_EQ(GetFormatType("compress"), format::z);
    EXPECT_EQ(GetFormatType("uu"), format::uue);
    EXPECT_EQ(GetFormatType("vnkseg"), format::vnkseg);
    // Written by GetFormatID, unknown here.
    EXPECT_EQ(GetFormatType("cab"), format::unknown);
    EXPECT_EQ(GetFormatType("ZIP"), format::unknown);
    EXPECT_EQ(GetFormatType(""), format::unknown);
    EXPECT_EQ(GetFormatType(static_cast<const char *>(nullptr)), format::unknown);
    // And the segment ids have no way back.
    EXPECT_EQ(EngineId(format::vnkseg), "");
}

TEST(FormatCatalogue, EveryEngineIdButCabLeadsBackToAFormatOfTheSameId) {
    // Values without a row have no id and are passed over.
    for (int value = format::zip; value <= format::vidx; ++value) {
        const auto type = static_cast<format::type>(value);
        std::string id = EngineId(type);
        if (id.empty() || id == "cab") continue;
        format::type back = GetFormatType(id.c_str());
        ASSERT_NE(back, format::unknown) << id;
        EXPECT_EQ(EngineId(back), id) << type;
    }
}

TEST(FormatCatalogue, IsArchiveIsANameTest) {
    EXPECT_TRUE(IsArchive(L"a.TBZ", false));
    EXPECT_FALSE(IsArchive(L"a.txt", false));
    EXPECT_FALSE(IsArchive(L"zip", false));
    EXPECT_FALSE(IsArchive(L"z", true)) << "shorter than every suffix";
    // Executables need the engine's look, and only when asked for.
    EXPECT_FALSE(IsArchive(L"setup.exe", false));
}

TEST_F(ArchiveTest, IndexFilesAreKnownByTheirNamesPrefix) {
    const std::wstring prefix = Text(kIndexPrefix);
    ASSERT_FALSE(prefix.empty());
    EXPECT_TRUE(IsVnkxIndex((prefix + L"photos.vidx").c_str()));
    EXPECT_TRUE(IsVnkxIndex((L"/some/folder/" + prefix + L"photos").c_str()));
    EXPECT_TRUE(IsVnkxIndex(platform::ToUpper(prefix + L"photos.vnkx").c_str()));
    EXPECT_FALSE(IsVnkxIndex(L"photos.vidx"));
    EXPECT_FALSE(IsVnkxIndex((L"/" + prefix + L"dir/photos.vidx").c_str()));
    EXPECT_FALSE(IsVnkxIndex(prefix.substr(0, prefix.size() - 1).c_str()));
    EXPECT_FALSE(IsVnkxIndex(nullptr));
}

TEST_F(ArchiveTest, UniqueArchiveNameNumbersTakenNamesAndTheDefaultNameRetryLosesTheName) {
    const fs::path folder = home.Scratch("a");
    const std::wstring source = Wide(folder / "report.txt");
    EXPECT_EQ(MakeUniqueArchiveName(source.c_str(), L".zip", L""), Wide(folder / "report.zip"));
    testsupport::WriteBytes(folder / "report.zip", "x");
    // A folder of the same name counts as taken too.
    fs::create_directory(folder / "report_1.zip");
    EXPECT_EQ(MakeUniqueArchiveName(source.c_str(), L".zip", nullptr),
              Wide(folder / "report_2.zip"));

    const std::wstring defaultName = Text(kDefaultArchiveName);
    ASSERT_FALSE(defaultName.empty());
    WorkingFolder cwd(home.Scratch("cwd"));  // relative names
    EXPECT_EQ(MakeUniqueArchiveName(L"", L".zip", L""), defaultName + L".zip");
    testsupport::WriteBytes(defaultName + L".zip", "x");
    EXPECT_EQ(std::wstring(MakeUniqueArchiveName(nullptr, L".zip", nullptr)), L"_1.zip");
}

TEST_F(ArchiveTest, TimeStampArchiveNamePutsTheLocalTimeBetweenNameAndExtension) {
    const fs::path folder = home.Scratch("stamp");
    const std::wstring source = Wide(home.Path() / "x" / "backup.txt");
    std::time_t before = std::time(nullptr);
    std::wstring name = TimeStampArchiveName(source.c_str(), L".zip", Wide(folder).c_str());
    std::time_t after = std::time(nullptr);

    const std::wstring prefix = Wide(folder / "backup");
    ASSERT_EQ(name.compare(0, prefix.size(), prefix), 0) << name;
    std::wstring stamp = name.substr(prefix.size());
    ASSERT_TRUE(std::regex_match(platform::ToUtf8(stamp), std::regex(R"(\d{14}\.zip)"))) << stamp;
    auto printed = [](std::time_t when) {
        std::tm local{};
        localtime_r(&when, &local);
        char text[16];
        std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &local);
        return platform::FromUtf8(text);
    };
    std::wstring digits = stamp.substr(0, 14);
    EXPECT_TRUE(digits == printed(before) || digits == printed(after)) << digits;
}

}  // namespace
