// The text-file helper: byte form of UTF-16 text files, line reads with a
// character limit, and the failure values.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/TextFile.h"
#include "platform/WideText.h"
#include "platform/WinError.h"
#include "support/TempHome.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using testsupport::ReadBytes;
using testsupport::WriteBytes;

// "text" as UTF-16LE bytes, for comparing whole files.
std::string U16(const std::wstring &text) {
    auto bytes = platform::ToUtf16Bytes(text);
    return std::string(bytes.begin(), bytes.end());
}
const std::string kMark = "\xFF\xFE";

class TextFileTest : public testsupport::HomeTest {
protected:
    fs::path File(const std::string &name = "t.txt") { return home.Scratch() / name; }
    std::wstring WidePath(const fs::path &path) { return platform::FromUtf8(path.string()); }

    FILE *Open(const fs::path &path, const wchar_t *mode) {
        return _wfopen(WidePath(path).c_str(), mode);
    }

    void Write(const fs::path &path, const wchar_t *mode, const wchar_t *text) {
        FILE *file = Open(path, mode);
        ASSERT_NE(file, nullptr);
        EXPECT_GE(TextFilePuts(text, file), 0);
        EXPECT_EQ(std::fclose(file), 0);
    }

    std::vector<std::wstring> ReadLines(const fs::path &path, int count,
                                        const wchar_t *mode = L"rt, ccs=UNICODE") {
        std::vector<std::wstring> lines;
        FILE *file = Open(path, mode);
        EXPECT_NE(file, nullptr);
        if (!file) return lines;
        std::vector<wchar_t> buffer(count);
        while (TextFileGets(buffer.data(), count, file)) lines.emplace_back(buffer.data());
        std::fclose(file);
        return lines;
    }
};

TEST_F(TextFileTest, OpeningForWritingAndClosingLeavesOnlyTheMark) {
    WriteBytes(File(), "old content");
    FILE *file = Open(File(), L"wt, ccs=UNICODE");
    ASSERT_NE(file, nullptr);
    std::fclose(file);
    EXPECT_EQ(ReadBytes(File()), kMark);
}

TEST_F(TextFileTest, AppendWritesTheMarkOnlyIntoAnEmptyFile) {
    Write(File(), L"at, ccs=UNICODE", L"one\n");
    Write(File(), L"at, ccs=UNICODE", L"two\n");
    EXPECT_EQ(ReadBytes(File()), kMark + U16(L"one\r\ntwo\r\n"));

    WriteBytes(File("empty.txt"), "");
    Write(File("empty.txt"), L"at, ccs=UNICODE", L"x");
    EXPECT_EQ(ReadBytes(File("empty.txt")), kMark + U16(L"x"));

    // A non-empty file without a mark is continued in the ccs encoding.
    WriteBytes(File("bare.txt"), U16(L"a\r\n"));
    Write(File("bare.txt"), L"at, ccs=UNICODE", L"b\n");
    EXPECT_EQ(ReadBytes(File("bare.txt")), U16(L"a\r\nb\r\n"));
}

TEST_F(TextFileTest, AppendToUtf8MarkedFileKeepsWritingUtf8) {
    WriteBytes(File(),
               "\xEF\xBB\xBF"
               "first\r\n");
    Write(File(), L"at, ccs=UNICODE", L"\u00e9t\u00e9\n");
    EXPECT_EQ(ReadBytes(File()),
              "\xEF\xBB\xBF"
              "first\r\n\xC3\xA9t\xC3\xA9\r\n");
    EXPECT_EQ(ReadLines(File(), 100), (std::vector<std::wstring>{L"first\n", L"\u00e9t\u00e9\n"}));
}

TEST_F(TextFileTest, CharactersAboveFFFFAreSurrogatePairsOnDiskAndOneCharacterInMemory) {
    Write(File(), L"wt, ccs=UNICODE", L"\U0001F600\n");
    EXPECT_EQ(ReadBytes(File()), "\xFF\xFE\x3D\xD8\x00\xDE\r\0\n\0"s);
    EXPECT_EQ(ReadLines(File(), 8), std::vector<std::wstring>{L"\U0001F600\n"});
}

TEST_F(TextFileTest, ReadingFollowsTheMarkAndTurnsCrLfIntoLineFeeds) {
    WriteBytes(File("utf8.txt"),
               "\xEF\xBB\xBF"
               "\xE6\x97\xA5\r\nb");
    EXPECT_EQ(ReadLines(File("utf8.txt"), 100), (std::vector<std::wstring>{L"\u65e5\n", L"b"}));

    // No mark: UTF-16LE. A lone CR stays.
    WriteBytes(File("bare.txt"), U16(L"a\rb\r\nc"));
    EXPECT_EQ(ReadLines(File("bare.txt"), 100), (std::vector<std::wstring>{L"a\rb\n", L"c"}));

    // ccs=UTF-8 reads an unmarked file as UTF-8, but a UTF-16 mark wins.
    WriteBytes(File("plain.txt"), "x=\xC3\xA4\n");
    EXPECT_EQ(ReadLines(File("plain.txt"), 100, L"rt, ccs=UTF-8"),
              std::vector<std::wstring>{L"x=\u00e4\n"});
    WriteBytes(File("marked.txt"), kMark + U16(L"y\r\n"));
    EXPECT_EQ(ReadLines(File("marked.txt"), 100, L"rt, ccs=UTF-8"),
              std::vector<std::wstring>{L"y\n"});
}

