// Every string id the library asks for has a text in one of the two
// resource libraries, and the format texts take the arguments their callers
// pass.
//
// The ids come from two places: the calls in the source tree that load a
// text by number (literal numbers, and named constants defined as constexpr,
// const, #define or enumerators), and resources/DescribedIds.txt, which lists
// the ids the library's behaviour names, including those that reach a load
// through a table or a computation the scan cannot follow.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "CAppUtils.h"
#include "platform/WideText.h"
#include "platform/WinModule.h"
#include "support/LoadedResources.h"

namespace {

namespace fs = std::filesystem;

const fs::path kSourceDir = VARNICK_SOURCE_DIR;
const fs::path kBinDir = VARNICK_BIN_DIR;

// The calls that take a string id, and which arguments are ids.
const std::map<std::string, std::vector<std::size_t>> kIdArguments = {
    {"LoadStringW", {1}}, {"GetResString", {1}},   {"LoadCommonString", {0}},
    {"MsgBox", {0, 1}},   {"ErrorMsgBox", {0, 1}}, {"ErrorFormat", {0}},
};

const char *const kScannedFolders[] = {"archive",  "settings", "locations", "scheduling",
                                       "delivery", "shell",    "common",    "ui",
                                       "apps",     "platform"};

struct Use {
    unsigned id;
    std::string where;
};

bool IsIdentifierChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

std::string ReadFile(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The text with comments blanked out (line breaks kept, so line numbers
// stay right); string and character literals are kept as they are.
std::string WithoutComments(const std::string &text) {
    std::string out = text;
    std::size_t i = 0;
    auto blank = [&](std::size_t from, std::size_t to) {
        for (std::size_t k = from; k < to && k < out.size(); ++k) {
            if (out[k] != '\n') out[k] = ' ';
        }
    };
    while (i < text.size()) {
        if (text.compare(i, 2, "//") == 0) {
            std::size_t end = text.find('\n', i);
            if (end == std::string::npos) end = text.size();
            blank(i, end);
            i = end;
        } else if (text.compare(i, 2, "/*") == 0) {
            std::size_t end = text.find("*/", i + 2);
            end = end == std::string::npos ? text.size() : end + 2;
            blank(i, end);
            i = end;
        } else if (text[i] == '"' || text[i] == '\'') {
            const char quote = text[i++];
            while (i < text.size() && text[i] != quote && text[i] != '\n') {
                i += text[i] == '\\' ? 2 : 1;
            }
            ++i;
        } else {
            ++i;
        }
    }
    return out;
}

bool ParseNumber(std::string text, unsigned &value) {
    while (!text.empty() && (text.back() == 'u' || text.back() == 'U')) text.pop_back();
    if (text.empty() || text.size() > 9) return false;
    for (char c : text) {
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    }
    value = static_cast<unsigned>(std::stoul(text));
    return true;
}

std::string Trim(const std::string &text) {
    std::size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos) return {};
    std::size_t end = text.find_last_not_of(" \t\r\n");
    return text.substr(begin, end - begin + 1);
}

// Named integer constants of one file: NAME = number in constexpr and const
// declarations and in enumerations, and #define NAME number.
std::multimap<std::string, unsigned> Constants(const std::string &code) {
    std::multimap<std::string, unsigned> constants;
    auto takeAssignments = [&](const std::string &piece) {
        std::size_t equals = 0;
        while ((equals = piece.find('=', equals)) != std::string::npos) {
            if (equals + 1 < piece.size() && piece[equals + 1] == '=') {
                equals += 2;
                continue;
            }
            std::size_t nameEnd = piece.find_last_not_of(" \t\n", equals - 1);
            std::size_t nameBegin = nameEnd;
            while (nameBegin > 0 && IsIdentifierChar(piece[nameBegin - 1])) --nameBegin;
            std::size_t valueEnd = piece.find_first_of(",;}\n", equals + 1);
            std::string name = piece.substr(nameBegin, nameEnd - nameBegin + 1);
            unsigned value = 0;
            if (!name.empty() &&
                ParseNumber(Trim(piece.substr(equals + 1, valueEnd - equals - 1)), value)) {
                constants.emplace(name, value);
            }
            ++equals;
        }
    };
    for (const char *keyword : {"constexpr ", "const "}) {
        std::size_t at = 0;
        while ((at = code.find(keyword, at)) != std::string::npos) {
            std::size_t end = code.find_first_of(";{(", at);
            if (end != std::string::npos && code[end] == ';') {
                takeAssignments(code.substr(at, end - at + 1));
            }
            at += std::string(keyword).size();
        }
    }
    std::size_t at = 0;
    while ((at = code.find("enum", at)) != std::string::npos) {
        std::size_t open = code.find_first_of("{;", at);
        if (open != std::string::npos && code[open] == '{') {
            std::size_t close = code.find('}', open);
            takeAssignments(code.substr(open + 1, close - open - 1) + ",");
        }
        at += 4;
    }
    std::istringstream lines(code);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string hash, name, value;
        unsigned number = 0;
        if (words >> hash >> name >> value && hash == "#define" && ParseNumber(value, number)) {
            constants.emplace(name, number);
        }
    }
    return constants;
}

// Top-level arguments of the call whose "(" is at `open`.
std::vector<std::string> CallArguments(const std::string &code, std::size_t open) {
    std::vector<std::string> arguments;
    std::string current;
    int depth = 0;
    for (std::size_t i = open + 1; i < code.size(); ++i) {
        char c = code[i];
        if (c == '"' || c == '\'') {
            std::size_t end = i + 1;
            while (end < code.size() && code[end] != c) end += code[end] == '\\' ? 2 : 1;
            current += code.substr(i, end - i + 1);
            i = end;
            continue;
        }
        if (c == '(' || c == '[' || c == '{') ++depth;
        if (c == ')' || c == ']' || c == '}') {
            if (depth == 0) {
                arguments.push_back(Trim(current));
                return arguments;
            }
            --depth;
        }
        if (c == ',' && depth == 0) {
            arguments.push_back(Trim(current));
            current.clear();
            continue;
        }
        current += c;
    }
    return arguments;
}

// A cast around an id is looked through: static_cast<UINT>(kTitle) is kTitle.
std::string WithoutCast(std::string argument) {
    const std::string cast = "static_cast<";
    if (argument.compare(0, cast.size(), cast) == 0) {
        std::size_t open = argument.find('(');
        std::size_t close = argument.rfind(')');
        if (open != std::string::npos && close != std::string::npos && close > open) {
            argument = Trim(argument.substr(open + 1, close - open - 1));
        }
    }
    return argument;
}

bool IsQualifiedName(const std::string &text) {
    if (text.empty() || std::isdigit(static_cast<unsigned char>(text[0]))) return false;
    for (char c : text) {
        if (!IsIdentifierChar(c) && c != ':') return false;
    }
    return true;
}

struct SourceFile {
    fs::path path;
    std::string code;
};

std::vector<SourceFile> SourceTree() {
    std::vector<SourceFile> files;
    for (const char *folder : kScannedFolders) {
        fs::path root = kSourceDir / folder;
        if (!fs::exists(root)) continue;
        for (const auto &entry : fs::recursive_directory_iterator(root)) {
            const std::string extension = entry.path().extension().string();
            if (entry.is_regular_file() && (extension == ".cpp" || extension == ".h")) {
                files.push_back({entry.path(), ReadFile(entry.path())});
            }
        }
    }
    return files;
}

class SourceScan {
public:
    explicit SourceScan(std::vector<SourceFile> files) : files_(std::move(files)) {
        for (SourceFile &file : files_) file.code = WithoutComments(file.code);
        for (const SourceFile &file : files_) {
            for (const auto &[name, value] : Constants(file.code)) globals_.emplace(name, value);
        }
        for (const SourceFile &file : files_) CollectUses(file);
    }

