// varnick-engine: the engine's developer program. It drives the engine's C
// surface directly, the way the benchmark times the engine: create, expand,
// test and list archives, nothing of the library above the engine involved.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ResultText.h"
#include "VarnickEngine.h"
#include "archive/EngineHandles.h"
#include "platform/WideText.h"

namespace {

using varnickengine::DescribeResult;

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

void PrintError(const std::string &text) {
    std::fputs(("varnick-engine: " + text + "\n").c_str(), stderr);
}

int Usage(FILE *to) {
    std::fputs(
        "usage: varnick-engine a [OPTIONS] ARCHIVE PATH...   create ARCHIVE from the PATHs\n"
        "       varnick-engine x [OPTIONS] ARCHIVE DEST      expand ARCHIVE into DEST\n"
        "       varnick-engine t [OPTIONS] ARCHIVE           test every item of ARCHIVE\n"
        "       varnick-engine l [OPTIONS] ARCHIVE           list ARCHIVE\n"
        "\n"
        "options:\n"
        "  --format ID       format id (zip, sevenz, vnkx, vnk5, tar, gz, ...); by default\n"
        "                    from the archive's extension (.tgz and .tar.gz: tar with gz)\n"
        "  --level N         \"compressionLevel\" of the format\n"
        "  --method N        \"compMethod\" of the format\n"
        "  --extent N        \"compExtent\" of the format\n"
        "  --degree N        \"compressionDegree\" of the format\n"
        "  --threads, --no-threads\n"
        "                    \"useThreads\" (on by default)\n"
        "  --password P      password for creating, expanding, testing and listing\n",
        to);
    return to == stderr ? kExitUsage : kExitSuccess;
}

// ---------------------------------------------------------------------------
// Command line

struct Options {
    std::string command;
    std::string formatId;
    std::optional<int> level;
    std::optional<int> method;
    std::optional<int> extent;
    std::optional<int> degree;
    std::optional<bool> threads;
    std::optional<std::string> password;
    std::vector<std::string> operands;
};

bool ParseNumber(const std::string &text, int &value) {
    char *end = nullptr;
    errno = 0;
    long parsed = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || parsed < INT32_MIN || parsed > INT32_MAX)
        return false;
    value = static_cast<int>(parsed);
    return true;
}

// Fills `options` from argv; false (with a message printed) on a usage error.
bool ParseArguments(int argc, char **argv, Options &options) {
    options.command = argv[1];
    const std::vector<std::pair<std::string_view, std::optional<int> Options::*>> numeric = {
        {"--level", &Options::level},
        {"--method", &Options::method},
        {"--extent", &Options::extent},
        {"--degree", &Options::degree},
    };
    for (int i = 2; i < argc; ++i) {
        std::string argument = argv[i];
        auto takeValue = [&](std::string &value) {
            if (i + 1 >= argc) {
                PrintError("option " + argument + " needs a value");
                return false;
            }
            value = argv[++i];
            return true;
        };
        bool matched = false;
        for (const auto &[name, member] : numeric) {
            if (argument != name) continue;
            std::string value;
            int number = 0;
            if (!takeValue(value)) return false;
            if (!ParseNumber(value, number)) {
                PrintError("option " + argument + " needs a number, not '" + value + "'");
                return false;
            }
            options.*member = number;
            matched = true;
        }
        if (matched) continue;
        if (argument == "--format") {
            if (!takeValue(options.formatId)) return false;
        } else if (argument == "--password") {
            std::string value;
            if (!takeValue(value)) return false;
            options.password = value;
        } else if (argument == "--threads" || argument == "--no-threads") {
            options.threads = argument == "--threads";
        } else if (argument == "--") {
            for (++i; i < argc; ++i) options.operands.push_back(argv[i]);
        } else if (argument.size() > 1 && argument[0] == '-') {
            PrintError("unknown option '" + argument + "'");
            return false;
        } else {
            options.operands.push_back(argument);
        }
    }
    return true;
}

// ---------------------------------------------------------------------------
// Handles of the engine, given back when they go out of scope

