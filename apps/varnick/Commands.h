// The subcommands that work on archives; each takes the words after its name.
#pragma once

#include <string>
#include <vector>

namespace cli {

int ListCommand(const std::vector<std::wstring> &words);
int InfoCommand(const std::vector<std::wstring> &words);
int CreateCommand(const std::vector<std::wstring> &words);
int ExpandCommand(const std::vector<std::wstring> &words);
int VerifyCommand(const std::vector<std::wstring> &words);

}  // namespace cli
