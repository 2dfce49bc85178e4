#include "FormatCatalogue.h"

#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

#include "CAppUtils.h"
#include "CEngine.h"
#include "CFSUtils.h"
#include "VarnickEngine.h"
#include "archive/EngineHandles.h"
#include "archive/ResourceText.h"
#include "platform/Win32.h"

namespace {

// Resource texts of the catalogue.
constexpr unsigned kSegmentedName = 257;
constexpr unsigned kSelfExtractingName = 258;
constexpr unsigned kGenericFormatName = 259;
constexpr unsigned kLimitedAccessText = 308;
constexpr unsigned kReadWriteText = 309;
constexpr unsigned kReadOnlyText = 310;
constexpr unsigned kDefaultArchiveName = 498;
constexpr unsigned kIndexPrefix = 763;

constexpr WORD kReadOnlyMode = 7;
constexpr WORD kReadWriteMode = 255;

// One row of the catalogue. A display name is either a text or a resource
// string id (nameId != 0).
struct FormatRow {
    format::type type;
    const wchar_t *name;
    unsigned nameId;
    const wchar_t *extension;
    const char *engineId;
    std::uint32_t capabilities;
};

// clang-format off
constexpr FormatRow kFormats[] = {
    {format::zip,     L"Zip",                 0,                   L".zip",      "zip",      0x1bb},
    {format::vnkx,    L"Varnick X",           0,                   L".vnkx",     "vnkx",     0x3ff},
    {format::vnk,     L"Varnick",             0,                   L".vnk",      "vnk5",     0x1bf},
    {format::vnkseg,  nullptr,                kSegmentedName,      L".vnk.1",    "",         0x1bf},
    {format::vnksegN, nullptr,                kGenericFormatName,  L"",          "",         0x1bf},
    {format::sea,     nullptr,                kSelfExtractingName, L".sea",      "vnk5",     0x110},
    {format::tar,     L"TAR",                 0,                   L".tar",      "tar",      0x132},
    {format::tgz,     L"GZip compressed TAR", 0,                   L".tgz",      "gz",       0x132},
    {format::tbz2,    L"BZip compressed TAR", 0,                   L".tbz2",     "bz2",      0x132},
    {format::tz,      L"Unix compressed TAR", 0,                   L".tz",       "compress", 0x132},
    {format::sevenz,  L"7z",                  0,                   L".7z",       "sevenz",   0x1a0},
    {format::lzma,    L"Lzma compress",       0,                   L".lzma",     "lzma",     0x190},
    {format::vnkbin,  L"Varnick",             0,                   L".vnk.bin",  "vnk5",     0x1bf},
    {format::vnkhqx,  L"Varnick",             0,                   L".vnk.hqx",  "vnk5",     0x1bf},
    {format::vnkxbin, L"Varnick X",           0,                   L".vnkx.bin", "vnkx",     0x3ff},
    {format::vnkxhqx, L"Varnick X",           0,                   L".vnkx.hqx", "vnkx",     0x3ff},
    {format::zipuu,   L"Zip",                 0,                   L".zip.uu",   "zip",      0x1bb},
    {format::zipuue,  L"Zip",                 0,                   L".zip.uue",  "zip",      0x1bb},
    {format::rar,     L"RAR",                 0,                   L".rar",      "rar",      0x1b3},
    {format::z,       L"Unix Compress",       0,                   L".z",        "compress", 0x190},
    {format::tarz,    L"Unix compressed TAR", 0,                   L".tar.z",    "compress", 0x132},
    {format::gz,      L"GZip",                0,                   L".gz",       "gz",       0x190},
    {format::targz,   L"GZip compressed TAR", 0,                   L".tar.gz",   "gz",       0x132},
    {format::bz2,     L"BZip",                0,                   L".bz2",      "bz2",      0x190},
    {format::tarbz2,  L"BZip compressed TAR", 0,                   L".tar.bz2",  "bz2",      0x132},
    {format::lha,     L"LHa",                 0,                   L".lha",      "lha",      0x1b2},
    {format::lzh,     L"Lzh",                 0,                   L".lzh",      "",         0x1b2},
    {format::cab,     nullptr,                kGenericFormatName,  L".cab",      "cab",      0x1a0},
    {format::tlzma,   L"LZMA compressed TAR", 0,                   L".tlzma",    "lzma",     0x132},
    {format::apple,   L"AppleSingle",         0,                   L".as",       "apple",    0x110},
    {format::arc,     L"Arc",                 0,                   L".arc",      "arc",      0x1b2},
    {format::arj,     L"Arj",                 0,                   L".arj",      "arj",      0x1b2},
    {format::b64,     L"Base64",              0,                   L".b64",      "",         0x110},
    {format::hqx,     L"BinHex",              0,                   L".hqx",      "hqx",      0x110},
    {format::bin,     L"MacBinary",           0,                   L".bin",      "bin",      0x110},
    {format::btoa,    L"BtoA",                0,                   L".btoa",     "btoa",     0x110},
    {format::freeze,  nullptr,                kGenericFormatName,  L"",          "",         0x110},
    {format::mime,    L"MIME",                0,                   L".mime",     "mime",     0x100},
    {format::mim,     L"MIME",                0,                   L".mim",      "mime",     0x100},
    {format::mme,     L"MIME",                0,                   L".mme",      "mime",     0x100},
    {format::other51, nullptr,                kGenericFormatName,  L"",          "",         0x110},
    {format::pf,      L"PrivateFile",         0,                   L".pf",       "pf",       0x100},
    {format::sco,     L"SCO Compress",        0,                   L".sco",      "",         0x110},
    {format::cpt,     L"CompactPro",          0,                   L".cpt",      "",         0x110},
    {format::compact, L"Unix Compact",        0,                   L"",          "",         0x110},
    {format::uue,     L"UUencoded",           0,                   L".uue",      "uu",       0x110},
    {format::uu,      nullptr,                kGenericFormatName,  L".uu",       "",         0x110},
    {format::ync,     L"yEncoded",            0,                   L".ync",      "",         0x110},
    {format::yenc,    L"yEncoded",            0,                   L".yenc",     "yenc",     0x100},
    {format::ntx,     L"yEncoded",            0,                   L".ntx",      "",         0x110},
    {format::cbz,     L"Zip",                 0,                   L".cbz",      "",         0x1bb},
    {format::cbr,     L"RAR",                 0,                   L".cbr",      "",         0x1b3},
    {format::cbt,     L"TAR",                 0,                   L".cbt",      "",         0x132},
    {format::gtar,    L"TAR",                 0,                   L".gtar",     "",         0x132},
    {format::gnutar,  L"TAR",                 0,                   L".gnutar",   "",         0x132},
    {format::ustar,   L"TAR",                 0,                   L".ustar",    "",         0x132},
    {format::exe,     nullptr,                kSelfExtractingName, L".exe",      "vnk5",     0x110},
    {format::vidx,    L"Varnick X",           0,                   L".vidx",     "vnkx",     0x3ff},
};

// The name lookup: tested in this order, first hit wins. Compound endings
// stand ahead of their last part (".tar.gz" before ".gz"). Several endings
// give the plain container's value rather than their own row (".tar.bz2",
// ".uu", ".ync", ".cbz" and kin), and ".001" / ".z01" name the first piece
// of a split RAR or Zip.
struct SuffixRule {
    const wchar_t *suffix;
    format::type type;
};

constexpr SuffixRule kNameSuffixes[] = {
    {L".vnkx", format::vnkx},        {L".vidx", format::vidx},
    {L".zip", format::zip},          {L".vnk", format::vnk},
    {L".sea", format::sea},          {L".exe", format::exe},
    {L".rar", format::rar},          {L".001", format::rar},
    {L".z01", format::zip},          {L".tar", format::tar},
    {L".tar.z", format::tarz},       {L".tz", format::tz},
    {L".tgz", format::tgz},          {L".tar.gz", format::targz},
    {L".tbz2", format::tbz2},        {L".tar.bz2", format::tbz2},
    {L".tbz", format::tbz2},         {L".zip.uu", format::zipuu},
    {L".zip.uue", format::zipuue},   {L".vnk.bin", format::vnkbin},
    {L".vnk.hqx", format::vnkhqx},   {L".vnkx.bin", format::vnkxbin},
    {L".vnkx.hqx", format::vnkxhqx}, {L".z", format::z},
    {L".gz", format::gz},            {L".bz2", format::bz2},
    {L".arc", format::arc},          {L".arj", format::arj},
    {L".lha", format::lha},          {L".lzh", format::lzh},
    {L".cab", format::cab},          {L".hqx", format::hqx},
    {L".uue", format::uue},          {L".uu", format::uue},
    {L".bin", format::bin},          {L".as", format::apple},
    {L".mime", format::mime},        {L".mim", format::mim},
    {L".mme", format::mme},          {L".b64", format::b64},
    {L".yenc", format::yenc},        {L".ync", format::yenc},
    {L".ntx", format::ntx},          {L".cbz", format::zip},
    {L".cbr", format::rar},          {L".cbt", format::tar},
    {L".gtar", format::tar},         {L".gnutar", format::tar},
    {L".ustar", format::tar},        {L".7z", format::sevenz},
    {L".lzma", format::lzma},        {L".tlzma", format::tlzma},
};
static_assert(std::size(kNameSuffixes) == 52);

// Engine ids back to values. Not the inverse of GetFormatID: "cab" is not
// here, the segment ids are, and "vnk" is an older spelling of "vnk5".
struct EngineIdRule {
    const char *engineId;
    format::type type;
};

constexpr EngineIdRule kEngineIds[] = {
    {"vnkx", format::vnkx},      {"vnk5", format::vnk},       {"vnk", format::vnk},
    {"zip", format::zip},        {"sevenz", format::sevenz},  {"rar", format::rar},
    {"tar", format::tar},        {"compress", format::z},     {"gz", format::gz},
    {"lzma", format::lzma},      {"bz2", format::bz2},        {"apple", format::apple},
    {"arc", format::arc},        {"arj", format::arj},        {"hqx", format::hqx},
    {"btoa", format::btoa},      {"cpt", format::cpt},        {"freeze", format::freeze},
    {"lha", format::lha},        {"bin", format::bin},        {"mime", format::mime},
    {"pf", format::pf},          {"sco", format::sco},        {"compact", format::compact},
    {"uu", format::uue},         {"yenc", format::yenc},      {"vnkseg", format::vnkseg},
    {"vnksegN", format::vnksegN},
};

// The quick test of IsArchive: every ending a feeder takes for an archive.
// ".cab" stands in it twice; only the first can ever match.
constexpr std::wstring_view kArchiveSuffixes[] = {
    L".vnkx",     L".vidx",     L".vnk",     L".zip",     L".cbz",     L".rar",    L".cbr",
    L".001",      L".z01",      L".tar",     L".cbt",     L".gtar",    L".gnutar", L".ustar",
    L".tgz",      L".tbz2",     L".tbz",     L".tz",      L".cab",     L".arc",    L".arj",
    L".lha",      L".lzh",      L".sea",     L".exe",     L".tar.bz2", L".tar.gz", L".tar.z",
    L".zip.uu",   L".zip.uue",  L".vnk.bin", L".vnk.hqx", L".vnkx.bin", L".vnkx.hqx",
    L".bz2",      L".gz",       L".7z",      L".lzma",    L".tlzma",   L".z",      L".as",
    L".b64",      L".hqx",      L".bin",     L".btoa",    L".mime",    L".mim",    L".mme",
    L".sco",      L".cpt",      L".uue",     L".uu",      L".cab",     L".ync",    L".yenc",
    L".ntx",      L".pf",
};
// clang-format on
static_assert(std::size(kArchiveSuffixes) == 57);

constexpr std::wstring_view kExeSuffix = L".exe";
// The one engine id that an executable may hold without being a
// self-extracting archive: MacBinary finds a header in many plain files.
constexpr char kNotASeaId[] = "bin";

const FormatRow *FindRow(format::type type) {
    for (const FormatRow &row : kFormats) {
        if (row.type == type) return &row;
    }
    return nullptr;
}

std::wstring Text(const wchar_t *text) { return text ? text : L""; }

std::wstring JoinFolder(const wchar_t *folder, const std::wstring &base) {
    std::wstring joined = folder;
    joined += kPathSep;
    joined += CFSUtils::ExtractFileName(base.c_str());
    return joined;
}

}  // namespace