TEST_F(TextFileTest, LongLinesArriveIn1023CharacterPieces) {
    std::wstring line(2500, L'\u00e4');
    Write(File(), L"wt, ccs=UNICODE", (line + L"\nx").c_str());
    std::vector<std::wstring> pieces = ReadLines(File(), 1024);
    ASSERT_EQ(pieces.size(), 4u);
    EXPECT_EQ(pieces[0], line.substr(0, 1023));
    EXPECT_EQ(pieces[1], line.substr(1023, 1023));
    EXPECT_EQ(pieces[2], line.substr(2046) + L"\n");
    EXPECT_EQ(pieces[3], L"x");
}

TEST_F(TextFileTest, LineReadEdgeCounts) {
    Write(File(), L"wt, ccs=UNICODE", L"ab\n");
    FILE *file = Open(File(), L"rt, ccs=UNICODE");
    ASSERT_NE(file, nullptr);
    wchar_t buffer[4] = L"zzz";
    EXPECT_EQ(TextFileGets(buffer, 0, file), nullptr);
    EXPECT_EQ(TextFileGets(buffer, 1, file), buffer);  // room for the terminator only
    EXPECT_STREQ(buffer, L"");
    EXPECT_EQ(TextFileGets(nullptr, 4, file), nullptr);
    EXPECT_EQ(TextFileGets(buffer, 4, nullptr), nullptr);
    EXPECT_EQ(TextFileGets(buffer, 2, file), buffer);
    EXPECT_STREQ(buffer, L"a");
    EXPECT_EQ(TextFileGets(buffer, 4, file), buffer);
    EXPECT_STREQ(buffer, L"b\n");
    EXPECT_EQ(TextFileGets(buffer, 4, file), nullptr);
    std::fclose(file);
}

TEST_F(TextFileTest, SystemCodePageModeIsUtf8WithCrLfAndNoMark) {
    Write(File(), L"wt", L"d41d8cd9\u00e4\n");
    EXPECT_EQ(ReadBytes(File()), "d41d8cd9\xC3\xA4\r\n");
    EXPECT_EQ(ReadLines(File(), 100, L"rt"), std::vector<std::wstring>{L"d41d8cd9\u00e4\n"});
}

TEST_F(TextFileTest, BinaryModeIsAPlainFileAndTakesUtf8Untranslated) {
    Write(File(), L"wb", L"a\u00e4\n");
    EXPECT_EQ(ReadBytes(File()), "a\xC3\xA4\n");
    FILE *file = Open(File(), L"rb");
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(std::fseek(file, 0, SEEK_END), 0);
    EXPECT_EQ(std::ftell(file), 4);
    std::fclose(file);
}

TEST_F(TextFileTest, FlushPutsTheTextIntoTheFileWhileItIsOpen) {
    FILE *file = Open(File(), L"at, ccs=UNICODE");
    ASSERT_NE(file, nullptr);
    TextFilePuts(L"line\n", file);
    std::fflush(file);
    EXPECT_EQ(ReadBytes(File()), kMark + U16(L"line\r\n"));
    std::fclose(file);
}

TEST_F(TextFileTest, SequencesCutAtStdioBufferEndsStayWhole) {
    // Three-byte characters in a text longer than the stdio buffer.
    std::wstring text(20000, L'\u65e5');
    Write(File(), L"wt, ccs=UNICODE", text.c_str());
    EXPECT_EQ(ReadBytes(File()), kMark + U16(text));
    std::wstring read;
    ASSERT_TRUE(platform::ReadTextFile(platform::FromUtf8(File().string()), read));
    EXPECT_EQ(read, text);
}

TEST_F(TextFileTest, PrintfTakesWindowsFormats) {
    FILE *file = Open(File(), L"wt, ccs=UNICODE");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(TextFilePrintf(file, L"%s=%I64u %S\n", L"size", 5000000000ull, "n"), 18);
    EXPECT_EQ(TextFilePrintf(file, nullptr), -1);
    std::fclose(file);
    EXPECT_EQ(ReadBytes(File()), kMark + U16(L"size=5000000000 n\r\n"));
}

