// The profile store on disk: one INI file a profile, the process-wide
// records, and the enumeration of the profile folder.
#include <gtest/gtest.h>

#include <cwchar>
#include <filesystem>
#include <set>
#include <string>

#include "CFSUtils.h"
#include "CIniFile.h"
#include "ProfileSamples.h"
#include "TransferProfiles.h"
#include "platform/SpecialFolders.h"
#include "platform/Win32.h"
#include "support/TempHome.h"

namespace fs = std::filesystem;

namespace {

using profilesamples::Ftp;

class ProfileStoreTest : public testsupport::HomeTest {
protected:
    static fs::path Folder(const char *kind) {
        wchar_t base[1024] = {};
        CFSUtils::ShellGetFolderPath(CSIDL_LOCAL_APPDATA, base);
        return fs::path(platform::ToUtf8(base)) / "Orvane Labs" / kind;
    }
    static fs::path FtpFile(const std::string &name) { return Folder("FTPProfiles") / name; }

    static std::wstring Value(const fs::path &file, const wchar_t *section, const wchar_t *name) {
        CIniFile ini(platform::FromUtf8(file.string()).c_str());
        wchar_t value[1024] = {};
        if (!ini.GetString(section, name, value, 1024)) return L"<missing>";
        return value;
    }

    static void WriteIni(const fs::path &file, const wchar_t *section,
                         std::initializer_list<std::pair<const wchar_t *, const wchar_t *>> keys) {
        fs::create_directories(file.parent_path());
        CIniFile ini(platform::FromUtf8(file.string()).c_str());
        for (const auto &[name, value] : keys) ini.SetString(section, name, value);
        ini.Save();
    }

    static std::set<std::wstring> AllFtpNames() {
        std::set<std::wstring> names;
        for (const wchar_t *name = GetFirstFTPProfile(); name; name = GetNextFTPProfile()) {
            names.insert(name);
        }
        return names;
    }
};

TEST_F(ProfileStoreTest, FtpProfileRoundTripsWithItsPasswordEnciphered) {
    FtpProfileRecord written = Ftp(L"Office server", L"s3cret pass");
    AddFTPProfile(&written);

    fs::path file = FtpFile("Office server");
    ASSERT_TRUE(fs::is_regular_file(file)) << "the file is named exactly as the profile";
    EXPECT_EQ(Value(file, L"FTP", L"Port"), L"2121");
    std::wstring cipher = Value(file, L"FTP", L"Pass");
    EXPECT_EQ(cipher.size(), 4 * std::wcslen(L"s3cret pass"));
    EXPECT_EQ(cipher.find(L"s3cret"), std::wstring::npos);

    const FtpProfileRecord *read = GetFTPProfile(L"Office server");
    EXPECT_STREQ(read->name, written.name);
    EXPECT_STREQ(read->server, written.server);
    EXPECT_EQ(read->port, written.port);
    EXPECT_STREQ(read->path, written.path);
    EXPECT_STREQ(read->user, written.user);
    EXPECT_STREQ(read->password, written.password);
    EXPECT_TRUE(read->overwrite && read->passive);

    // No password, no key; and the read gives an empty password.
    FtpProfileRecord open = Ftp(L"Open", L"");
    AddFTPProfile(&open);
    EXPECT_EQ(Value(FtpFile("Open"), L"FTP", L"Pass"), L"<missing>");
    EXPECT_STREQ(GetFTPProfile(L"Open")->password, L"");
}

TEST_F(ProfileStoreTest,
       GetFTPProfileResetsTheRecordForMissingOrServerlessFilesButGetUploadProfileDoesNot) {
    FtpProfileRecord full = Ftp(L"Full", L"pw");
    AddFTPProfile(&full);
    FtpProfileRecord *record = GetFTPProfile(L"Full");

    // The same static record, reset: nothing of the earlier read survives.
    EXPECT_EQ(GetFTPProfile(L"Nowhere"), record);
    EXPECT_STREQ(record->name, L"Nowhere");
    EXPECT_STREQ(record->server, L"");
    EXPECT_STREQ(record->password, L"");
    EXPECT_EQ(record->port, 21u);
    EXPECT_FALSE(record->overwrite || record->passive);

    // Without a server nothing else is read, and the name comes from the
    // request, not from the file.
    WriteIni(FtpFile("Partial"), L"FTP",
             {{L"ProfileName", L"Other"},
              {L"Path", L"/x"},
              {L"Port", L"990"},
              {L"User", L"bob"},
              {L"Passive", L"1"}});
    GetFTPProfile(L"Partial");
    EXPECT_STREQ(record->name, L"Partial");
    EXPECT_STREQ(record->user, L"");
    EXPECT_EQ(record->port, 21u);

    // An upload profile is not reset for a missing name: the last good read
    // stands.
    profilesamples::AddUpload(L"Share", kUploadServiceSharing);
    UploadProfileRecord *upload = GetUploadProfile(L"Share");
    EXPECT_EQ(GetUploadProfile(L"Gone"), upload);
    EXPECT_STREQ(upload->name, L"Share");
    EXPECT_EQ(upload->service, kUploadServiceSharing);
}

TEST_F(ProfileStoreTest, EnumerationListsEveryPlainFileAndNoFolder) {
    EXPECT_EQ(GetFirstFTPProfile(), nullptr) << "the folder is made, and empty";
    EXPECT_EQ(GetNextFTPProfile(), nullptr);

    FtpProfileRecord one = Ftp(L"One", L"");
    FtpProfileRecord two = Ftp(L"Two", L"");
    AddFTPProfile(&one);
    AddFTPProfile(&two);
    testsupport::WriteBytes(FtpFile("stray.txt"), "not a profile");
    fs::create_directories(FtpFile("Sub folder"));
    EXPECT_EQ(AllFtpNames(), (std::set<std::wstring>{L"One", L"Two", L"stray.txt"}));

    EXPECT_TRUE(DeleteFTPProfile(L"stray.txt"));
    EXPECT_EQ(AllFtpNames(), (std::set<std::wstring>{L"One", L"Two"}));
}

}  // namespace