format::type GetFormatType(const wchar_t *path) {
    if (!path) return format::unknown;
    for (const SuffixRule &rule : kNameSuffixes) {
        if (CFSUtils::CheckFileExtension(path, rule.suffix)) return rule.type;
    }
    return format::unknown;
}

format::type GetFormatType(const char *formatId) {
    if (!formatId) return format::unknown;
    for (const EngineIdRule &rule : kEngineIds) {
        if (std::strcmp(formatId, rule.engineId) == 0) return rule.type;
    }
    return format::unknown;
}

void GetFormatID(format::type type, FormatId &formatId) {
    const FormatRow *row = FindRow(type);
    std::strncpy(formatId, row ? row->engineId : "", kFormatIdSize - 1);
    formatId[kFormatIdSize - 1] = '\0';
}

const wchar_t *GetFormatName(format::type type) {
    static std::wstring result;
    const FormatRow *row = FindRow(type);
    if (row && row->name) {
        result = row->name;
    } else {
        result = archive::ResourceText(
            CAppUtils::GetResString(nullptr, row ? row->nameId : kGenericFormatName));
    }
    return result.c_str();
}

const wchar_t *GetFormatExtension(format::type type) {
    static std::wstring result;
    const FormatRow *row = FindRow(type);
    result = row ? row->extension : L"";
    return result.c_str();
}

