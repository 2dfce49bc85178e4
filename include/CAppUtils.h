// What all the programs share: message boxes with resource texts, numbers,
// sizes and dates as text, versions, the language, the program's paths.
//
// Functions that return `const wchar_t *` return a static buffer of the
// function, overwritten by its next call: copy the text at once, and use
// them from one thread at a time. Texts fall back on "" on failure.
#pragma once

#include <cstdint>
#include <list>
#include <string>

#include "platform/WinTypes.h"

class CHighTime;

using STDStringList = std::list<std::wstring>;

// The version record of a library's DllGetVersion; this library exports
// one with its own version.
struct DLLVERSIONINFO {
    DWORD cbSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformID;
};
extern "C" HRESULT DllGetVersion(DLLVERSIONINFO *info);

// The pages of the support link.
enum SUPPORT_PAGE_TYPE {
    SUPPORT_PAGE_TW,
    SUPPORT_PAGE_ISHELP,
    SUPPORT_PAGE_ISHOME,
    SUPPORT_PAGE_ISUPDT,
    SUPPORT_PAGE_STOR,
    SUPPORT_PAGE_INFO,
    SUPPORT_PAGE_VCHK,
    SUPPORT_PAGE_MSG,
    SUPPORT_PAGE_FEEDBACK,
    SUPPORT_PAGE_SPLASH,
    SUPPORT_PAGE_REGISTER,
    SUPPORT_PAGE_PURCHASE,
};

class CAppUtils {
public:
    CAppUtils() = delete;

    // Message boxes. Titles are string ids; 230 is the product's name.
    static int MsgBox(unsigned textId, unsigned titleId = 230, UINT flags = 0,
                      HWND parent = nullptr);
    static int MsgBox(const wchar_t *text, unsigned titleId = 230, UINT flags = 0,
                      HWND parent = nullptr);
    // An error box (exclamation icon, OK) owned by the window with the focus,
    // else by the product's main window. With `a` and `b` both set, string
    // textId is a format for the two; with `a` alone, a format for it; with
    // no `a`, the text as it stands.
    static void ErrorMsgBox(unsigned textId, unsigned titleId, const wchar_t *a = nullptr,
                            const wchar_t *b = nullptr);
    // String `id` as a format for `text`.
    static const wchar_t *ErrorFormat(unsigned id, const wchar_t *text);

    // Numbers with the user's thousands separator (and decimal point).
    static const wchar_t *GetNumberFormatW(int value);
    static const wchar_t *GetNumberFormat64(std::int64_t value);
    static const wchar_t *GetDoubleFormat(double value, int decimals);
    // A byte count in groups of three digits, into `out` (32 characters).
    static const wchar_t *FormatFileSize(DWORD high, DWORD low, wchar_t *out);
    static const wchar_t *FormatFileSize(std::int64_t size, wchar_t *out);
    // The local date and time of a file time, in the user's short forms,
    // into `date` and `time` (each 64 characters). Empty for a null time.
    static void FormatDateTime(const FILETIME *fileTime, wchar_t *date, wchar_t *time);
    // "<date> <time>" of a time as it stands (no zone conversion), the date
    // in the user's long form when `longDate`, else the short one; "" for a
    // time that is not valid.
    static const wchar_t *GetDateTimeFormat(const CHighTime &time, bool longDate);

    // Versions and the system.
    static const wchar_t *AppVersion();
    // "major.minor.build" from the library's DllGetVersion, or "".
    static const wchar_t *DllVersion(const wchar_t *path);
    // "LX" on Linux; the Windows family codes elsewhere.
    static const wchar_t *GetWindowsVersion();
    static DWORD GetWINVER();
    // Value UIClass below the product's registry key, made when missing.
    static const wchar_t *GetOrCreateVersionCode();

    // The user's language: a LANGID (0x409 English), a designator ("EN",
    // "FR", "DE", "JA", "CH") and its name; English for any other language.
    static WORD GetLanguageCode();
    static const wchar_t *GetLanguageDesignator();
    static const wchar_t *GetLanguageString();

    // The library's file, its folder (the program folder, no trailing
    // separator) and the programs and resource libraries in it.
    static const wchar_t *GetExeName();
    static const wchar_t *GetExePath();
    static const wchar_t *GetCmdLineExeName();
    static const wchar_t *GetInstResPath();
    static const wchar_t *GetInstResNLPath();

    // Bytes of physical memory, and the most a sizing decision should
    // count on (what is available now, within the address space).
    static std::uint64_t GetPhysicalMemorySize();
    static std::uint64_t GetMemoryLimit();

    // A random GUID, "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}".
    static const wchar_t *CreateGUID();

    // Blanks and tabs, in place; the text is returned.
    static wchar_t *TrimLeadingSpaces(wchar_t *text);
    static wchar_t *TrimTrailingSpaces(wchar_t *text);
    // Whether the list holds the text, without regard to case.
    static bool STDStringListLookup(const STDStringList &list, const wchar_t *text);

    // Window helpers. CenterDlgOverParent centres a dialog over its parent
    // (over the screen without one), kept on the screen. ProcessMessages
    // dispatches what waits in the calling thread's queue and returns; a
    // WM_QUIT it meets is posted again for the caller's own loop.
    static void CenterDlgOverParent(HWND dialog, HWND parent);
    static void ProcessMessages();
    // Whether the clipboard holds a list of files (CF_HDROP).
    static bool FilesAvailableOnClipboardToPaste();
    // Replaces the clipboard's contents with `text` (CF_UNICODETEXT).
    static bool CopyTextToClipboard(HWND owner, const std::wstring &text);

    // A link to a page of the maker's support site; `solution` marks the
    // solution edition rather than the standard one.
    static const wchar_t *GetISupportURL(SUPPORT_PAGE_TYPE page, bool solution);

    // The path shortened to `width` as "<first>/.../<last parts>" (pixels
    // of `dc`; characters when `dc` is null).
    static const wchar_t *FitPath(const wchar_t *path, int width, HDC dc);
    // "(<code>) - <system message>".
    static const wchar_t *WinErrorToString(DWORD code);
    // String `id` of `instance`; a null instance means the common resource
    // libraries, the localized one first.
    static const wchar_t *GetResString(HINSTANCE instance, unsigned id);
    // String `id` of the common resource libraries, the localized one first,
    // cut to max - 1 characters; empty when neither has it. Safe on any
    // thread: the text is the caller's.
    static std::wstring LoadString(unsigned id, int max = 256);
    // The two resource libraries (localized, non-localized) that every
    // string load of the library uses.
    static void SetCommonHINST(HINSTANCE localized, HINSTANCE nonLocalized);
    static HINSTANCE GetCommonHINST();
    static HINSTANCE GetCommonNLHINST();
};
