// The catalogue of archive kinds: one enumeration for every kind the
// product names, and the table functions around it (names, extensions,
// engine ids, capability bits), the quick name test for archives, and the
// names for new archives.
//
// Functions that return `const wchar_t *` return a static string of the
// function, overwritten by its next call: copy the text at once, and use
// them from one thread at a time.
#pragma once

#include <cstdint>

#include "VarnickEngine.h"
#include "platform/WinTypes.h"

// The engine's narrow name of a format ("zip", "vnk5", ...): at most 49
// characters and a terminator.
inline constexpr std::size_t kFormatIdSize = kEngineFormatIdSize;
using FormatId = EngineFormatId;

namespace format {

// One archive kind. The same container has several values, one for each
// outer wrapping and file ending. The gaps (18, 19, 31 to 39, 68) are not
// used.
enum type : std::int32_t {
    zip = 0,
    vnkx = 1,
    vnk = 2,
    vnkseg = 3,
    vnksegN = 4,
    sea = 5,
    tar = 6,
    tgz = 7,
    tbz2 = 8,
    tz = 9,
    sevenz = 10,
    lzma = 11,
    vnkbin = 12,
    vnkhqx = 13,
    vnkxbin = 14,
    vnkxhqx = 15,
    zipuu = 16,
    zipuue = 17,
    rar = 20,
    z = 21,
    tarz = 22,
    gz = 23,
    targz = 24,
    bz2 = 25,
    tarbz2 = 26,
    lha = 27,
    lzh = 28,
    cab = 29,
    tlzma = 30,
    apple = 40,
    arc = 41,
    arj = 42,
    b64 = 43,
    hqx = 44,
    bin = 45,
    btoa = 46,
    freeze = 47,
    mime = 48,
    mim = 49,
    mme = 50,
    other51 = 51,
    pf = 52,
    sco = 53,
    cpt = 54,
    compact = 55,
    uue = 56,
    uu = 57,
    ync = 58,
    yenc = 59,
    ntx = 60,
    cbz = 61,
    cbr = 62,
    cbt = 63,
    gtar = 64,
    gnutar = 65,
    ustar = 66,
    exe = 67,
    vidx = 69,
    unknown = 99,
};

}  // namespace format

// The format a file's name says; never looks into the file. Suffixes are
// tested in a fixed order and the first hit wins; no hit gives unknown.
format::type GetFormatType(const wchar_t *path);
// The format of an engine id as DetermineFileFormat gives it (exact,
// case-sensitive); anything else gives unknown.
format::type GetFormatType(const char *formatId);

// The engine id of a format; an empty text for a format without one.
void GetFormatID(format::type type, FormatId &formatId);
// The display name; a format without a row gives the generic archive name.
const wchar_t *GetFormatName(format::type type);
// The file extension with its dot, or an empty text.
const wchar_t *GetFormatExtension(format::type type);

// Capability bits, served to the programs that load the library. The
// library itself reads only kFormatHoldsManyItems.
inline constexpr std::uint32_t kFormatHoldsManyItems = 0x20;
std::uint32_t GetFormatCapabilities(format::type type);

// The text of an engine access mode: read only (7), read and write (255),
// limited access (anything else).
const wchar_t *GetArchiveModeString(WORD mode);

// Whether the path's name looks like an archive. A name ending in ".exe"
// counts only with `checkExe`, and then only if the engine finds an archive
// in it (IsExeASea).
bool IsArchive(const wchar_t *path, bool checkExe);
// Whether GetFormatType of the path is `type`; false for an empty path.
bool IsArchiveOfFormat(const wchar_t *path, format::type type);
// Whether an executable holds an archive (looks into the file, through an
// engine session of its own).
bool IsExeASea(const wchar_t *path);
// Whether the file's name begins with the prefix of index files.
bool IsVnkxIndex(const wchar_t *path);

// The first free name for a new archive: `name` without its extension (in
// `folder` when one is given) plus `extension`, then "<base>_1<ext>",
// "<base>_2<ext>", ... while taken. An empty name takes the default archive
// name, whose numbered retries lose it ("_1.zip").
const wchar_t *MakeUniqueArchiveName(const wchar_t *name, const wchar_t *extension,
                                     const wchar_t *folder);
// `name` without its extension (in `folder` when one is given), the local
// date and time as "yyyyMMddHHmmss", and `extension`.
const wchar_t *TimeStampArchiveName(const wchar_t *name, const wchar_t *extension,
                                    const wchar_t *folder);
