// varnick create: a new archive of files and folders, in the format of its
// name or of --format, through the library's compression.
#include <cstdint>
#include <string>
#include <vector>

#include "CAppOptionsRepository.h"
#include "CFSUtils.h"
#include "CFormatOptionsRepository.h"
#include "CNewArchiveContentList.h"
#include "CPassword.h"
#include "CliCommon.h"
#include "Commands.h"
#include "FormatCatalogue.h"
#include "platform/Win32.h"

namespace cli {

namespace {

// A compression method by the name the command line uses, and the engine's
// number for it in one format.
struct Method {
    const wchar_t *name;
    DWORD number;
};

constexpr Method kVnkxMethods[] = {
    {L"deflate", 1}, {L"bzip2", 2}, {L"lzma2", 3},  {L"ppmd", 4},        {L"zstd", 5},
    {L"store", 6},   {L"lz4", 7},   {L"brotli", 8}, {L"lzma2-large", 9},
};

// The engine reads more Zip methods than it writes.
constexpr Method kZipMethods[] = {{L"store", 0}, {L"deflate", 1}};

constexpr DWORD kMostRedundancy = 50;

// Everything `create` takes from its command line, checked.
struct CreateRequest {
    format::type type = format::zip;
    std::wstring archive;
    std::vector<std::wstring> paths;
    bool hasLevel = false;
    DWORD level = 0;
    bool hasMethod = false;
    DWORD method = 0;
    std::int64_t segmentSize = 0;
    bool hasRedundancy = false;
    DWORD redundancy = 0;
    std::wstring mask;
    bool hasComment = false;
    std::wstring comment;
    bool selfExtracting = false;
    bool askPassword = false;
};

// The format of --format, by name or extension, or else of the archive's
// own name; false when neither names one that can be made.
bool ChooseFormat(const Arguments &arguments, format::type &chosen) {
    if (arguments.Has(L"--format")) {
        const WritableFormat *named = FindWritableFormat(arguments.Value(L"--format"));
        if (named) chosen = named->type;
        return named != nullptr;
    }
    const WritableFormat *byName = WritableFormatOf(GetFormatType(arguments.positional[0].c_str()));
    if (byName) chosen = byName->type;
    return byName != nullptr;
}

bool ParseLevel(const std::wstring &text, DWORD &level) {
    if (text.size() != 1 || text[0] < L'0' || text[0] > L'9') return false;
    level = static_cast<DWORD>(text[0] - L'0');
    return true;
}

bool ParseMethod(format::type type, const std::wstring &text, DWORD &number) {
    const auto find = [&](const auto &methods) {
        for (const Method &method : methods) {
            if (platform::EqualsNoCase(text, method.name)) {
                number = method.number;
                return true;
            }
        }
        return false;
    };
    if (type == format::vnkx) return find(kVnkxMethods);
    if (type == format::zip) return find(kZipMethods);
    return false;
}

// A count of bytes with an optional k, M or G (powers of 1024); above 0.
bool ParseSize(const std::wstring &text, std::int64_t &bytes) {
    std::size_t digits = 0;
    while (digits < text.size() && text[digits] >= L'0' && text[digits] <= L'9') ++digits;
    if (digits == 0 || digits > 12 || text.size() > digits + 1) return false;
    std::int64_t value = std::stoll(text.substr(0, digits));
    if (text.size() == digits + 1) {
        switch (text[digits]) {
            case L'k':
            case L'K':
                value <<= 10;
                break;
            case L'm':
            case L'M':
                value <<= 20;
                break;
            case L'g':
            case L'G':
                value <<= 30;
                break;
            default:
                return false;
        }
    }
    bytes = value;
    return value > 0;
}

bool ParseRedundancy(const std::wstring &text, DWORD &percent) {
    if (text.empty() || text.size() > 2) return false;
    for (wchar_t c : text) {
        if (c < L'0' || c > L'9') return false;
    }
    percent = static_cast<DWORD>(std::stoul(text));
    return percent <= kMostRedundancy;
}

// The masks of every --mask, each of which may hold several separated by
// ";" or ",", as one list in the filter's form.
std::wstring JoinedMasks(const std::vector<std::wstring> &masks) {
    std::wstring joined;
    for (const std::wstring &mask : masks) {
        if (mask.empty()) continue;
        if (!joined.empty()) joined += L';';
        joined += mask;
    }
    return joined;
}

// The options only vnkx archives have; the first one given for another
// format, or null.
const wchar_t *VnkxOnlyOptionGiven(const Arguments &arguments) {
    for (const wchar_t *option : {L"--segment-size", L"--index", L"--redundancy", L"--comment"}) {
        if (arguments.Has(option)) return option;
    }
    return nullptr;
}

// Fills `request` from the command line; false with the usage error told.
bool ReadRequest(const Arguments &arguments, CreateRequest &request) {
    if (!arguments.bad.empty()) {
        UsageError(FormatW(L"unknown option '%s' (or it lacks its value)", arguments.bad.c_str()));
        return false;
    }
    if (arguments.positional.size() < 2) {
        UsageError();
        return false;
    }
    // The library names the result from the archive's folder.
    request.archive = FullPath(arguments.positional[0]);
    request.paths.assign(arguments.positional.begin() + 1, arguments.positional.end());
    if (!ChooseFormat(arguments, request.type)) {
        UsageError(
            L"unknown format: give zip, vnkx, vnk, 7z, tar, tgz, tbz2, gz or bz2 with "
            L"--format or as the archive's extension");
        return false;
    }
    const bool vnkx = request.type == format::vnkx;
    if (const wchar_t *option = VnkxOnlyOptionGiven(arguments); option && !vnkx) {
        UsageError(FormatW(L"%s is for vnkx archives only", option));
        return false;
    }
    request.hasLevel = arguments.Has(L"--level");
    if (request.hasLevel && !ParseLevel(arguments.Value(L"--level"), request.level)) {
        UsageError(L"the level is a digit from 0 to 9");
        return false;
    }
    request.hasMethod = arguments.Has(L"--method");
    if (request.hasMethod &&
        !ParseMethod(request.type, arguments.Value(L"--method"), request.method)) {
        UsageError(vnkx ? L"the vnkx methods are deflate, bzip2, lzma2, ppmd, zstd, store, lz4, "
                          L"brotli and lzma2-large"
                   : request.type == format::zip ? L"the zip methods are store and deflate"
                                                 : L"--method is for zip and vnkx archives");
        return false;
    }
    if (arguments.Has(L"--segment-size") &&
        !ParseSize(arguments.Value(L"--segment-size"), request.segmentSize)) {
        UsageError(L"the segment size is a number of bytes above 0, with k, M or G after it");
        return false;
    }
    request.hasRedundancy = arguments.Has(L"--redundancy");
    if (request.hasRedundancy &&
        !ParseRedundancy(arguments.Value(L"--redundancy"), request.redundancy)) {
        UsageError(L"the redundancy is a percentage from 0 to 50");
        return false;
    }
    request.selfExtracting = arguments.Has(L"--sfx");
    if (request.selfExtracting && !vnkx && request.type != format::zip) {
        UsageError(L"--sfx is for zip and vnkx archives");
        return false;
    }
    request.hasComment = arguments.Has(L"--comment");
    request.comment = arguments.Value(L"--comment");
    // The steps after the archive is made work on one archive.
    if (arguments.Has(L"--per-item") && (request.selfExtracting || request.hasComment)) {
        UsageError(L"--per-item makes several archives: --sfx and --comment take one");
        return false;
    }
    if (request.segmentSize > 0 && request.selfExtracting) {
        UsageError(L"a segmented archive cannot be self-extracting");
        return false;
    }
    request.mask = JoinedMasks(arguments.Values(L"--mask"));
    request.askPassword = arguments.Has(L"--ask-password");
    return true;
}

void ApplyContentOptions(const Arguments &arguments, const CreateRequest &request,
                         CNewArchiveContentList &content) {
    content.OneArchivePerItem = arguments.Has(L"--per-item");
    content.Timestamp = arguments.Has(L"--timestamp");
    content.MakeIndex = arguments.Has(L"--index");
    content.SegmentSize = request.segmentSize;
    if (!request.mask.empty()) {
        content.GetNewFilterObject();
        content.Filter->Mask = request.mask;
    }
}

// A vnkx method comes with its own default level and extent: a window or
// dictionary of another method may be out of its range, which the library
// can only narrow step by step down to, never onto, the least.
void ApplyMethodDefaults(DWORD method, CEngine &engine, CFormatOptionsRepository &options) {
    options.Engine = &engine;
    options.SetLevelAndExtentTable();
    options.Engine = nullptr;
    const LONG level = options.LevelAndExtentTable[method][kLevelDefault];
    const LONG extent = options.LevelAndExtentTable[method][kExtentDefault];
    if (level >= 0) options.VnkxCompressionLevel = static_cast<DWORD>(level);
    if (extent >= 0) options.CompressionMemory = static_cast<DWORD>(extent);
}

// The settings of the command line over the defaults. A vnkx setting of
// its own leaves the simple preset, which would ignore it.
void ApplyFormatOptions(const CreateRequest &request, CEngine &engine,
                        CFormatOptionsRepository &options) {
    if (request.type == format::zip) {
        if (request.hasLevel) options.ZipCompressionLevel = request.level;
        if (request.hasMethod) options.ZipCompressionMethod = request.method;
        return;
    }
    if (request.type != format::vnkx) return;
    if (request.hasLevel || request.hasMethod || request.hasRedundancy)
        options.VnkxUseSimple = false;
    if (request.hasMethod) {
        options.VnkxCompressionMethod = request.method;
        ApplyMethodDefaults(request.method, engine, options);
    }
    if (request.hasLevel) options.VnkxCompressionLevel = request.level;
    if (request.hasRedundancy) options.RedundancyLevel = request.redundancy;
}

// A new password typed twice without echo; an exit code, the failure or
// the interrupt told when none was typed.
int AskNewPassword(ArchiveSession &session, std::wstring &password) {
    CPassword prompt(session.ParentWindow(), session.Archive().name.c_str(), true, false);
    if (prompt.Run() && !prompt.password.empty()) {
        password = prompt.password;
        return kExitSuccess;
    }
    if (session.TakeInterruptOutsideRun()) return ArchiveSession::ReportInterrupted(L"create");
    PrintError(L"create: no password was typed (a terminal is needed to ask)");
    return kExitFailure;
}

// The comment of the new vnkx archive, set in a change of its own.
int SetComment(ArchiveSession &session, const std::wstring &comment) {
    CArchive &archive = session.Archive();
    if (archive.SetVnkxComment(comment.c_str())) return kExitSuccess;
    return session.ReportFailure(L"comment", archive.lastResult);
}

// The steps after the archive is made: its comment, the program made of
// it, and the names told.
int FinishCreated(ArchiveSession &session, const CreateRequest &request,
                  const CNewArchiveContentList &content) {
    CArchive &archive = session.Archive();
    int exitCode = kExitSuccess;
    if (request.hasComment) exitCode = SetComment(session, request.comment);
    if (exitCode == kExitSuccess && request.selfExtracting) {
        const std::wstring plain = archive.name;
        exitCode = MakeSelfExtracting(session);
        // The program replaces the archive it was made from.
        if (exitCode == kExitSuccess) DeleteFileW(plain.c_str());
    }
    if (exitCode != kExitSuccess) return exitCode;
    if (!content.OneArchivePerItem) Say(FormatW(L"%s\n", archive.name.c_str()));
    if (content.MakeIndex) Say(FormatW(L"index %s\n", content.IndexPath.c_str()));
    return kExitSuccess;
}

}  // namespace

int CreateCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments =
        ParseArguments(words,
                       {L"--index", L"--per-item", L"--timestamp", L"--delete-sources", L"--sfx",
                        L"--ask-password"},
                       {L"--format", L"--level", L"--method", L"--segment-size", L"--mask",
                        L"--redundancy", L"--comment", L"--password", L"--password-file"});
    CreateRequest request;
    if (!ReadRequest(arguments, request)) return kExitUsage;
    std::wstring folder;
    if (PrepareDestination(platform::ParentPath(request.archive), folder) != kExitSuccess)
        return kExitFailure;
    CNewArchiveContentList content;
    if (!CollectContent(request.paths, 0, content)) return kExitFailure;
    ApplyContentOptions(arguments, request, content);
    std::wstring password;
    if (!ResolvePassword(arguments, password)) return kExitFailure;

    CAppOptionsRepository appOptions;
    appOptions.DeleteSrc = arguments.Has(L"--delete-sources");
    // One archive an item goes into the folder of ARCHIVE, not beside each item.
    appOptions.CompressFolderMethod = 1;
    ArchiveSession session(request.archive);
    CArchive &archive = session.Archive();
    CFormatOptionsRepository formatOptions;
    ApplyFormatOptions(request, session.Engine(), formatOptions);
    if (request.askPassword) {
        if (const int asked = AskNewPassword(session, password); asked != kExitSuccess)
            return asked;
    }
    archive.appOptions = &appOptions;
    archive.formatOptions = &formatOptions;
    archive.formatType = request.type;
    archive.password = password;
    archive.encrypted = !password.empty();
    archive.noPrompts = true;
    int exitCode = session.Run(L"create", [&] { return archive.CreateFromList(&content); });
    if (exitCode == kExitSuccess) exitCode = FinishCreated(session, request, content);
    archive.appOptions = nullptr;
    archive.formatOptions = nullptr;
    return exitCode;
}

}  // namespace cli
