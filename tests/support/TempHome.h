// A fresh VARNICK_HOME for a test: every per-user and machine-wide folder,
// the registry hives and the trash lie below it, and it is removed afterwards.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace testsupport {

class TempHome {
public:
    TempHome();
    ~TempHome();
    TempHome(const TempHome &) = delete;
    TempHome &operator=(const TempHome &) = delete;

    const std::filesystem::path &Path() const { return root_; }
    // A folder below the home for a test's own files, made on demand.
    std::filesystem::path Scratch(const std::string &name = "scratch") const;

private:
    std::filesystem::path root_;
    std::string previousHome_;
    bool hadHome_ = false;
};

// A test fixture that gives every test its own home.
class HomeTest : public ::testing::Test {
protected:
    TempHome home;
};

// The same, with a folder in the home for the test's own items.
class ScratchTest : public HomeTest {
protected:
    std::filesystem::path dir = home.Scratch("work");
};

// Whole-file helpers for checking what the code wrote.
std::string ReadBytes(const std::filesystem::path &path);
void WriteBytes(const std::filesystem::path &path, const std::string &bytes);

// Text as UTF-16LE bytes; and a UTF-16LE file's text after its FF FE mark,
// as UTF-8 with its CR LF pairs as they are ("<no byte order mark>" when the
// mark is missing).
std::string Utf16Bytes(const std::wstring &text);
std::string Utf16FileText(const std::filesystem::path &path);

// Every folder and file below `expected` is in `copy`, each file with the
// same bytes (gtest failures name the relative path).
void ExpectSameTree(const std::filesystem::path &expected, const std::filesystem::path &copy);

}  // namespace testsupport