    const std::vector<Use> &Uses() const { return uses_; }
    std::size_t FileCount() const { return files_.size(); }

private:
    // The values a name may stand for: the file's own constant, else every
    // constant of that name in the tree.
    std::set<unsigned> Resolve(const std::string &qualified,
                               const std::multimap<std::string, unsigned> &local) const {
        std::string name = qualified.substr(
            qualified.rfind(':') == std::string::npos ? 0 : qualified.rfind(':') + 1);
        std::set<unsigned> values;
        auto range = local.equal_range(name);
        if (range.first == range.second) range = globals_.equal_range(name);
        for (auto it = range.first; it != range.second; ++it) values.insert(it->second);
        return values;
    }

    void CollectUses(const SourceFile &file) {
        const std::multimap<std::string, unsigned> local = Constants(file.code);
        const std::string &code = file.code;
        for (std::size_t i = 0; i < code.size();) {
            if (!IsIdentifierChar(code[i]) || (i > 0 && IsIdentifierChar(code[i - 1]))) {
                ++i;
                continue;
            }
            std::size_t end = i;
            while (end < code.size() && IsIdentifierChar(code[end])) ++end;
            auto call = kIdArguments.find(code.substr(i, end - i));
            std::size_t open = code.find_first_not_of(" \t\n", end);
            if (call != kIdArguments.end() && open != std::string::npos && code[open] == '(') {
                std::vector<std::string> arguments = CallArguments(code, open);
                const std::string where =
                    fs::relative(file.path, kSourceDir).string() + ":" +
                    std::to_string(1 + std::count(code.begin(), code.begin() + i, '\n'));
                for (std::size_t index : call->second) {
                    if (index >= arguments.size()) continue;
                    std::string argument = WithoutCast(arguments[index]);
                    unsigned id = 0;
                    if (ParseNumber(argument, id)) {
                        uses_.push_back({id, where});
                    } else if (IsQualifiedName(argument)) {
                        for (unsigned value : Resolve(argument, local)) {
                            uses_.push_back({value, where + " (" + argument + ")"});
                        }
                    }
                }
            }
            i = end;
        }
    }

