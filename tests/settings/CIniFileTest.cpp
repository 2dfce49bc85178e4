// The INI store: the bytes it writes, the reading rules on files written by
// hand, and the conversions of its getters and setters, quirks included.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "CIniFile.h"
#include "platform/Win32.h"
#include "support/TempHome.h"

namespace fs = std::filesystem;

namespace {

const std::string kMark = "\xFF\xFE";

const auto Utf16 = testsupport::Utf16Bytes;

class IniFileTest : public testsupport::HomeTest {
protected:
    fs::path file = home.Scratch() / "test.ini";
    std::wstring path = platform::FromUtf8(file.string());

    void WriteUtf16(const std::wstring &text) {
        testsupport::WriteBytes(file, kMark + Utf16(text));
    }
    std::string Saved() const { return testsupport::ReadBytes(file); }
    // What the file holds after Save, as text without the mark.
    std::wstring SavedText() const { return platform::FromUtf8(testsupport::Utf16FileText(file)); }
    static std::vector<std::wstring> Names(CIniFile &ini, const wchar_t *section) {
        std::vector<std::wstring> names;
        for (const wchar_t *name = ini.GetFirstName(section); name; name = ini.GetNextName()) {
            names.push_back(name);
        }
        return names;
    }
    static std::wstring Value(CIniFile &ini, const wchar_t *section, const wchar_t *name) {
        const wchar_t *value = ini.LookUpNameValue(ini.LookUpSection(section), name);
        return value ? value : L"<missing>";
    }
};

TEST_F(IniFileTest, SaveWritesUtf16WithMarkAndCrLfInListOrderAndMakesAMissingFile) {
    CIniFile ini(path.c_str());
    ini.SetString(L"Archive", L"Name", L"a b.zip");
    ini.SetString(L"Empty", L"x", L"1");
    ini.RemoveName(L"Empty", L"x");
    ini.SetInt(L"Archive", L"Count", 3);
    ini.Save();
    EXPECT_EQ(Saved(), kMark + Utf16(L"[Archive]\r\nName=a b.zip\r\nCount=3\r\n[Empty]\r\n"));

    // A missing file opens empty and a save makes it.
    fs::remove(file);
    CIniFile empty;
    EXPECT_TRUE(empty.Open(path.c_str()));
    EXPECT_FALSE(fs::exists(file));
    empty.Save();
    EXPECT_EQ(Saved(), kMark);
}

TEST_F(IniFileTest, HandWrittenFileIsReadByTheLineRules) {
    WriteUtf16(
        L"lost=above the first header\r\n"
        L"[S]\r\n"
        L"a=b=c\r\n"
        L"no equals sign\r\n"
        L"\r\n"
        L";c=d\r\n"
        L" spaced = value \r\n"
        L"[abc]def\r\n"
        L"k=v\r\n"
        L"[x]y]z\r\n"
        L"[s]\r\n"
        L"[open\r\n"
        L"a=1\r\n");
    CIniFile ini(path.c_str());
    EXPECT_EQ(Names(ini, L"S"), (std::vector<std::wstring>{L"a", L";c", L" spaced "}));
    EXPECT_EQ(Value(ini, L"S", L"a"), L"b=c");
    EXPECT_EQ(Value(ini, L"S", L";c"), L"d");
    EXPECT_EQ(Value(ini, L"S", L" spaced "), L" value ");
    EXPECT_EQ(Value(ini, L"abc", L"k"), L"v");
    // A header without its "]" keeps the line end in its name.
    EXPECT_EQ(Value(ini, L"open\n", L"a"), L"1");
    ini.Save();
    // Section names are case-sensitive; the name runs to the last "]".
    EXPECT_EQ(SavedText(),
              L"[S]\r\na=b=c\r\n;c=d\r\n spaced = value \r\n[abc]\r\nk=v\r\n[x]y]\r\n[s]\r\n"
              L"[open\r\n]\r\na=1\r\n");
}

TEST_F(IniFileTest, LongLineArrivesInPiecesOf1023Characters) {
    const std::wstring first = L"k=" + std::wstring(1021, L'v');
    WriteUtf16(L"[S]\r\n" + first + L"tail=end\r\n" + first + L"[Sub]x\r\nafter=1\r\n" +
               std::wstring(1023, L'w') + L"\r\n");
    CIniFile ini(path.c_str());
    // Each piece is a line of its own: the value is cut short and the rest
    // makes a further name, or a section when it begins with "[".
    EXPECT_EQ(Names(ini, L"S"), (std::vector<std::wstring>{L"k", L"tail", L"k"}));
    EXPECT_EQ(Value(ini, L"S", L"k"), std::wstring(1021, L'v'));
    EXPECT_EQ(Value(ini, L"S", L"tail"), L"end");
    EXPECT_EQ(Names(ini, L"Sub"), std::vector<std::wstring>{L"after"});
}

TEST_F(IniFileTest, DuplicatesAreKeptAndTheLastNameIsTheOneUsed) {
    WriteUtf16(L"[S]\r\nx=first\r\nx=second\r\n[T]\r\na=1\r\n[S]\r\ny=other\r\n");
    CIniFile ini(path.c_str());
    wchar_t value[32] = {};
    ASSERT_TRUE(ini.GetString(L"S", L"x", value, 32));
    EXPECT_STREQ(value, L"second");
    // The first section of a name is the one looked up.
    EXPECT_FALSE(ini.GetString(L"S", L"y", value, 32));

    ini.SetString(L"S", L"x", L"changed");
    ini.Save();
    EXPECT_EQ(SavedText(), L"[S]\r\nx=first\r\nx=changed\r\n[T]\r\na=1\r\n[S]\r\ny=other\r\n");

    ini.RemoveName(L"S", L"x");
    EXPECT_EQ(Value(ini, L"S", L"x"), L"first");
    ini.RemoveSection(L"S");
    EXPECT_EQ(Value(ini, L"S", L"y"), L"other");
}

TEST_F(IniFileTest, SecondOpenAppendsAndDropsPairsAboveItsFirstHeader) {
    WriteUtf16(L"[A]\r\na=1\r\n");
    CIniFile ini(path.c_str());
    WriteUtf16(L"b=2\r\n[A]\r\nc=3\r\n");
    ini.Open(path.c_str());
    ini.Save();
    EXPECT_EQ(SavedText(), L"[A]\r\na=1\r\n[A]\r\nc=3\r\n");
}

TEST_F(IniFileTest, GettersCreateTheSectionTheyLookFor) {
    CIniFile ini(path.c_str());
    wchar_t buffer[8] = L"keep";
    unsigned int number = 7;
    EXPECT_FALSE(ini.GetString(L"One", L"a", buffer, 8));
    EXPECT_FALSE(ini.GetInt(L"Two", L"a", &number));
    EXPECT_EQ(ini.GetFirstName(L"Three"), nullptr);
    ini.RemoveName(L"Four", L"a");
    ini.RemoveSection(L"Five");
    EXPECT_STREQ(buffer, L"keep");
    EXPECT_EQ(number, 7u);
    ini.Save();
    EXPECT_EQ(SavedText(), L"[One]\r\n[Two]\r\n[Three]\r\n[Four]\r\n");
}

// Numbers read as the C runtime reads them, with its saturation; a negative
// 64-bit number is written unsigned and does not read back; a bool is false
// only for exactly "0".
TEST_F(IniFileTest, NumbersReadLikeTheRuntimeAndBoolsAreFalseOnlyForExactlyZero) {
    CIniFile ini;
    ini.SetString(L"S", L"text", L"  +12abc");
    ini.SetString(L"S", L"none", L"abc");
    ini.SetString(L"S", L"unsigned", L"4294967295");
    unsigned int value = 0;
    ASSERT_TRUE(ini.GetInt(L"S", L"text", &value));
    EXPECT_EQ(value, 12u);
    ASSERT_TRUE(ini.GetInt(L"S", L"none", &value));
    EXPECT_EQ(value, 0u);
    // A hand-written unsigned number beyond INT_MAX stops at INT_MAX.
    ASSERT_TRUE(ini.GetInt(L"S", L"unsigned", &value));
    EXPECT_EQ(value, 2147483647u);

    ini.SetInt64(L"S", L"size", 5000000000LL);
    ini.SetInt64(L"S", L"negative", -1);
    EXPECT_EQ(Value(ini, L"S", L"negative"), L"18446744073709551615");
    __int64 wide = 0;
    ASSERT_TRUE(ini.GetInt64(L"S", L"size", &wide));
    EXPECT_EQ(wide, 5000000000LL);
    ASSERT_TRUE(ini.GetInt64(L"S", L"negative", &wide));
    EXPECT_EQ(wide, INT64_MAX);
    ini.SetString(L"S", L"signed", L"-42");
    ASSERT_TRUE(ini.GetInt64(L"S", L"signed", &wide));
    EXPECT_EQ(wide, -42);

    ini.SetBool(L"S", L"off", false);
    for (const wchar_t *text : {L"", L"false", L"no", L"00", L" 0", L"1"}) {
        ini.SetString(L"S", L"b", text);
        bool on = false;
        ASSERT_TRUE(ini.GetBool(L"S", L"b", &on));
        EXPECT_TRUE(on) << text;
    }
    bool off = true;
    ASSERT_TRUE(ini.GetBool(L"S", L"off", &off));
    EXPECT_FALSE(off);
}

TEST_F(IniFileTest, LargestStructDoesNotSurviveAFile) {
    std::vector<BYTE> data(512);
    for (std::size_t n = 0; n < data.size(); ++n) data[n] = static_cast<BYTE>(n);
    {
        CIniFile ini(path.c_str());
        // Refused before anything is looked up: no section is left behind.
        EXPECT_FALSE(ini.SetStruct(L"Refused", L"s", data.data(), 512));
        ASSERT_TRUE(ini.SetStruct(L"S", L"s", data.data(), 511));
        EXPECT_EQ(Value(ini, L"S", L"s").size(), 1022u);
        ini.Save();
    }
    EXPECT_EQ(SavedText().find(L"Refused"), std::wstring::npos);
    // "s=" and 1,022 digits exceed one read: 1,021 digits come back.
    CIniFile reread(path.c_str());
    EXPECT_EQ(Value(reread, L"S", L"s").size(), 1021u);
    std::vector<BYTE> back(512);
    ASSERT_TRUE(reread.GetStruct(L"S", L"s", back.data()));
    EXPECT_EQ(std::vector<BYTE>(back.begin(), back.begin() + 510),
              std::vector<BYTE>(data.begin(), data.begin() + 510));
    EXPECT_NE(back[510], data[510]);
}

TEST_F(IniFileTest, HexStringToBinReadsOnlyUpperCaseDigitsAndOddDigitsWriteOneBytePastSize) {
    BYTE bytes[3] = {0x11, 0x22, 0x33};
    ASSERT_EQ(CIniFile::HexStringToBin(L"AB0a", bytes, 2), 2u);
    EXPECT_EQ(bytes[0], 0xAB);
    EXPECT_EQ(bytes[1], 0x2A);  // "a" counts as 97 - 55 = 42
    EXPECT_EQ(CIniFile::HexStringToBin(L"ABCD", bytes, 1), 0u);
    EXPECT_EQ(CIniFile::HexStringToBin(L"AB", bytes, 2), 0u);

    bytes[1] = 0x22;
    ASSERT_EQ(CIniFile::HexStringToBin(L"ABC", bytes, 1), 1u);
    EXPECT_EQ(bytes[1], 0x90);  // "C" paired with the terminator: 16 * 12 + (0 - 48)
    EXPECT_EQ(bytes[2], 0x33);
}

TEST_F(IniFileTest, StreamReadDropsTheFirstCharacterAndCutsAtCarriageReturn) {
    testsupport::WriteBytes(file, "\xEF\xBB\xBF[S]\r\nname=value\r\nx=a\rb\r\n");
    CIniFile ini;
    FILE *binary = _wfopen(path.c_str(), L"rb");
    ASSERT_NE(binary, nullptr);
    EXPECT_TRUE(ini.Read(binary));
    std::fclose(binary);
    EXPECT_EQ(Value(ini, L"S", L"name"), L"value");
    EXPECT_EQ(Value(ini, L"S", L"x"), L"a\rb");
    EXPECT_TRUE(ini.Read(nullptr));

    // A text stream has taken the mark already: the character dropped is
    // the "[" of the first header, and the pairs below it are lost with it.
    CIniFile text;
    FILE *stream = _wfopen(path.c_str(), L"rt, ccs=UNICODE");
    ASSERT_NE(stream, nullptr);
    text.Read(stream);
    std::fclose(stream);
    EXPECT_EQ(Names(text, L"S"), std::vector<std::wstring>{});
}

}  // namespace