using ScopedSession = archive::EngineHandle<OpaqueEngineObject *, CloseVarnickEngine>;
using archive::ScopedArchive;
using archive::ScopedArchiveIterator;
using archive::ScopedArchiveObject;
using archive::ScopedFSObject;
using archive::ScopedFSObjectList;
using archive::ScopedStringRef;

// A failed call of the engine: which one, and what it answered.
struct Failure {
    std::string call;
    EngineResult result = kEngineOK;
};

#define ENGINE_CALL(call)                      \
    do {                                       \
        EngineResult result_ = (call);         \
        if (result_ != kEngineOK) {            \
            failure = Failure{#call, result_}; \
            return false;                      \
        }                                      \
    } while (false)

std::wstring AbsolutePath(const std::string &path) {
    std::filesystem::path absolute = std::filesystem::absolute(path).lexically_normal();
    std::string text = absolute.string();
    // A source named "folder/" is stored as "folder", not as an empty name.
    while (text.size() > 1 && text.back() == '/') text.pop_back();
    return platform::FromUtf8(text);
}

bool MakeFSObject(const std::string &path, ScopedFSObject &object, Failure &failure) {
    ENGINE_CALL(NewFSObjectFromUnicodePath(AbsolutePath(path).c_str(), object.Out()));
    return true;
}

bool MakePassword(const Options &options, ScopedStringRef &password, Failure &failure) {
    if (!options.password) return true;
    ENGINE_CALL(NewStringRefFromUnicodeString(platform::FromUtf8(*options.password).c_str(),
                                              password.Out()));
    return true;
}

// ---------------------------------------------------------------------------
// The format of a new archive

struct FormatChoice {
    std::string id;
    std::string postEncoding;  // for tar: the stream compressor around it
};

// Longer suffixes first, so ".tar.gz" wins over ".gz".
FormatChoice FormatFromExtension(const std::string &archive) {
    static const struct {
        const wchar_t *suffix;
        const char *id;
        const char *postEncoding;
    } kSuffixes[] = {
        {L".tar.gz", "tar", "gz"},   {L".tar.bz2", "tar", "bz2"}, {L".tar.z", "tar", "compress"},
        {L".tgz", "tar", "gz"},      {L".tbz2", "tar", "bz2"},    {L".tbz", "tar", "bz2"},
        {L".tz", "tar", "compress"}, {L".tar", "tar", ""},        {L".cbt", "tar", ""},
        {L".zip", "zip", ""},        {L".cbz", "zip", ""},        {L".7z", "sevenz", ""},
        {L".vnkx", "vnkx", ""},      {L".vnk", "vnk5", ""},       {L".pf", "pf", ""},
        {L".gz", "gz", ""},          {L".bz2", "bz2", ""},        {L".z", "compress", ""},
    };
    std::wstring name = platform::FromUtf8(archive);
    for (const auto &entry : kSuffixes)
        if (platform::EndsWithNoCase(name, entry.suffix)) return {entry.id, entry.postEncoding};
    return {};
}

bool ChooseFormat(const Options &options, const std::string &archive, FormatChoice &choice) {
    FormatChoice byName = FormatFromExtension(archive);
    choice.id = options.formatId.empty() ? byName.id : options.formatId;
    if (choice.id == byName.id) choice.postEncoding = byName.postEncoding;
    if (!choice.id.empty()) return true;
    PrintError("cannot tell the format of '" + archive + "' from its name: give --format ID");
    return false;
}

// ---------------------------------------------------------------------------
// Session settings

bool ApplyEngineSettings(const Options &options, OpaqueEngineObject *engine, Failure &failure) {
    if (options.threads)
        ENGINE_CALL(SetEngineBooleanProperty(engine, kEnginePropUseThreads, *options.threads));
    // Expanding again into the same folder replaces what the last run left.
    ENGINE_CALL(
        SetEngineIntegerProperty(engine, kEnginePropConflictResolution, kResolutionReplace));
    return true;
}

bool ApplyFormatSettings(const Options &options, OpaqueEngineObject *engine,
                         const FormatChoice &format, Failure &failure) {
    const char *id = format.id.c_str();
    if (!format.postEncoding.empty())
        ENGINE_CALL(SetEngineFormatIDProperty(engine, kEnginePropPostEncodingFormat,
                                              format.postEncoding.c_str()));
    // The method first: the ranges of level and extent are the method's.
    if (options.method)
        ENGINE_CALL(SetFormatIntegerProperty(engine, id, kFormatPropCompMethod, *options.method));
    if (options.level)
        ENGINE_CALL(
            SetFormatIntegerProperty(engine, id, kFormatPropCompressionLevel, *options.level));
    if (options.extent)
        ENGINE_CALL(SetFormatIntegerProperty(engine, id, kFormatPropCompExtent, *options.extent));
    if (options.degree)
        ENGINE_CALL(
            SetFormatIntegerProperty(engine, id, kFormatPropCompressionDegree, *options.degree));
    return true;
}

// ---------------------------------------------------------------------------
// Commands

bool Create(const Options &options, OpaqueEngineObject *engine, Failure &failure) {
    const std::string &archive = options.operands[0];
    FormatChoice format;
    if (!ChooseFormat(options, archive, format)) {
        failure.result = kEngineInvalidParameter;
        failure.call.clear();
        return false;
    }
    if (!ApplyFormatSettings(options, engine, format, failure)) return false;

    ScopedFSObjectList sources;
    ENGINE_CALL(NewFSObjectList(engine, sources.Out()));
    for (std::size_t i = 1; i < options.operands.size(); ++i) {
        ScopedFSObject source;
        if (!MakeFSObject(options.operands[i], source, failure)) return false;
        ENGINE_CALL(AddFSObjectToFSObjectList(engine, source.Get(), sources.Get()));
    }
    ScopedFSObject output;
    ScopedFSObject written;
    ScopedStringRef password;
    if (!MakeFSObject(archive, output, failure) || !MakePassword(options, password, failure))
        return false;
    ENGINE_CALL(ArchiveFSObjectList(engine, format.id.c_str(), sources.Get(), output.Get(),
                                    written.Out(), password.Get()));
    return true;
}

bool Expand(const Options &options, OpaqueEngineObject *engine, Failure &failure) {
    std::error_code ignored;
    std::filesystem::create_directories(options.operands[1], ignored);
    ScopedFSObject archive;
    ScopedFSObject destination;
    ScopedFSObjectList expanded;
    ScopedStringRef password;
    if (!MakeFSObject(options.operands[0], archive, failure) ||
        !MakeFSObject(options.operands[1], destination, failure) ||
        !MakePassword(options, password, failure))
        return false;
    ENGINE_CALL(ExpandOrDecodeFile(engine, archive.Get(), destination.Get(), expanded.Out(),
                                   password.Get()));
    return true;
}

bool Test(const Options &options, OpaqueEngineObject *engine, Failure &failure) {
    ScopedFSObject archive;
    ScopedStringRef password;
    if (!MakeFSObject(options.operands[0], archive, failure) ||
        !MakePassword(options, password, failure))
        return false;
    ENGINE_CALL(VerifyArchive(engine, archive.Get(), password.Get()));
    std::puts("ok");
    return true;
}

struct ListTotals {
    std::uint64_t files = 0;
    std::uint64_t folders = 0;
    std::int64_t expanded = 0;
    std::int64_t compressed = 0;
};

std::int64_t SizeOf(ArchiveObject item, const char *property) {
    std::int64_t value = 0;
    if (GetArchiveObjectIntegerProperty(item, property, &value) != kEngineOK) return -1;
    return value;
}

void PrintItem(ArchiveObject item, const std::wstring &path, bool folder, ListTotals &totals) {
    std::int64_t expanded = SizeOf(item, kItemPropExpandedSize);
    std::int64_t compressed = SizeOf(item, kItemPropCompressedSize);
    if (folder) {
        ++totals.folders;
    } else {
        ++totals.files;
        totals.expanded += expanded > 0 ? expanded : 0;
        totals.compressed += compressed > 0 ? compressed : 0;
    }
    auto column = [](std::int64_t size) {
        return size < 0 ? std::string("-") : std::to_string(size);
    };
    std::printf("%14s %14s  %s%s\n", folder ? "" : column(expanded).c_str(),
                folder ? "" : column(compressed).c_str(), platform::ToUtf8(path).c_str(),
                folder ? "/" : "");
}

bool ListFolder(ArchiveObject folder, const std::wstring &prefix, ListTotals &totals,
                Failure &failure) {
    ScopedArchiveIterator walk;
    ENGINE_CALL(NewArchiveIterator(folder, walk.Out()));
    for (;;) {
        ScopedArchiveObject item;
        EngineResult next = AcquireNextArchiveObject(walk.Get(), item.Out());
        if (next == kEngineNoMoreObjects) return true;
        ENGINE_CALL(next);
        ScopedStringRef name;
        bool isFolder = false;
        ENGINE_CALL(AcquireArchiveObjectName(item.Get(), name.Out()));
        ENGINE_CALL(GetArchiveObjectIsFolder(item.Get(), &isFolder));
        std::wstring path = prefix + GetUnicodeStringFromStringRef(name.Get());
        PrintItem(item.Get(), path, isFolder, totals);
        if (isFolder && !ListFolder(item.Get(), path + L"/", totals, failure)) return false;
    }
}

bool List(const Options &options, OpaqueEngineObject *engine, Failure &failure) {
    ScopedFSObject file;
    ScopedArchive archive;
    ScopedArchiveObject root;
    if (!MakeFSObject(options.operands[0], file, failure)) return false;
    ENGINE_CALL(AcquireArchive(engine, file.Get(), archive.Out()));
    if (options.password) {
        ScopedStringRef password;
        if (!MakePassword(options, password, failure)) return false;
        ENGINE_CALL(OpenEncryptedArchive(engine, archive.Get(), kEngineAccessRead, password.Get()));
    } else {
        ENGINE_CALL(OpenArchive(engine, archive.Get(), kEngineAccessRead));
    }
    ENGINE_CALL(AcquireRootArchiveObject(archive.Get(), root.Out()));
    ListTotals totals;
    if (!ListFolder(root.Get(), L"", totals, failure)) return false;
    std::printf("%14lld %14lld  %llu files, %llu folders\n",
                static_cast<long long>(totals.expanded), static_cast<long long>(totals.compressed),
                static_cast<unsigned long long>(totals.files),
                static_cast<unsigned long long>(totals.folders));
    ENGINE_CALL(CloseArchive(archive.Get()));
    return true;
}

#undef ENGINE_CALL

struct Command {
    std::string_view name;
    std::size_t leastOperands;
    std::size_t mostOperands;  // 0: no limit
    bool (*run)(const Options &, OpaqueEngineObject *, Failure &);
};

constexpr Command kCommands[] = {
    {"a", 2, 0, Create},
    {"x", 2, 2, Expand},
    {"t", 1, 1, Test},
    {"l", 1, 1, List},
};

int Run(const Command &command, const Options &options) {
    ScopedSession engine;
    EngineResult opened = OpenVarnickEngine(engine.Out(), "varnick-engine");
    Failure failure;
    if (opened != kEngineOK) {
        failure = Failure{"OpenVarnickEngine", opened};
    } else if (ApplyEngineSettings(options, engine.Get(), failure) &&
               command.run(options, engine.Get(), failure)) {
        return kExitSuccess;
    }
    if (failure.call.empty()) return kExitFailure;  // already reported
    std::string call = failure.call.substr(0, failure.call.find('('));
    PrintError(call + " failed: " + platform::ToUtf8(DescribeResult(failure.result)));
    return kExitFailure;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) return Usage(stderr);
    std::string_view first = argv[1];
    if (first == "--help" || first == "-h") return Usage(stdout);
    Options options;
    if (!ParseArguments(argc, argv, options)) return kExitUsage;
    for (const Command &command : kCommands) {
        if (command.name != options.command) continue;
        std::size_t count = options.operands.size();
        if (count < command.leastOperands ||
            (command.mostOperands != 0 && count > command.mostOperands)) {
            PrintError("wrong number of operands for '" + options.command + "'");
            return Usage(stderr);
        }
        return Run(command, options);
    }
    PrintError("unknown command '" + options.command + "'");
    return Usage(stderr);
}
