// Job files for callers without classes: CreateIni gives a flat record that
// the caller fills by hand, AddFile and AddFolder fill the content, and
// SaveIni writes the file and frees the record. Then LaunchCmdLineBlocking
// runs the job and GetLogFile tells where its log went.
//
// GetLogFile and RunUploadProfileDlg return a process-wide buffer that the
// next call overwrites: one thread at a time, and copy the text at once.
#pragma once

#include "platform/WinTypes.h"

class CAppOptionsRepository;
class CFormatOptionsRepository;
class CNewArchiveContentList;

// The objects behind an INIINFO. The format options hold an open engine,
// owned through the record.
struct INIINFOOPTIONS {
    CAppOptionsRepository *AppOptions;
    CFormatOptionsRepository *FormatOptions;
    CNewArchiveContentList *Content;
};

struct INIINFO {
    wchar_t IniPath[1024];
    DWORD WizardType;
    bool KeepArchive;
    wchar_t ArchiveName[1024];
    bool Encrypt;
    wchar_t Password[256];
    DWORD Format;
    bool OneArchivePerItem;
    bool Timestamp;
    __int64 SegmentSize;
    bool MakeIndex;
    // A filter is written from the fields below only when this is set.
    bool UseFilter;
    wchar_t Mask[1024];
    bool ByDate;
    DWORD DateType;
    FILETIME DateStart;
    FILETIME DateEnd;
    DWORD Since;
    bool AddArchived;
    bool ResetArchived;
    bool SystemAndHidden;
    DWORD VnkxCompressionMethod;
    DWORD VnkxCompressionLevel;
    DWORD CompressionMemory;
    DWORD VnkxEncryptionMethod;
    bool UseBlockMode;
    DWORD RedundancyLevel;
    DWORD TextEncoding;
    bool EmbedJPGThumbnails;
    bool ZipRecompression;
    DWORD RecompressionMask;
    DWORD ZipCompressionMethod;
    DWORD ZipCompressionLevel;
    DWORD ZipEncryptionMethod;
    DWORD BZipCompressionLevel;
    DWORD GZipCompressionLevel;
    bool UseEncryption;
    bool DeleteSrc;
    bool CompressOrig;
    // The inverse of the application option CompressArcs.
    bool DontCompressArcs;
    DWORD ForkHandling;
    DWORD AddConflictMethod;
    bool AddMergeContents;
    DWORD CompressFolderMethod;
    wchar_t DefaultCompressFolder[1024];
    wchar_t FTPProfileName[256];
    bool FTPMD5File;
    // Never written.
    wchar_t Reserved[256];
    wchar_t Device;
    bool SafeSpeed;
    wchar_t Label[256];
    bool Appendable;
    bool PreEraseRW;
    bool Rename;
    INIINFOOPTIONS *Options;
};

extern "C" {

// A record for the job file at `path` (cut to 1,023 characters) with its
// defaults, the options taken from the user's settings. Null when any part
// cannot be made.
INIINFO *CreateIni(const wchar_t *path);
// Append to the content; the path is not checked.
void AddFile(INIINFO *info, const wchar_t *path);
void AddFolder(INIINFO *info, const wchar_t *path);
// Writes the job file and deletes the record, which must not be used
// again. False only for a null record.
bool SaveIni(INIINFO *info);
// Deletes the record and everything it holds without writing.
void DeleteINIINFO(INIINFO *info);
// CmdLine/LogFile of the job file at `path`; empty when missing.
const wchar_t *GetLogFile(const wchar_t *path);
// Runs the command-line runner from this library's folder with
// `arguments` as they stand, and waits for it to end.
void LaunchCmdLineBlocking(const wchar_t *arguments);
// The upload profile chosen: the name given, or with none the name of the
// new profile.
const wchar_t *RunUploadProfileDlg(const wchar_t *name, HWND parent);

}  // extern "C"
