// The registry store as a store: typed values with Windows sizes, the
// status codes of the registry calls, enumeration, subtree deletion,
// damaged files, and a writer killed midway. (Two processes writing at once
// are the settings suite's case, through the option keys.)
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/Registry.h"
#include "platform/WideText.h"
#include "support/RegistryHome.h"
#include "support/TempHome.h"

namespace fs = std::filesystem;

namespace {

// A key handle closed at the end of the test.
class Key {
public:
    Key() = default;
    explicit Key(HKEY key) : key_(key) {}
    ~Key() {
        if (key_) RegCloseKey(key_);
    }
    Key(const Key &) = delete;
    Key &operator=(const Key &) = delete;
    HKEY get() const { return key_; }
    HKEY *out() { return &key_; }

private:
    HKEY key_ = nullptr;
};

LONG Create(HKEY parent, const wchar_t *path, Key &key, DWORD *disposition = nullptr) {
    DWORD ignored = 0;
    return RegCreateKeyExW(parent, path, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                           nullptr, key.out(), disposition ? disposition : &ignored);
}

LONG SetText(HKEY key, const wchar_t *name, const std::wstring &text, DWORD type = REG_SZ) {
    // The terminator is part of the data, as most writers store it.
    const DWORD bytes = static_cast<DWORD>(platform::ToUtf16(text).size() + 1) * 2;
    return RegSetValueExW(key, name, 0, type, reinterpret_cast<const BYTE *>(text.c_str()), bytes);
}

LONG SetDword(HKEY key, const wchar_t *name, DWORD value) {
    return RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE *>(&value),
                          sizeof value);
}

// The stored bytes of a value; empty with the status when it cannot be read.
std::vector<BYTE> StoredBytes(HKEY key, const wchar_t *name, DWORD *type = nullptr,
                              LONG *status = nullptr) {
    DWORD size = 0;
    LONG result = platform::RegQueryValueBytes(key, name, type, nullptr, &size);
    std::vector<BYTE> data(size);
    if (result == ERROR_SUCCESS) {
        result = platform::RegQueryValueBytes(key, name, type, data.data(), &size);
    }
    if (status) *status = result;
    if (result != ERROR_SUCCESS) return {};
    data.resize(size);
    return data;
}

std::vector<BYTE> Utf16(const std::wstring &text) { return platform::ToUtf16Bytes(text); }

std::vector<std::wstring> SubKeyNames(HKEY key) {
    std::vector<std::wstring> names;
    wchar_t name[256];
    DWORD index = 0;
    LONG status;
    while ((status = RegEnumKeyW(key, index++, name, 256)) == ERROR_SUCCESS) names.push_back(name);
    EXPECT_EQ(status, static_cast<LONG>(ERROR_NO_MORE_ITEMS));
    return names;
}

std::vector<std::wstring> ValueNames(HKEY key) {
    std::vector<std::wstring> names;
    wchar_t name[256];
    for (DWORD index = 0;; ++index) {
        DWORD chars = 256;
        LONG status = RegEnumValueW(key, index, name, &chars, nullptr, nullptr, nullptr, nullptr);
        if (status != ERROR_SUCCESS) {
            EXPECT_EQ(status, static_cast<LONG>(ERROR_NO_MORE_ITEMS));
            break;
        }
        EXPECT_EQ(chars, std::wcslen(name));
        names.push_back(name);
    }
    return names;
}

fs::path UserHive(const testsupport::TempHome &home) {
    return home.Path() / "user/.local/share/Orvane Labs/Registry/CurrentUser.db";
}

// Runs `work` in a child process and gives its pid; the child's exit code
// is what `work` returns. Connections of this process stay out of the child.
template <typename Work>
pid_t Spawn(Work work) {
    platform::CloseRegistryConnections();
    pid_t child = fork();
    if (child == 0) _exit(work());
    return child;
}

int ExitCodeOf(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

using RegistryStore = testsupport::RegistryHomeTest;

}  // namespace

