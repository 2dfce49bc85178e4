#include "support/TempHome.h"

#include "CLogging.h"
#include "platform/WideText.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

namespace testsupport {

namespace fs = std::filesystem;

TempHome::TempHome() {
    std::string pattern = (fs::temp_directory_path() / "varnick-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    root_ = pattern;
    if (const char *old = std::getenv("VARNICK_HOME")) {
        hadHome_ = true;
        previousHome_ = old;
    }
    setenv("VARNICK_HOME", root_.c_str(), 1);
    // The log folder is built once per process; build it anew below this home.
    CLogging::ResetLogFolder();
}

TempHome::~TempHome() {
    if (hadHome_) {
        setenv("VARNICK_HOME", previousHome_.c_str(), 1);
    } else {
        unsetenv("VARNICK_HOME");
    }
    CLogging::ResetLogFolder();
    std::error_code ignored;
    fs::permissions(root_, fs::perms::owner_all, fs::perm_options::add, ignored);
    fs::remove_all(root_, ignored);
}

fs::path TempHome::Scratch(const std::string &name) const {
    fs::path folder = root_ / name;
    fs::create_directories(folder);
    return folder;
}

std::string ReadBytes(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteBytes(const fs::path &path, const std::string &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
}

std::string Utf16Bytes(const std::wstring &text) {
    const std::vector<BYTE> bytes = platform::ToUtf16Bytes(text);
    return std::string(bytes.begin(), bytes.end());
}

std::string Utf16FileText(const fs::path &path) {
    const std::string bytes = ReadBytes(path);
    if (bytes.compare(0, 2, "\xFF\xFE") != 0) return "<no byte order mark>";
    return platform::ToUtf8(platform::FromUtf16Bytes(
        reinterpret_cast<const BYTE *>(bytes.data()) + 2, bytes.size() - 2));
}

void ExpectSameTree(const fs::path &expected, const fs::path &copy) {
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(expected)) {
        const fs::path relative = fs::relative(entry.path(), expected);
        ASSERT_TRUE(fs::exists(copy / relative)) << relative;
        EXPECT_EQ(entry.is_directory(), fs::is_directory(copy / relative)) << relative;
        if (entry.is_regular_file()) {
            EXPECT_EQ(ReadBytes(entry.path()), ReadBytes(copy / relative)) << relative;
        }
    }
}

}  // namespace testsupport
