#include "support/TerminalCapture.h"

#include <fcntl.h>
#include <unistd.h>

#include "support/TempHome.h"

namespace testsupport {

namespace {

int OpenEmptyInput() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

int OpenOutput(const std::filesystem::path &path) {
    return open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
}

}  // namespace

TerminalCapture::TerminalCapture(const std::filesystem::path &output)
    : path_(output),
      input_(OpenEmptyInput()),
      output_(OpenOutput(output)),
      host_(input_, output_),
      installed_(&host_) {}

TerminalCapture::~TerminalCapture() {
    if (input_ >= 0) close(input_);
    if (output_ >= 0) close(output_);
}

std::string TerminalCapture::Written() const { return ReadBytes(path_); }

}  // namespace testsupport