TEST_F(RegistryStore, ValuesOfEveryTypeRoundTripWithTheirWindowsSizes) {
    Key key;
    ASSERT_EQ(Create(HKEY_CURRENT_USER, L"Software\\Types", key), ERROR_SUCCESS);

    // Text: two bytes a UTF-16 unit, so the astral character counts four.
    const std::wstring text = L"h\u00e9llo \U0001F600";
    ASSERT_EQ(SetText(key.get(), L"Text", text), ERROR_SUCCESS);
    const wchar_t list[] = L"one\0two\0";  // and the array's own terminator
    ASSERT_EQ(RegSetValueExW(key.get(), L"List", 0, REG_MULTI_SZ,
                             reinterpret_cast<const BYTE *>(list), 9 * 2),
              ERROR_SUCCESS);
    const BYTE binary[] = {0x00, 0xFF, 0x10, 0x00, 0x7F};
    ASSERT_EQ(RegSetValueExW(key.get(), L"Binary", 0, REG_BINARY, binary, sizeof binary),
              ERROR_SUCCESS);
    ASSERT_EQ(SetDword(key.get(), L"Number", 0xDEADBEEF), ERROR_SUCCESS);

    struct Expected {
        const wchar_t *name;
        DWORD type;
        std::vector<BYTE> bytes;
    };
    std::vector<BYTE> textBytes = Utf16(text);
    textBytes.insert(textBytes.end(), {0, 0});
    ASSERT_EQ(textBytes.size(), 18u);
    std::vector<BYTE> listBytes = Utf16(std::wstring(list, 9));
    const Expected expected[] = {
        {L"Text", REG_SZ, textBytes},
        {L"List", REG_MULTI_SZ, listBytes},
        {L"Binary", REG_BINARY, {0x00, 0xFF, 0x10, 0x00, 0x7F}},
        {L"Number", REG_DWORD, {0xEF, 0xBE, 0xAD, 0xDE}},
    };
    for (const Expected &value : expected) {
        SCOPED_TRACE(platform::ToUtf8(value.name));
        DWORD type = 99;
        DWORD size = 12345;
        ASSERT_EQ(RegQueryValueExW(key.get(), value.name, nullptr, &type, nullptr, &size),
                  ERROR_SUCCESS);
        EXPECT_EQ(type, value.type);
        EXPECT_EQ(size, value.bytes.size());
        EXPECT_EQ(StoredBytes(key.get(), value.name), value.bytes);
    }
}

TEST_F(RegistryStore, ABufferTooSmallGivesMoreDataAndTheNeededSize) {
    Key key;
    ASSERT_EQ(Create(HKEY_CURRENT_USER, L"Software\\Sizes", key), ERROR_SUCCESS);
    ASSERT_EQ(SetText(key.get(), L"Name", L"sixteen chars..."), ERROR_SUCCESS);  // 34 bytes

    wchar_t small[8];
    std::wmemset(small, L'#', 8);
    DWORD size = 16;
    EXPECT_EQ(RegQueryValueExW(key.get(), L"Name", nullptr, nullptr,
                               reinterpret_cast<BYTE *>(small), &size),
              ERROR_MORE_DATA);
    EXPECT_EQ(size, 34u);
    EXPECT_EQ(std::wstring(small, 8), std::wstring(8, L'#'));  // nothing written

    // A name buffer without room for the terminator is too small.
    wchar_t name[4];
    DWORD chars = 4;
    EXPECT_EQ(RegEnumValueW(key.get(), 0, name, &chars, nullptr, nullptr, nullptr, nullptr),
              ERROR_MORE_DATA);
    wchar_t keyName[8];
    Key child;
    ASSERT_EQ(Create(key.get(), L"LongerThanEight", child), ERROR_SUCCESS);
    EXPECT_EQ(RegEnumKeyW(key.get(), 0, keyName, 8), ERROR_MORE_DATA);
}

TEST_F(RegistryStore, EnumerationKeepsValuesInOrderOfMakingAndKeysInNameOrderUpToNoMoreItems) {
    Key key;
    ASSERT_EQ(Create(HKEY_CURRENT_USER, L"Software\\Order", key), ERROR_SUCCESS);
    for (const wchar_t *name : {L"zeta", L"Alpha", L"mid"}) {
        ASSERT_EQ(SetDword(key.get(), name, 1), ERROR_SUCCESS);
    }
    ASSERT_EQ(SetDword(key.get(), L"ZETA", 2), ERROR_SUCCESS);  // a rewrite keeps its place
    ASSERT_EQ(RegDeleteValueW(key.get(), L"alpha"), ERROR_SUCCESS);
    ASSERT_EQ(SetDword(key.get(), L"Alpha", 3), ERROR_SUCCESS);  // made again: last
    EXPECT_EQ(ValueNames(key.get()), (std::vector<std::wstring>{L"zeta", L"mid", L"Alpha"}));

    for (const wchar_t *name : {L"beta", L"Alpha", L"_under", L"Gamma"}) {
        Key child;
        ASSERT_EQ(Create(key.get(), name, child), ERROR_SUCCESS);
    }
    // Upper-cased names in order: "_" sorts after the letters.
    EXPECT_EQ(SubKeyNames(key.get()),
              (std::vector<std::wstring>{L"Alpha", L"beta", L"Gamma", L"_under"}));
}

