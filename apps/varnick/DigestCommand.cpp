// varnick digest: the MD5 and SHA-1 digests of a file through the library's
// digest helpers, and the digest files it writes beside the file.
#include <string>
#include <vector>

#include "CCrypto.h"
#include "CFSUtils.h"
#include "CliCommon.h"
#include "Commands.h"
#include "platform/Win32.h"

namespace cli {

namespace {

// One digest the command offers: its option, its label, how the library
// computes it and writes it, and the extension of its file.
struct Digest {
    const wchar_t *option;
    const wchar_t *label;
    const wchar_t *(*compute)(const wchar_t *path, HWND window);
    void (*write)(const wchar_t *path, const wchar_t *digest);
    const wchar_t *extension;
};

const Digest kDigests[] = {
    {L"--md5", L"MD5", CCrypto::ComputeMD5, CCrypto::WriteMD5ToFile, L".md5"},
    {L"--sha1", L"SHA1", CCrypto::ComputeSHA1, CCrypto::WriteSHA1ToFile, L".sha1"},
};

// Prints one digest of `path` and writes its file when asked; false when
// the file could not be written (told).
bool ShowDigest(const Digest &digest, const std::wstring &path, bool writeFile) {
    // The result is the library's static text: copy it before anything else runs.
    const std::wstring text = digest.compute(path.c_str(), nullptr);
    Print(FormatW(L"%-4s %s  %s\n", digest.label, text.c_str(), path.c_str()));
    if (!writeFile) return true;
    const std::wstring file = path + digest.extension;
    DeleteFileW(file.c_str());
    digest.write(file.c_str(), text.c_str());
    if (CFSUtils::FileExists(file.c_str())) return true;
    PrintError(FormatW(L"digest %s: cannot write %s", path.c_str(), file.c_str()));
    return false;
}

}  // namespace

int DigestCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments = ParseArguments(words, {L"--md5", L"--sha1", L"--write"}, {});
    if (!arguments.bad.empty())
        return UsageError(FormatW(L"unknown option '%s'", arguments.bad.c_str()));
    if (arguments.positional.size() != 1) return UsageError();
    const std::wstring &path = arguments.positional[0];
    if (CFSUtils::FolderExists(path.c_str())) {
        PrintError(FormatW(L"digest %s: a folder has no digest", path.c_str()));
        return kExitFailure;
    }
    // The library takes a file it cannot open as empty; a user means a typo.
    if (!CFSUtils::FileExists(path.c_str())) {
        PrintError(FormatW(L"digest %s: no such file", path.c_str()));
        return kExitFailure;
    }
    const bool chosen = arguments.Has(L"--md5") || arguments.Has(L"--sha1");
    bool written = true;
    for (const Digest &digest : kDigests) {
        if (chosen && !arguments.Has(digest.option)) continue;
        written = ShowDigest(digest, path, arguments.Has(L"--write")) && written;
    }
    return written ? kExitSuccess : kExitFailure;
}

}  // namespace cli
