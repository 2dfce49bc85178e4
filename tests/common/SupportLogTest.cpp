// The support report: its file, its sections and their line forms.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "../platform/ScopedEnv.h"
#include "CAppUtils.h"
#include "CLogging.h"
#include "platform/Registry.h"
#include "platform/Win32.h"
#include "support/TempHome.h"

namespace fs = std::filesystem;

namespace {

class SupportLogTest : public testsupport::HomeTest {
protected:
    std::wstring SupportLog() const { return CLogging::LogFolder() + L"Support.log"; }

    // What a section writes into a log of its own, without the log's header.
    template <typename Section>
    std::string SectionText(Section section, int level = 0) {
        std::wstring path = (home.Scratch() / "section.log").wstring();
        FILE *log = _wfopen(path.c_str(), L"wt, ccs=UNICODE");
        EXPECT_NE(log, nullptr);
        section(log, level);
        fclose(log);
        return TextOf(path);
    }

    static std::string TextOf(const std::wstring &path) {
        std::wstring text;
        EXPECT_TRUE(platform::ReadTextFile(path, text)) << platform::ToUtf8(path);
        return platform::ToUtf8(text);
    }
};

std::vector<std::string> Lines(const std::string &text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(text.substr(start, end - start));
    if (start < text.size()) lines.push_back(text.substr(start));
    return lines;
}

bool HasLineMatching(const std::string &text, const std::string &pattern) {
    std::regex expression(pattern);
    for (const std::string &line : Lines(text))
        if (std::regex_match(line, expression)) return true;
    return false;
}

// The text as a regular expression that matches only itself.
std::string Escaped(const std::string &text) {
    return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
}

// "name,size,date,time,md5,folder" with the platform's short date and time.
std::string FileLinePattern(const std::string &name, const std::string &size,
                            const std::string &md5, const fs::path &folder) {
    return Escaped(name) + "," + size + R"(,\d{4}-\d{2}-\d{2},\d{2}:\d{2}:\d{2},)" + md5 + "," +
           Escaped(folder.string());
}

// Stores a value as the store keeps it: text as UTF-16LE bytes.
void StoreValue(HKEY hive, const wchar_t *key, const wchar_t *name, DWORD type,
                const std::string &bytes) {
    HKEY handle = nullptr;
    ASSERT_EQ(RegCreateKeyExW(hive, key, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &handle, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(
        platform::RegSetValueBytes(handle, name, type, reinterpret_cast<const BYTE *>(bytes.data()),
                                   static_cast<DWORD>(bytes.size())),
        ERROR_SUCCESS);
    RegCloseKey(handle);
}

const auto Utf16 = testsupport::Utf16Bytes;

}  // namespace

TEST_F(SupportLogTest,
       ReportHoldsTheThreeSectionsInOrderAndRestoresTheCursorOrWithoutItsFolderDoesNothing) {
    SetCursor(LoadCursorW(nullptr, IDC_IBEAM));
    CLogging::MakeSupportLog();
    EXPECT_EQ(GetCursor(), LoadCursorW(nullptr, IDC_IBEAM)) << "no wait cursor for nothing";
    EXPECT_FALSE(fs::exists(home.Path() / "user/.local/share/Orvane Labs"));

    CLogging::LogFolder();  // the report does not make its folder
    CLogging::MakeSupportLog();
    EXPECT_EQ(GetCursor(), LoadCursorW(nullptr, IDC_ARROW));
    EXPECT_EQ(GetCapture(), nullptr);

    std::string bytes = testsupport::ReadBytes(fs::path(SupportLog()));
    ASSERT_GE(bytes.size(), 2u);
    EXPECT_EQ(bytes.substr(0, 2), "\xFF\xFE");

    std::string text = TextOf(SupportLog());
    // No time header: the report is not a component log.
    EXPECT_EQ(text.rfind("\n------  Computer Information  -------\nWindowsVersion=", 0), 0u)
        << text.substr(0, 80);
    std::size_t computer = text.find("------  Computer Information  -------");
    std::size_t program = text.find("\n------  Program Directory  -------\n");
    std::size_t registry = text.find("\n------  Registry  -------\n");
    ASSERT_NE(program, std::string::npos);
    ASSERT_NE(registry, std::string::npos);
    EXPECT_LT(computer, program);
    EXPECT_LT(program, registry);
    EXPECT_EQ(text.substr(text.size() - 1), "\n");
}

TEST_F(SupportLogTest,
       ComputerInformationLinesInTheirFormsAndOrderWithoutAValueTooLongForItsBuffer) {
    testsupport::ScopedEnv path("PATH", std::string(0x8000, 'p').c_str());
    testsupport::ScopedEnv user("USER", "tester");
    testsupport::ScopedEnv shell("SHELL", "/bin/sh");
    testsupport::ScopedEnv lang("LANG", nullptr);
    testsupport::ScopedEnv userHome("HOME", "/home/tester");
    std::string text = SectionText(CLogging::ComputerInfo);

    std::vector<std::string> lines = Lines(text);
    ASSERT_GE(lines.size(), 12u) << text;
    EXPECT_EQ(lines[0], "");
    EXPECT_EQ(lines[1], "------  Computer Information  -------");
    EXPECT_TRUE(std::regex_match(lines[2], std::regex(R"(WindowsVersion=[1-9]\d*\.\d+)")))
        << lines[2];
    EXPECT_TRUE(std::regex_match(lines[3], std::regex(R"(PhysicalMemory=[1-9]\d*MB)"))) << lines[3];
    EXPECT_EQ(lines[4], "Drive Space:");
    // The root is the first fixed drive.
    EXPECT_TRUE(
        std::regex_match(lines[5], std::regex(R"(  / - size \d+\.\d\dGB, free \d+\.\d\dGB)")))
        << lines[5];

    std::size_t strings = text.find("\nEnvironment strings:\n");
    ASSERT_NE(strings, std::string::npos);
    EXPECT_LT(text.find("\nNumberOfMonitors=1\n"), strings);
    std::string rest = text.substr(strings + 22);

    std::vector<std::string> environment = Lines(rest);
    ASSERT_EQ(environment.size(), 6u) << rest;
    EXPECT_EQ(environment[0], "HOME=/home/tester");
    EXPECT_EQ(environment[2], "LANG=%LANG%") << "an unset variable stays unexpanded";
    EXPECT_EQ(environment[3], "SHELL=/bin/sh");
    EXPECT_EQ(environment[4], "USER=tester");
    EXPECT_EQ(environment[5], "");
}

TEST_F(SupportLogTest, FolderListingWalksTheTreeWithDigests) {
    fs::path root = home.Scratch("program");
    testsupport::WriteBytes(root / "abc.txt", "abc");
    testsupport::WriteBytes(root / ".hidden", "");
    fs::create_directories(root / "sub" / "deeper");
    testsupport::WriteBytes(root / "sub" / "deeper" / "data.bin",
                            "The quick brown fox jumps over the lazy dog");
    fs::create_symlink(root / "abc.txt", root / "link.txt");
    fs::create_directory_symlink(root, root / "sub" / "loop");

    std::string text = SectionText(
        [&](FILE *log, int level) { CLogging::ListFolder(log, level, root.wstring().c_str()); });
    std::vector<std::string> lines = Lines(text);
    ASSERT_EQ(lines.size(), 3u) << text;  // links, folders, "." and ".." give no line
    EXPECT_TRUE(HasLineMatching(
        text, FileLinePattern("abc.txt", "3", "900150983cd24fb0d6963f7d28e17f72", root)))
        << text;
    EXPECT_TRUE(HasLineMatching(
        text, FileLinePattern(".hidden", "0", "d41d8cd98f00b204e9800998ecf8427e", root)))
        << text;
    EXPECT_TRUE(
        HasLineMatching(text, FileLinePattern("data.bin", "43", "9e107d9d372bb6826bd81d3542a419d6",
                                              root / "sub" / "deeper")))
        << text;

    // A missing folder, or no log, lists nothing.
    text = SectionText([&](FILE *log, int level) {
        CLogging::ListFolder(log, level, (home.Path() / "absent").wstring().c_str());
    });
    EXPECT_EQ(text, "");
    CLogging::ListFolder(nullptr, 0, home.Path().wstring().c_str());
}

TEST_F(SupportLogTest, RegistryDumpShowsEveryValueTypeInItsLineForm) {
    const wchar_t *product = L"SOFTWARE\\Orvane Labs\\Varnick";
    StoreValue(HKEY_CURRENT_USER, product, L"None", REG_NONE, "");
    StoreValue(HKEY_CURRENT_USER, product, L"Folder", REG_SZ, Utf16(L"C:\\x \u00e9\U0001F600"));
    StoreValue(HKEY_CURRENT_USER, product, L"Expand", REG_EXPAND_SZ, Utf16(L"%TEMP%"));
    StoreValue(HKEY_CURRENT_USER, product, L"Bytes", REG_BINARY, std::string("\x01\xab\x00", 3));
    StoreValue(HKEY_CURRENT_USER, product, L"Count", REG_DWORD, std::string(4, '\xff'));
    StoreValue(HKEY_CURRENT_USER, product, L"Big", REG_DWORD_BIG_ENDIAN, std::string(4, '\1'));
    StoreValue(HKEY_CURRENT_USER, product, L"Link", REG_LINK, Utf16(L"x"));
    StoreValue(HKEY_CURRENT_USER, product, L"List", REG_MULTI_SZ,
               Utf16(std::wstring(L"a\0b\0\0", 5)));
    StoreValue(HKEY_CURRENT_USER, product, L"Wide", REG_QWORD, std::string(8, '\2'));
    StoreValue(HKEY_CURRENT_USER, product, L"Odd", 9, "x");
    StoreValue(HKEY_CURRENT_USER, L"SOFTWARE\\Orvane Labs\\Varnick\\Sub", nullptr, REG_SZ,
               Utf16(L"sub default") + std::string(2, '\0'));
    StoreValue(HKEY_CURRENT_USER, L"SOFTWARE\\Orvane Labs\\Varnick\\Sub\\Deeper", L"Level",
               REG_DWORD, std::string("\x07\0\0\0", 4));
    StoreValue(HKEY_CLASSES_ROOT, L".zip", nullptr, REG_SZ, Utf16(L"Varnick.Archive.Open.Zip"));
    StoreValue(HKEY_CLASSES_ROOT, L".doc", nullptr, REG_SZ, Utf16(L"Word.Document"));

    std::string text = SectionText(CLogging::RegKeys);
    EXPECT_EQ(text,
              "\n------  Registry  -------\n"
              "HKEY_CURRENT_USER\\SOFTWARE\\Orvane Labs\\Varnick\n"
              "  (Default),REG_SZ,\"(value not set)\"\n"
              "  None,REG_NONE\n"
              "  Folder,REG_SZ,\"C:\\x \xC3\xA9\xF0\x9F\x98\x80\"\n"
              "  Expand,REG_EXPAND_SZ\n"
              "  Bytes,REG_BINARY,01,ab,00\n"
              "  Count,REG_DWORD,-1\n"
              "  Big,REG_DWORD_BIG_ENDIAN\n"
              "  Link,REG_LINK\n"
              "  List,REG_MULTI_SZ\n"
              "  Wide,REG_QWORD\n"
              "  Odd,ERROR_UNDEFINED,\n"
              "  HKEY_CURRENT_USER\\SOFTWARE\\Orvane Labs\\Varnick\\Sub\n"
              "    (Default),REG_SZ,\"sub default\"\n"
              "    HKEY_CURRENT_USER\\SOFTWARE\\Orvane Labs\\Varnick\\Sub\\Deeper\n"
              "      (Default),REG_SZ,\"(value not set)\"\n"
              "      Level,REG_DWORD,7\n"
              "HKEY_CLASSES_ROOT\\.zip\n"
              "  (Default),REG_SZ,\"Varnick.Archive.Open.Zip\"\n"
              "\n");
}

TEST_F(SupportLogTest, RegistryDumpShowsAtMost1024BytesOfDataOnWholeLines) {
    const wchar_t *key = L"SOFTWARE\\Orvane Labs\\Varnick";
    StoreValue(HKEY_LOCAL_MACHINE, key, L"Full", REG_BINARY, std::string(1024, '\x5a'));
    StoreValue(HKEY_LOCAL_MACHINE, key, L"Over", REG_BINARY, std::string(1025, '\x5a'));
    StoreValue(HKEY_LOCAL_MACHINE, key, L"Text", REG_SZ, Utf16(std::wstring(513, L't')));

    std::vector<std::string> lines = Lines(SectionText(CLogging::RegKeys));
    ASSERT_EQ(lines.size(), 8u);
    EXPECT_EQ(lines[2], "HKEY_LOCAL_MACHINE\\SOFTWARE\\Orvane Labs\\Varnick");
    std::string bytes;
    for (int i = 0; i < 1024; ++i) bytes += ",5a";
    EXPECT_EQ(lines[4], "  Full,REG_BINARY" + bytes) << "not cut like a line of Msg";
    EXPECT_EQ(lines[5], "  Over,REG_BINARY" + bytes);
    EXPECT_EQ(lines[6], "  Text,REG_SZ,\"" + std::string(512, 't') + "\"");
}

TEST_F(SupportLogTest, SectionsFollowTheLevelFilter) {
    StoreValue(HKEY_CURRENT_USER, L"SOFTWARE\\Orvane Labs\\Varnick", L"Count", REG_DWORD,
               std::string(4, '\0'));
    CLogging::SetLevel(1, 2);
    EXPECT_EQ(SectionText(CLogging::ComputerInfo, 3), "");
    EXPECT_NE(SectionText(CLogging::ComputerInfo, 2), "");
    EXPECT_EQ(SectionText(CLogging::RegKeys, 3), "");
    EXPECT_NE(SectionText(CLogging::RegKeys, 1).find("  Count,REG_DWORD,0\n"), std::string::npos);
    CLogging::SetLevel(0, 0);
    CLogging::RegKeys(nullptr, 0);
}