TEST_F(RegistryStore, MissingKeysAndValuesAndBadPathsGiveTheirStatus) {
    Key key;
    EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Nowhere", 0, KEY_READ, key.out()),
              ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(key.get(), nullptr);
    ASSERT_EQ(Create(HKEY_CURRENT_USER, L"Software\\Here\\", key), ERROR_SUCCESS);  // trailing "\"
    DWORD size = 0;
    EXPECT_EQ(RegQueryValueExW(key.get(), L"absent", nullptr, nullptr, nullptr, &size),
              ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegDeleteValueW(key.get(), L"absent"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(SHDeleteKeyW(HKEY_CURRENT_USER, L"Software\\Nowhere"), ERROR_FILE_NOT_FOUND);
    // The default value is the one without a name.
    EXPECT_EQ(RegQueryValueExW(key.get(), nullptr, nullptr, nullptr, nullptr, &size),
              ERROR_FILE_NOT_FOUND);
    ASSERT_EQ(SetText(key.get(), L"", L"default"), ERROR_SUCCESS);
    EXPECT_EQ(RegQueryValueExW(key.get(), nullptr, nullptr, nullptr, nullptr, &size),
              ERROR_SUCCESS);

    Key bad;
    EXPECT_EQ(Create(HKEY_CURRENT_USER, L"\\Software", bad), ERROR_BAD_PATHNAME);
    EXPECT_EQ(Create(HKEY_CURRENT_USER, L"Software\\\\Twice", bad), ERROR_BAD_PATHNAME);
    EXPECT_EQ(Create(HKEY_CURRENT_USER, std::wstring(256, L'n').c_str(), bad),
              ERROR_INVALID_PARAMETER);
}

TEST_F(RegistryStore, HandlesAllowWhatTheyWereOpenedForAndOutliveTheirKeysOnlyAsDeleted) {
    Key writer;
    ASSERT_EQ(Create(HKEY_CURRENT_USER, L"Software\\Rights", writer), ERROR_SUCCESS);
    Key reader;
    ASSERT_EQ(
        RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Rights", 0, KEY_QUERY_VALUE, reader.out()),
        ERROR_SUCCESS);
    EXPECT_EQ(SetDword(reader.get(), L"x", 1), ERROR_ACCESS_DENIED);
    EXPECT_EQ(SubKeyNames(writer.get()).size(), 0u);
    wchar_t name[8];
    EXPECT_EQ(RegEnumKeyW(reader.get(), 0, name, 8), ERROR_ACCESS_DENIED);

    // A key deleted under an open handle: the handle reports it, also after
    // a key of the same name is made again.
    ASSERT_EQ(SHDeleteKeyW(HKEY_CURRENT_USER, L"Software\\Rights"), ERROR_SUCCESS);
    EXPECT_EQ(SetDword(writer.get(), L"x", 1), ERROR_KEY_DELETED);
    Key remade;
    ASSERT_EQ(Create(HKEY_CURRENT_USER, L"Software\\Rights", remade), ERROR_SUCCESS);
    DWORD size = 0;
    EXPECT_EQ(RegQueryValueExW(reader.get(), L"x", nullptr, nullptr, nullptr, &size),
              ERROR_KEY_DELETED);

    HKEY closed = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, &closed), ERROR_SUCCESS);
    ASSERT_EQ(RegCloseKey(closed), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(closed), ERROR_INVALID_HANDLE);
    EXPECT_EQ(RegCloseKey(HKEY_CURRENT_USER), ERROR_SUCCESS);  // predefined: nothing to close
}

