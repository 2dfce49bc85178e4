// A thin front on the registry: one hive (the major key) and one key below
// it (the application key). Every call opens that key, does one thing and
// closes it; nothing is kept open and nothing is cached.
//
// Operations that return int give 1 on success and 0 on any failure; no
// error code, message or log entry leaves this class. A reader that gets 0
// keeps the default it put in its variable beforehand.
//
// Data passed as wchar_t is text: its sizes count two bytes a character (a
// buffer of N characters is N * 2 bytes, never sizeof). Data passed as bytes
// (void *, unsigned char *) is the data as the registry keeps it: text types
// as UTF-16LE (see platform::ToUtf16Bytes), sizes in bytes.
#pragma once

#include "platform/Registry.h"
#include "platform/WinTypes.h"

class CRegistry {
public:
    CRegistry();
    virtual ~CRegistry();
    CRegistry(const CRegistry &) = delete;
    CRegistry &operator=(const CRegistry &) = delete;

    // 0 HKEY_CURRENT_USER, 1 HKEY_LOCAL_MACHINE, 2 HKEY_CLASSES_ROOT; any
    // other value changes nothing.
    void SetMajorKey(DWORD majorKey);
    // The key below the major key, levels separated by backslashes.
    void SetAppKey(const wchar_t *path);
    // Makes sure that the application key exists, level by level below its
    // first level, which is taken to exist ("Software"); sets the
    // application key to `path` when it has none. The levels made are
    // those of the stored application key, whatever `path` says past its
    // first level.
    void CreateAppKey(const wchar_t *path);
    // The registry call, except that a null `security` is replaced by
    // attributes whose descriptor has a null access list (open to every
    // user), inherited by child processes.
    static LONG RegCreateKeyExW(HKEY key, const wchar_t *subKey, DWORD reserved, wchar_t *keyClass,
                                DWORD options, REGSAM access, LPSECURITY_ATTRIBUTES security,
                                PHKEY result, LPDWORD disposition);

    // Writes below the application key.
    // REG_SZ without its terminator; an empty text as one zero byte.
    int WriteRegSetting(const wchar_t *name, const wchar_t *value);
    // REG_DWORD, the four bytes the pointer leads to.
    int WriteRegSetting(const wchar_t *name, DWORD *value);
    // REG_BINARY.
    int WriteRegSetting(const wchar_t *name, void *data, DWORD size);
    // REG_MULTI_SZ: the double-terminated list as UTF-16LE bytes, and its
    // size in bytes.
    int WriteRegSetting(const wchar_t *name, const unsigned char *data, int size);
    // REG_EXPAND_SZ with `size` bytes (two a character) stored as given;
    // the bool only tells this overload apart.
    int WriteRegSetting(const wchar_t *name, bool expand, const wchar_t *value, unsigned int size);

    // Reads below the application key, of whatever type is stored. A
    // buffer too small gives 0 and holds nothing usable. Text is not
    // terminated unless its stored data is: callers clear buffers first.
    int GetRegSetting(const wchar_t *name, wchar_t *buffer, DWORD size);
    // Up to four bytes.
    int GetRegSetting(const wchar_t *name, DWORD *value);
    int GetRegSetting(const wchar_t *name, void *data, DWORD size);
    // `size` is the buffer's size in, the data's size out.
    int GetRegSetting(const wchar_t *name, unsigned char *data, int *size);
    // The type and the size in bytes, reading no data.
    int GetTypeAndSize(const wchar_t *name, DWORD *type, DWORD *size);
    int RemoveName(const wchar_t *name);
    // Deletes the application key with everything below it; the instance
    // keeps its path.
    int RemoveKey();

    // Value names of the application key, one a call; sizes in characters.
    // A call that cannot open the key leaves the cursor where it is; one
    // that opens it moves on, even when the name cannot be read.
    int FindFirst(wchar_t *buffer, DWORD size);
    int FindNext(wchar_t *buffer, DWORD size);
    // The name of the value at `index`; the cursor is not touched.
    int GetNextString(DWORD index, wchar_t *buffer, DWORD size);
    // Keys directly below the major key (the hive's top level), not below
    // the application key.
    int FindFirstKey(wchar_t *buffer, DWORD size);
    int FindNextKey(wchar_t *buffer, DWORD size);

private:
    static void CreateKey(HKEY hive, const wchar_t *parent, const wchar_t *child);
    // Creates `child` below an open key with all access and closes it.
    static void CreateBelow(HKEY parent, const wchar_t *child);
    // Opens the application key with `access`; null when it cannot.
    HKEY OpenAppKey(REGSAM access) const;
    // One value set or read through the key opened for it: `text` moves
    // text types as wchar_t, else as stored bytes. The registry's status.
    LONG SetValue(const wchar_t *name, DWORD type, const BYTE *data, DWORD size, bool text);
    LONG QueryValue(const wchar_t *name, DWORD *type, BYTE *data, DWORD *size, bool text);

    wchar_t *appKey_ = nullptr;
    DWORD valueIndex_ = 0;
    HKEY majorKey_;
    DWORD keyIndex_ = 0;
};
