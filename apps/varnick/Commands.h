// The subcommands that work on archives; each takes the words after its name.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "CliCommon.h"

class CArchiveItem;

namespace cli {

int ListCommand(const std::vector<std::wstring> &words);
int InfoCommand(const std::vector<std::wstring> &words);
int CreateCommand(const std::vector<std::wstring> &words);
int ExpandCommand(const std::vector<std::wstring> &words);
int VerifyCommand(const std::vector<std::wstring> &words);
int AddCommand(const std::vector<std::wstring> &words);
int ExtractCommand(const std::vector<std::wstring> &words);
int RemoveCommand(const std::vector<std::wstring> &words);
int RenameCommand(const std::vector<std::wstring> &words);
int MkdirCommand(const std::vector<std::wstring> &words);
int CommentCommand(const std::vector<std::wstring> &words);
int RecoverCommand(const std::vector<std::wstring> &words);
int EncryptCommand(const std::vector<std::wstring> &words);
int DecryptCommand(const std::vector<std::wstring> &words);
int ConvertCommand(const std::vector<std::wstring> &words);
int SfxCommand(const std::vector<std::wstring> &words);
int DigestCommand(const std::vector<std::wstring> &words);
int FormatsCommand(const std::vector<std::wstring> &words);
int JobCommand(const std::vector<std::wstring> &words);

// What the commands on chosen items share (EditCommands.cpp).
constexpr std::size_t kAnyCount = static_cast<std::size_t>(-1);
// True when the command line has no unknown option and `least` to `most`
// words; otherwise the usage error is told and `exitCode` set.
bool CheckWords(const Arguments &arguments, std::size_t least, std::size_t most, int &exitCode);
// OpenListed for ARCHIVE followed by up to `most` - 1 other words.
std::unique_ptr<ArchiveSession> OpenWithItems(const Arguments &arguments, std::size_t least,
                                              std::size_t most, int &exitCode);
// An item as the user wrote it ("/docs/", "docs") as the archive names it ("docs").
std::wstring ItemPathOf(const std::wstring &written);
// The row of the archive's listing for an item, file or folder; null for none.
const CArchiveItem *FindItem(CArchive &archive, const std::wstring &written);
// ARCHIVE ITEM... opened, with the items as the library takes them; null
// (told, `exitCode` set) also when the archive does not hold one of them.
std::unique_ptr<ArchiveSession> OpenSelected(const Arguments &arguments,
                                             std::vector<std::wstring> &items, int &exitCode);
// The folder `written` (the current one when empty) made absolute and
// created; kExitFailure when it cannot be made or written to (told).
int PrepareDestination(const std::wstring &written, std::wstring &folder);

}  // namespace cli