TEST_F(RegistryStore, SubtreeDeleteTakesTheKeyAndAllBelowButNoNeighbour) {
    for (const wchar_t *path : {L"Software\\A\\B\\C", L"Software\\A\\B2", L"Software\\AB",
                                L"Software\\A]", L"Software\\A[x"}) {
        Key key;
        ASSERT_EQ(Create(HKEY_CURRENT_USER, path, key), ERROR_SUCCESS);
        ASSERT_EQ(SetDword(key.get(), L"v", 1), ERROR_SUCCESS);
    }
    // A key with subkeys is not deleted alone.
    EXPECT_EQ(RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\A"), ERROR_ACCESS_DENIED);
    EXPECT_EQ(RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\A\\B2"), ERROR_SUCCESS);
    ASSERT_EQ(SHDeleteKeyW(HKEY_CURRENT_USER, L"software\\a"), ERROR_SUCCESS);

    Key software;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, software.out()),
              ERROR_SUCCESS);
    EXPECT_EQ(SubKeyNames(software.get()), (std::vector<std::wstring>{L"AB", L"A[x", L"A]"}));
    Key gone;
    EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\A\\B\\C", 0, KEY_READ, gone.out()),
              ERROR_FILE_NOT_FOUND);
    // Made again, the key is new and empty.
    Key again;
    ASSERT_EQ(Create(HKEY_CURRENT_USER, L"Software\\A\\B\\C", again), ERROR_SUCCESS);
    EXPECT_TRUE(ValueNames(again.get()).empty());
    // A hive's root is never deleted.
    EXPECT_EQ(SHDeleteKeyW(HKEY_CURRENT_USER, L""), ERROR_ACCESS_DENIED);
}

TEST_F(RegistryStore, AFileThatIsNotOurDatabaseIsRefusedAndLeftAsItIs) {
    const fs::path hive = UserHive(home);
    fs::create_directories(hive.parent_path());
    const std::string text = "These are somebody's notes, not a database.\n";
    testsupport::WriteBytes(hive, text);

    Key key;
    EXPECT_EQ(Create(HKEY_CURRENT_USER, L"Software\\Orvane Labs", key), ERROR_BADDB);
    EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, key.out()), ERROR_BADDB);
    EXPECT_EQ(testsupport::ReadBytes(hive), text);
    EXPECT_FALSE(fs::exists(hive.string() + "-wal"));

    // A database of another program (another mark in its header) is refused too.
    platform::CloseRegistryConnections();
    fs::remove(hive);
    {
        Key made;
        ASSERT_EQ(Create(HKEY_CURRENT_USER, L"Software\\Orvane Labs", made), ERROR_SUCCESS);
    }
    platform::CloseRegistryConnections();
    std::string bytes = testsupport::ReadBytes(hive);
    ASSERT_GT(bytes.size(), 72u);
    bytes.replace(68, 4, "XYZW");
    testsupport::WriteBytes(hive, bytes);
    Key other;
    EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, other.out()), ERROR_BADDB);
    EXPECT_EQ(testsupport::ReadBytes(hive), bytes);
}

TEST_F(RegistryStore, AWriterKilledMidwayLeavesEveryValueWhole) {
    {
        Key key;
        ASSERT_EQ(Create(HKEY_CURRENT_USER, L"Software\\Crash", key), ERROR_SUCCESS);
    }
    pid_t writer = Spawn([]() {
        Key key;
        if (Create(HKEY_CURRENT_USER, L"Software\\Crash", key) != ERROR_SUCCESS) return 10;
        std::vector<BYTE> data(64 * 1024);
        for (unsigned round = 0;; ++round) {
            std::memset(data.data(), static_cast<int>(round & 0xFF), data.size());
            const std::wstring name = L"v" + std::to_wstring(round % 8);
            if (RegSetValueExW(key.get(), name.c_str(), 0, REG_BINARY, data.data(),
                               static_cast<DWORD>(data.size() - round % 8)) != ERROR_SUCCESS) {
                return 11;
            }
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    kill(writer, SIGKILL);
    EXPECT_EQ(ExitCodeOf(writer), 128 + SIGKILL);

    Key key;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Crash", 0, KEY_READ, key.out()),
              ERROR_SUCCESS);
    const std::vector<std::wstring> names = ValueNames(key.get());
    EXPECT_FALSE(names.empty());
    for (const std::wstring &name : names) {
        SCOPED_TRACE(platform::ToUtf8(name));
        const std::vector<BYTE> data = StoredBytes(key.get(), name.c_str());
        const unsigned slot = static_cast<unsigned>(std::stoul(name.substr(1)));
        ASSERT_EQ(data.size(), 64u * 1024 - slot);
        for (BYTE byte : data) ASSERT_EQ(byte, data[0]);
    }
}
