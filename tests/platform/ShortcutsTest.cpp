// Shortcuts: symbolic links and desktop entries, written and resolved.
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "platform/Shortcuts.h"
#include "platform/WideText.h"
#include "support/PathText.h"
#include "support/TempHome.h"

namespace fs = std::filesystem;
using testsupport::ReadBytes;
using testsupport::WriteBytes;

namespace {

const auto W = testsupport::Wide;

class ShortcutsTest : public testsupport::HomeTest {
protected:
    fs::path dir = fs::canonical(home.Scratch("links"));
};

}  // namespace

TEST_F(ShortcutsTest, SymbolicLinksResolveToAbsoluteTargetsThroughChains) {
    fs::create_directory(dir / "real");
    WriteBytes(dir / "real/file.txt", "x");
    fs::create_symlink("real/file.txt", dir / "relative");
    fs::create_symlink(dir / "relative", dir / "chain");
    fs::create_symlink(dir / "gone", dir / "dangling");
    EXPECT_EQ(platform::ResolveShortcut(W(dir / "relative")), W(dir / "real/file.txt"));
    EXPECT_EQ(platform::ResolveShortcut(W(dir / "chain")), W(dir / "real/file.txt"));
    EXPECT_EQ(platform::ResolveShortcut(W(dir / "dangling")), W(dir / "gone"));
    // Anything else comes back as it was given.
    EXPECT_EQ(platform::ResolveShortcut(W(dir / "real/file.txt")), W(dir / "real/file.txt"));
    EXPECT_EQ(platform::ResolveShortcut(W(dir / "missing.desktop")), W(dir / "missing.desktop"));
    EXPECT_EQ(platform::ResolveShortcut(L""), L"");
    EXPECT_EQ(platform::ResolveShortcut(L"relative/name"), L"relative/name");
}

TEST_F(ShortcutsTest, LinkDesktopFileCarriesAFileUrlAndResolvesBack) {
    const std::wstring target = W(dir) + L"/My Archives/\u65e5\u672c 100%.vnk";
    const fs::path link = dir / "Desktop/archive.desktop";
    ASSERT_TRUE(
        platform::CreateLinkDesktopFile(W(link), target, L"My archive", L"Line one\nLine \\two"));
    const std::string expected =
        "[Desktop Entry]\nVersion=1.0\nType=Link\nName=My archive\n"
        "Comment=Line one\\nLine \\\\two\nURL=file://" +
        dir.string() + "/My%20Archives/%E6%97%A5%E6%9C%AC%20100%25.vnk\n";
    EXPECT_EQ(ReadBytes(link), expected);
    EXPECT_EQ(platform::ResolveShortcut(W(link)), target);

    // A URL stays a URL; an empty name falls back to the file's own.
    ASSERT_TRUE(platform::CreateLinkDesktopFile(W(dir / "Site.DESKTOP"),
                                                L"https://example.org/a?b=c", L"", L""));
    EXPECT_EQ(ReadBytes(dir / "Site.DESKTOP"),
              "[Desktop Entry]\nVersion=1.0\nType=Link\nName=Site\n"
              "URL=https://example.org/a?b=c\n");
    EXPECT_EQ(platform::ResolveShortcut(W(dir / "Site.DESKTOP")), L"https://example.org/a?b=c");

    // Writing again replaces the file.
    ASSERT_TRUE(platform::CreateLinkDesktopFile(W(link), L"/other", L"n", L""));
    EXPECT_EQ(platform::ResolveShortcut(W(link)), L"/other");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir / "Desktop"), fs::directory_iterator()), 1);
}

TEST_F(ShortcutsTest, ApplicationDesktopFileQuotesTheCommandLine) {
    const fs::path entry = dir / "autostart/varnick.desktop";
    ASSERT_TRUE(platform::CreateApplicationDesktopFile(
        W(entry), L"/opt/Varnick Tools/varnick-scheduler",
        L"-s \"/home/u/My Tasks/a.varnicktask\" 50% plain $HOME", L"Varnick scheduler",
        L" leading blank"));
    EXPECT_EQ(ReadBytes(entry),
              "[Desktop Entry]\nVersion=1.0\nType=Application\nName=Varnick scheduler\n"
              "Comment=\\sleading blank\n"
              "Exec=\"/opt/Varnick Tools/varnick-scheduler\" -s \"/home/u/My Tasks/a.varnicktask\" "
              "50%% plain \"\\\\$HOME\"\n"
              "Terminal=false\n");
    EXPECT_EQ(platform::ResolveShortcut(W(entry)), L"/opt/Varnick Tools/varnick-scheduler");
    struct stat info {};
    ASSERT_EQ(stat(entry.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0755u);
}

TEST_F(ShortcutsTest, DesktopFilesOfOtherKindsAndBadInputAreLeftAlone) {
    WriteBytes(dir / "folder.desktop", "[Desktop Entry]\nType=Directory\nName=x\n");
    WriteBytes(dir / "nogroup.desktop", "Type=Link\nURL=file:///etc\n");
    WriteBytes(dir / "later.desktop",
               "# comment\n[Other]\nURL=file:///wrong\n[Desktop Entry]\n Type = Link \n"
               "URL[de]=file:///de\nURL=file:///right%20one\n");
    WriteBytes(dir / "remote.desktop", "[Desktop Entry]\nType=Link\nURL=file://server/share\n");
    EXPECT_EQ(platform::ResolveShortcut(W(dir / "folder.desktop")), W(dir / "folder.desktop"));
    EXPECT_EQ(platform::ResolveShortcut(W(dir / "nogroup.desktop")), W(dir / "nogroup.desktop"));
    EXPECT_EQ(platform::ResolveShortcut(W(dir / "later.desktop")), L"/right one");
    EXPECT_EQ(platform::ResolveShortcut(W(dir / "remote.desktop")), L"file://server/share");

    WriteBytes(dir / "app.desktop",
               "[Desktop Entry]\nType=Application\nExec=%U \"/usr/bin/my app\" %f\n");
    EXPECT_EQ(platform::ResolveShortcut(W(dir / "app.desktop")), L"/usr/bin/my app");

    EXPECT_FALSE(platform::CreateLinkDesktopFile(L"", L"/x", L"n", L""));
    EXPECT_FALSE(platform::CreateLinkDesktopFile(W(dir / "a.desktop"), L"", L"n", L""));
    EXPECT_FALSE(platform::CreateApplicationDesktopFile(W(dir / "b.desktop"), L"", L"", L"", L""));
    WriteBytes(dir / "file", "x");
    EXPECT_FALSE(platform::CreateLinkDesktopFile(W(dir / "file/c.desktop"), L"/x", L"n", L""));
    EXPECT_FALSE(fs::exists(dir / "a.desktop"));
}

TEST(UrlPath, EncodingRoundTrips) {
    const std::wstring path = L"/a b/%/\u00fc/\U0001F600/~x_y-z.q";
    EXPECT_EQ(platform::EncodeUrlPath(path), "/a%20b/%25/%C3%BC/%F0%9F%98%80/~x_y-z.q");
    EXPECT_EQ(platform::DecodeUrlPath(platform::EncodeUrlPath(path)), path);
    EXPECT_EQ(platform::DecodeUrlPath("%zz%4"), L"%zz%4");
}
