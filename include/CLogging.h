// Logs of the product: per-component log files, the one error file that
// every component writes its failures to, the debug channel, and the report
// for customer support.
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
    // The same for a log at a full path, anywhere.
    static FILE *OpenExternalLog(const wchar_t *path, bool append);
    // Closes a log; clears the session error handle first if it is this one.
    static void CloseLog(FILE *log);
    // As CloseLog, then deletes the file at LastLogPath(), which need not be
    // this log's when another was opened after it.
    static void CloseAndDeleteLog(FILE *log);
    // Empties the log at a full path.
    static void ClearLog(const wchar_t *path);
    // The path most recently opened by OpenLog or OpenExternalLog.
    static std::wstring LastLogPath();

    // Msg writes a line at level 0 always, at another level only when
    // low <= level <= high.
    static void SetLevel(int low, int high);
    // One formatted line (Windows format, at most 511 characters, cut
    // beyond) into a log, flushed at once so that a crash loses nothing.
    static void Msg(FILE *log, int level, const wchar_t *format, ...);
    // The same formatting, to OutputDebugStringW; no level applies.
    static void Dbg(const wchar_t *format, ...);

    // The support report: "Support.log" in the log folder, emptied, with
    // the three sections below. Nothing happens when it cannot be opened;
    // the folder is not made for it. Shows the wait cursor meanwhile.
    static void MakeSupportLog();
    // The machine: system version, memory, local disks, monitors, system
    // folders and a few environment variables.
    static void ComputerInfo(FILE *log, int level);
    // Every file below the program folder with size, date, time and MD5.
    static void ProgDir(FILE *log, int level);
    // The product's keys in the registry store, with their values.
    static void RegKeys(FILE *log, int level);
    // The walk of ProgDir over any folder: one line a file, "name,size,date,
    // time,md5,folder", subfolders after their turn in the listing; links
    // and the "." and ".." entries are skipped.
    static void ListFolder(FILE *log, int level, const wchar_t *folder);

private:
    // Whether Msg writes a line of this level.
    static bool LevelPasses(int level);
};

// An exported debug call that does nothing at all, kept beside
// CLogging::Dbg for callers that use the plain name.
void Dbg(const wchar_t *format, ...);
