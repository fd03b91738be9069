#include <cstdio>

#include "platform/posix/posix_backends.h"

namespace zaltor::platform {
namespace {

class StdoutConsole final : public Console {
 public:
  void write(std::string_view text) override {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
  }
};

}  // namespace

std::unique_ptr<Console> make_stdout_console() {
  return std::make_unique<StdoutConsole>();
}

}  // namespace zaltor::platform
