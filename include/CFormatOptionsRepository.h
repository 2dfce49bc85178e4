// The per-format compression settings: small groups for the classic format
// (vnk), Zip, BZip and GZip, a large group for vnkx, and the table of the
// ranges the engine allows for each vnkx compression method. Construction
// sets the defaults and reads nothing: the caller chooses when to Read, and
// in which mode.
//
// Registry: HKEY_CURRENT_USER, "Software\Orvane Labs\Varnick" and one
// subkey per format. Job file: one section per format, except that the
// classic method has none and shares the vnkx section's "CompressionMethod".
// Nothing is range-checked and no operation reports a failure.
//
// One thread at a time; nothing is locked.
#pragma once

#include "platform/WinTypes.h"

class CEngine;

// Columns of a row of the level and extent table.
enum LEVELANDEXTENT_COLUMN {
    kLevelDefault = 0,
    kLevelCurrent = 1,
    kLevelLeast = 2,
    kLevelMost = 3,
    kExtentDefault = 4,
    kExtentCurrent = 5,
    kExtentLeast = 6,
    kExtentMost = 7,
};
// Rows are the vnkx "compMethod" values 0 to 9; row 0 is never filled.
inline constexpr int kLevelAndExtentRows = 10;
inline constexpr int kLevelAndExtentColumns = 8;

class CFormatOptionsRepository {
public:
    CFormatOptionsRepository();
    // The stored fields as Copy takes them; the engine pointer stays null and
    // the table unset. A null source gives the defaults.
    explicit CFormatOptionsRepository(CFormatOptionsRepository *source);
    virtual ~CFormatOptionsRepository();
    CFormatOptionsRepository(const CFormatOptionsRepository &) = delete;
    CFormatOptionsRepository &operator=(const CFormatOptionsRepository &) = delete;

    // Every stored field; neither the engine pointer nor the table.
    void Copy(CFormatOptionsRepository *source);
    // Fills the table from the engine's vnkx ranges; needs Engine. The
    // engine is left on method 9.
    void SetLevelAndExtentTable();
    // With SimpleVnkxMethod 6, sets the vnkx group to the simple preset from
    // row 5 of the table; any other method changes no field. Without an
    // engine, fills rows 1 and 5's defaults through a session of its own
    // first.
    void SetupSimple();
    // Overlays the fields from the registry. With `simple` false the simple
    // mode is off whatever is stored; with it on, the vnkx details come from
    // the preset, not from the registry.
    void Read(bool simple);
    // Writes the fields; the vnkx details only when simple mode is off or
    // `all` is true.
    void Save(bool all);
    // Sets the job-file keys in the file at `path`, keeping its other
    // content, and saves it.
    void SaveToIni(const wchar_t *path);
    // Reads the job-file keys; a missing key leaves its field.
    void ReadFromIni(const wchar_t *path);

    // Not owned; null unless the caller sets it.
    CEngine *Engine;
    // The classic format (vnk).
    DWORD VnkCompressionMethod;
    DWORD ZipCompressionMethod;
    DWORD ZipCompressionLevel;
    DWORD BZipCompressionLevel;
    DWORD GZipCompressionLevel;
    // Valid only after SetLevelAndExtentTable; -1 for an unknown range.
    LONG LevelAndExtentTable[kLevelAndExtentRows][kLevelAndExtentColumns];
    DWORD VnkxCompressionMethod;
    DWORD VnkxCompressionLevel;
    DWORD CompressionMemory;
    DWORD VnkxEncryptionMethod;
    DWORD ZipEncryptionMethod;
    bool UseBlockMode;
    DWORD RedundancyLevel;
    DWORD TextEncoding;
    bool EmbedJPGThumbnails;
    bool ZipRecompression;
    DWORD RecompressionMask;
    bool VnkxBackwardCompatible;
    bool VnkxDuplicateFolding;
    bool VnkxUseSimple;
    DWORD SimpleVnkxMethod;
    bool VnkxOptimize;
    DWORD RecompressionLevel;
};