std::uint32_t GetFormatCapabilities(format::type type) {
    const FormatRow *row = FindRow(type);
    return row ? row->capabilities : 0;
}

const wchar_t *GetArchiveModeString(WORD mode) {
    static std::wstring result;
    unsigned id = kLimitedAccessText;
    if (mode == kReadOnlyMode) {
        id = kReadOnlyText;
    } else if (mode == kReadWriteMode) {
        id = kReadWriteText;
    }
    result = archive::ResourceText(CAppUtils::GetResString(nullptr, id));
    return result.c_str();
}

bool IsArchive(const wchar_t *path, bool checkExe) {
    if (!path) return false;
    for (std::wstring_view suffix : kArchiveSuffixes) {
        if (!platform::EndsWithNoCase(path, suffix)) continue;
        if (suffix != kExeSuffix) return true;
        return checkExe && IsExeASea(path);
    }
    return false;
}

bool IsArchiveOfFormat(const wchar_t *path, format::type type) {
    if (!path || !*path) return false;
    return GetFormatType(path) == type;
}

bool IsExeASea(const wchar_t *path) {
    CEngine engine;
    archive::ScopedFSObject file;
    if (NewFSObjectFromUnicodePath(Text(path).c_str(), file.Out()) != kEngineOK) return false;
    FormatId formatId = "";
    if (DetermineFileFormat(engine.GetEngine(), file.Get(), formatId) != kEngineOK) return false;
    return _wcsicmp(platform::FromUtf8(formatId).c_str(), platform::FromUtf8(kNotASeaId).c_str()) !=
           0;
}

