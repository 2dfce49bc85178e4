// Shortcuts. A Windows shell link has two POSIX counterparts: a symbolic
// link, and a ".desktop" file of Type=Link (a URL) or Type=Application (a
// program with arguments, as used for start-up entries and desktop
// launchers).
#pragma once

#include <string>

namespace platform {

// What a shortcut points at: the target of a symbolic link (absolute,
// through any chain of links), the URL of a Type=Link desktop file (a
// "file:" URL as a path), or the program of a Type=Application one. Any
// other path comes back unchanged.
std::wstring ResolveShortcut(const std::wstring &path);

// Writes a Type=Link desktop file at `linkPath` pointing at `target`, a path
// or a URL. Replaces an existing file. False on failure.
bool CreateLinkDesktopFile(const std::wstring &linkPath, const std::wstring &target,
                           const std::wstring &name, const std::wstring &description);

// Writes a Type=Application desktop file that starts `program` with
// `arguments`, a command line in the Windows form. Replaces an existing file.
bool CreateApplicationDesktopFile(const std::wstring &path, const std::wstring &program,
                                  const std::wstring &arguments, const std::wstring &name,
                                  const std::wstring &description);

// A path as the path part of a URL: UTF-8, every byte but letters, digits,
// "/-_.~" percent-encoded. Decoding takes "%XX" back and leaves other text.
std::string EncodeUrlPath(const std::wstring &path);
std::wstring DecodeUrlPath(const std::string &text);

}  // namespace platform