TEST_F(TextFileTest, UpdateModesRewriteTheWholeTextInItsEncoding) {
    Write(File(), L"wt, ccs=UNICODE", L"abc\n");
    FILE *file = Open(File(), L"r+t, ccs=UNICODE");
    ASSERT_NE(file, nullptr);
    wchar_t buffer[16];
    ASSERT_NE(TextFileGets(buffer, 16, file), nullptr);
    EXPECT_EQ(std::ftell(file), 4);
    ASSERT_EQ(std::fseek(file, 0, SEEK_SET), 0);
    TextFilePuts(L"X", file);
    ASSERT_EQ(std::fseek(file, 0, SEEK_END), 0);
    TextFilePuts(L"\u00e4\n", file);
    std::fclose(file);
    EXPECT_EQ(ReadBytes(File()), kMark + U16(L"Xbc\r\n\u00e4\r\n"));

    // "a+" writes at the end wherever it has read.
    file = Open(File(), L"a+t, ccs=UNICODE");
    ASSERT_NE(file, nullptr);
    ASSERT_NE(TextFileGets(buffer, 16, file), nullptr);
    EXPECT_STREQ(buffer, L"Xbc\n");
    TextFilePuts(L"end\n", file);
    std::fclose(file);
    EXPECT_EQ(ReadBytes(File()), kMark + U16(L"Xbc\r\n\u00e4\r\nend\r\n"));
}

TEST_F(TextFileTest, WholeFileHelpersRoundTrip) {
    const std::wstring path = platform::FromUtf8(File().string());
    ASSERT_TRUE(platform::WriteTextFile(path, L"a\nb\n", false));
    ASSERT_TRUE(platform::WriteTextFile(path, L"c\n", true));
    EXPECT_EQ(ReadBytes(File()), kMark + U16(L"a\r\nb\r\nc\r\n"));
    std::wstring text;
    ASSERT_TRUE(platform::ReadTextFile(path, text));
    EXPECT_EQ(text, L"a\nb\nc\n");
    ASSERT_TRUE(platform::WriteTextFile(path, L"", false));
    EXPECT_EQ(ReadBytes(File()), kMark);
}

TEST_F(TextFileTest, NamesOutsideLatin1AndLongPaths) {
    fs::path unusual = File("\xE6\x97\xA5\xE6\x9C\xAC-\xC3\x9C-\xF0\x9F\x98\x80.log");
    Write(unusual, L"wt, ccs=UNICODE", L"ok\n");
    EXPECT_EQ(ReadLines(unusual, 10), std::vector<std::wstring>{L"ok\n"});

    // A path beyond 1,023 characters is fine here as long as each name fits.
    fs::path deep = home.Scratch();
    while (deep.string().size() < 1100) deep /= std::string(100, 'd');
    fs::create_directories(deep);
    Write(deep / "f.txt", L"wt, ccs=UNICODE", L"deep");
    EXPECT_EQ(ReadLines(deep / "f.txt", 10), std::vector<std::wstring>{L"deep"});

    SetLastError(0);
    EXPECT_EQ(Open(home.Scratch() / std::string(1100, 'n'), L"wt, ccs=UNICODE"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_FILENAME_EXCED_RANGE);
}

TEST_F(TextFileTest, FailuresGiveNullAndTheLastError) {
    EXPECT_EQ(Open(File("missing.txt"), L"rt, ccs=UNICODE"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Open(home.Scratch() / "no" / "such.txt", L"wt, ccs=UNICODE"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Open(home.Scratch(), L"rt, ccs=UNICODE"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_EQ(Open(home.Scratch(), L"rb"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);

    for (const wchar_t *bad :
         {L"", L"q", L"rtb", L"rb, ccs=UNICODE", L"rt, ccs=UTF-7", L"rt, css=UNICODE", L"wt,"}) {
        SetLastError(0);
        EXPECT_EQ(Open(File(), bad), nullptr) << platform::ToUtf8(bad);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }
    EXPECT_EQ(_wfopen(nullptr, L"rt"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(_wfopen(L"x", nullptr), nullptr);
    EXPECT_EQ(_wfopen(L"", L"rt"), nullptr);

    EXPECT_EQ(TextFilePuts(nullptr, stdout), -1);
    EXPECT_EQ(TextFilePuts(L"x", nullptr), -1);
    std::wstring text;
    EXPECT_FALSE(platform::ReadTextFile(platform::FromUtf8(File("gone.txt").string()), text));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(platform::WriteTextFile(L"/proc/no/such/file", L"x", false));
}

TEST_F(TextFileTest, AFullDiskFailsTheMarkOrTheClose) {
    if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
    EXPECT_EQ(_wfopen(L"/dev/full", L"wt, ccs=UNICODE"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
    FILE *file = _wfopen(L"/dev/full", L"wt");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(TextFilePuts(L"buffered", file), 0);
    EXPECT_NE(std::fclose(file), 0);
    SetLastError(0);
    EXPECT_FALSE(platform::WriteTextFile(L"/dev/full", L"x", true));
    EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
}

TEST_F(TextFileTest, ModeLettersAndCcsSpellings) {
    Write(File(), L"w, ccs=UTF-16LE", L"a");
    EXPECT_EQ(ReadBytes(File()), kMark + U16(L"a"));
    Write(File(), L"wt,ccs=utf-8", L"a\n");
    EXPECT_EQ(ReadBytes(File()),
              "\xEF\xBB\xBF"
              "a\r\n");
    Write(File(), L"wtc", L"a");
    EXPECT_EQ(ReadBytes(File()), "a");
    EXPECT_EQ(Open(File(), L"wx"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
}

}  // namespace