bool IsVnkxIndex(const wchar_t *path) {
    std::wstring prefix = archive::ResourceText(CAppUtils::GetResString(nullptr, kIndexPrefix));
    // Without the resource text every name would "begin" with the empty
    // prefix; no name is an index then.
    if (prefix.empty()) return false;
    const wchar_t *name = CFSUtils::ExtractFileName(Text(path).c_str());
    return _wcsnicmp(name, prefix.c_str(), prefix.size()) == 0;
}

const wchar_t *MakeUniqueArchiveName(const wchar_t *name, const wchar_t *extension,
                                     const wchar_t *folder) {
    static std::wstring result;
    std::wstring ext = Text(extension);
    std::wstring base = CFSUtils::RemoveFileExtension(Text(name).c_str());
    if (folder && *folder) base = JoinFolder(folder, base);
    std::wstring candidate = base;
    // The default name stands only in the first try; base stays empty, so
    // the numbered retries read "_1.ext".
    if (candidate.empty())
        candidate = archive::ResourceText(CAppUtils::GetResString(nullptr, kDefaultArchiveName));
    result = candidate + ext;
    for (int n = 1; CFSUtils::FileExists(result.c_str()); ++n) {
        result = FormatW(L"%s_%d%s", base.c_str(), n, ext.c_str());
    }
    return result.c_str();
}

const wchar_t *TimeStampArchiveName(const wchar_t *name, const wchar_t *extension,
                                    const wchar_t *folder) {
    static std::wstring result;
    std::wstring base = CFSUtils::RemoveFileExtension(Text(name).c_str());
    if (folder && *folder) base = JoinFolder(folder, base);
    SYSTEMTIME universal{};
    SYSTEMTIME local{};
    GetSystemTime(&universal);
    SystemTimeToTzSpecificLocalTime(nullptr, &universal, &local);
    std::wstring stamp = FormatW(L"%04i%02i%02i%02i%02i%02i", local.wYear, local.wMonth, local.wDay,
                                 local.wHour, local.wMinute, local.wSecond);
    result = base + stamp + Text(extension);
    return result.c_str();
}
