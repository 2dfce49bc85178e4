// Self-extracting archives: the stub program `varnick-sfx` with an archive
// appended. The stub lies beside libVarnickEngine.so; run, it finds where
// its own ELF image ends and expands what follows.
//
// A writer of a format that keeps its offsets relative to its own start
// (vnkx, vnk) makes its output self-extracting with MakeSelfExtracting after
// the archive is complete; zip's offsets are shifted by the stub's size here,
// so every zip reader reads the result without complaint.
#pragma once

#include <cstdint>
#include <string>

#include "Result.h"

namespace engine::sfx {

// The stub's path (beside the engine library); empty when it is missing.
std::string StubPath();

// Writes the stub followed by `archive` (of format `formatId`) into
// `output`, executable (0755). kEngineSfxModuleMissing without a stub,
// kEngineSfxUnsupported for a format that cannot run behind one.
Result WriteSelfExtracting(const std::string &archive, const std::string &formatId,
                           const std::string &output);

// Turns a finished archive into a self-extracting one under the same name
// (through a temporary file beside it, so a failure leaves it as it was).
Result MakeSelfExtracting(const std::string &archive, const std::string &formatId);

// AddSelfExtractingToArchive: the archive's format is told by its content;
// the result is written under SelfExtractingName() and named in `written`.
Result AddSelfExtracting(const std::string &archive, std::string &written);

// Whether a format runs behind the stub (zip, vnkx, vnk).
bool Supports(const std::string &formatId);

// The name AddSelfExtractingToArchive gives its output: the archive's name
// without its extension plus ".sea", or "name_1.sea", "name_2.sea", ... when
// taken.
std::string SelfExtractingName(const std::string &archive);

// Where an archive appended to an ELF program starts: the end of the ELF
// image (headers, segments and sections). 0 when `fd` is no ELF file.
std::uint64_t ElfImageEnd(int fd);

}  // namespace engine::sfx