    std::vector<SourceFile> files_;
    std::multimap<std::string, unsigned> globals_;
    std::vector<Use> uses_;
};

std::vector<Use> DescribedIds() {
    std::vector<Use> ids;
    std::ifstream in(kSourceDir / "resources" / "DescribedIds.txt");
    std::string line;
    int number = 0;
    while (std::getline(in, line)) {
        ++number;
        std::string text = Trim(line.substr(0, line.find('#')));
        unsigned id = 0;
        if (text.empty()) continue;
        EXPECT_TRUE(ParseNumber(text, id)) << "DescribedIds.txt:" << number << ": " << line;
        ids.push_back({id, "DescribedIds.txt:" + std::to_string(number)});
    }
    return ids;
}

using testsupport::LoadedResources;

bool InBothLibraries(unsigned id) {
    return platform::FindResourceString(CAppUtils::GetCommonHINST(), id) &&
           platform::FindResourceString(CAppUtils::GetCommonNLHINST(), id);
}

// The conversions of a Windows format in order, with their size prefixes:
// "%-10s and %I64d%%" gives {"s", "I64d"}.
std::vector<std::string> Conversions(const std::wstring &text) {
    std::vector<std::string> found;
    for (const wchar_t *p = text.c_str(); *p; ++p) {
        if (*p != L'%') continue;
        ++p;
        if (*p == L'%') continue;
        while (*p && std::wcschr(L"-+ #0123456789.*", *p)) ++p;
        std::string conversion;
        while (*p && std::wcschr(L"hlwI0123456789", *p)) conversion += static_cast<char>(*p++);
        if (!*p) break;
        conversion += static_cast<char>(*p);
        found.push_back(conversion);
    }
    return found;
}

}  // namespace

