// Logs of the product: per-component log files, the one error file that
// every component writes its failures to, and the debug channel.
//
// Logs are UTF-16LE text files with a byte order mark in the log folder,
// the local application data folder plus "/Orvane Labs/Logs/". Nothing
// here locks and nothing reports a failure: a log that cannot be written
// loses the line. Every function accepts a null file.
#pragma once

#include <cstdio>
#include <string>

class CLogging {
public:
    CLogging() = delete;

    // One error record into "Errors.log" of the log folder, and into the
    // session error log when one is set. `function`, `line` and `file` name
    // the place ("CMonFileSys::AddFile", 146, ".\\MonFileSys"); `engine`
    // tells an engine result from a runtime error; a null `text` is written
    // as a blank.
    static void Err(const wchar_t *function, unsigned line, const wchar_t *file, unsigned code,
                    bool engine = false, const wchar_t *text = nullptr);
    // The same record into `log` only.
    static void LogErr(FILE *log, const wchar_t *function, unsigned line, const wchar_t *file,
                       unsigned code, bool engine = false, const wchar_t *text = nullptr);
    // Free text, formatted with a Windows format, into the error file.
    static void MsgInErrFile(const wchar_t *format, ...);

    // A log that also receives every Err record, for a job that runs in the
    // background. A null argument is ignored; CloseLog of that log clears it.
    static void SetSessionErrorHandle(FILE *log);
    static FILE *SessionErrorHandle();

    // The log folder with its trailing separator, made with its parents on
    // first use; and the error file in it. Both are kept for the process;
    // empty when the local application data folder is unknown.
    static std::wstring LogFolder();
    static std::wstring ErrorFilePath();
    // Forgets the folder and error file path so that the next use builds
    // them again: for a host (or test) that changes where its data lives.
    static void ResetLogFolder();

    // Opens the log folder's "<name>.log", emptied or for appending, and
    // writes a header line with the time. Null on failure (recorded by Err).
    static FILE *OpenLog(const wchar_t *name, bool append);
    // Closes a log; clears the session error handle first if it is this one.
    static void CloseLog(FILE *log);
    // As CloseLog, then deletes the file most recently opened by OpenLog.
    static void CloseAndDeleteLog(FILE *log);
    // Empties the log at a full path.
    static void ClearLog(const wchar_t *path);
    // The path most recently opened by OpenLog.
    static std::wstring LastLogPath();

    // Msg writes a line at level 0 always, at another level only when
    // low <= level <= high.
    static void SetLevel(int low, int high);
    // One formatted line (Windows format, at most 511 characters, cut
    // beyond) into a log, flushed at once so that a crash loses nothing.
    static void Msg(FILE *log, int level, const wchar_t *format, ...);
    // The same formatting, to OutputDebugStringW; no level applies.
    static void Dbg(const wchar_t *format, ...);
};