TEST(StringCoverage, EveryIdTheLibraryUsesHasAText) {
    LoadedResources libraries;
    ASSERT_TRUE(libraries.Loaded()) << "resource libraries not found in " << kBinDir;
    SourceScan scan(SourceTree());
    ASSERT_GT(scan.FileCount(), 0u);
    std::vector<Use> uses = scan.Uses();
    std::vector<Use> described = DescribedIds();
    ASSERT_GT(described.size(), 100u);
    uses.insert(uses.end(), described.begin(), described.end());

    std::set<unsigned> reported;
    for (const Use &use : uses) {
        if (LoadedResources::Text(use.id).empty() && reported.insert(use.id).second) {
            ADD_FAILURE() << "string " << use.id << " has no text (asked for at " << use.where
                          << ")";
        }
    }
}

TEST(StringCoverage, ScanFindsLiteralAndNamedIdsInCallsOnly) {
    const std::string code = R"src(
constexpr unsigned kTitle = 230;
enum Texts { kFirst = 5, kSecond = 6 };
#define IDS_NOTICE 77
// MsgBox(999, 1) in a comment is no call
void Show(HINSTANCE h, wchar_t *b, unsigned id) {
    CAppUtils::MsgBox(903, kTitle, 20, nullptr);
    LoadStringW(h, IDS_NOTICE, b, 256);
    CAppUtils::ErrorMsgBox(static_cast<unsigned>(kSecond), 307u, L"a, b)", nullptr);
    CAppUtils::GetResString(nullptr, id);
    CAppUtils::MsgBox(L"text", strings::kTitle, 48, nullptr);
}
int CAppUtils::MsgBox(unsigned textId, unsigned titleId, UINT flags, HWND parent);
)src";
    SourceScan scan({{kSourceDir / "common" / "Sample.cpp", code}});
    std::multiset<unsigned> ids;
    for (const Use &use : scan.Uses()) ids.insert(use.id);
    EXPECT_EQ(ids, (std::multiset<unsigned>{903, 230, 77, 6, 307, 230}));
}

TEST(StringCoverage, NoIdHasATextInBothLibraries) {
    LoadedResources libraries;
    ASSERT_TRUE(libraries.Loaded());
    for (unsigned id = 0; id < 65536; ++id) {
        EXPECT_FALSE(InBothLibraries(id)) << "string " << id << " is in both libraries";
    }
}

TEST(StringCoverage, FormatTextsTakeTheArgumentsTheirCallersPass) {
    LoadedResources libraries;
    ASSERT_TRUE(libraries.Loaded());
    const std::map<unsigned, std::vector<std::string>> contracts = {
        {109, {"s"}},                 // system error text
        {254, {"I64d"}},              // seconds
        {255, {"d", "d"}},            // minutes, seconds
        {256, {"d", "d", "d"}},       // hours, minutes, seconds
        {305, {"d"}},                 // engine code
        {306, {"s", "s"}},            // archive name, error text
        {705, {"s", "s", "s", "d"}},  // name, date, time, page
        {1000, {"u"}},                // system error code
        {1001, {"u"}},                // system error code
        {1003, {"s"}},                // remote name
        {1005, {"u"}},                // system error code
        {1123, {"s"}},                // segment name
        {1175, {"s"}},                // reason
        {2200, {"s"}},                // path
    };
    for (const auto &[id, expected] : contracts) {
        const std::wstring text = LoadedResources::Text(id);
        ASSERT_FALSE(text.empty()) << "string " << id;
        EXPECT_EQ(Conversions(text), expected) << "string " << id;
    }
    // Texts shown as they stand must not look like formats.
    for (unsigned id : {230u, 261u, 262u, 1217u, 1296u}) {
        ASSERT_FALSE(LoadedResources::Text(id).empty()) << "string " << id;
        EXPECT_TRUE(Conversions(LoadedResources::Text(id)).empty()) << "string " << id;
    }
}
