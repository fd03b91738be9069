// Process entry point: the command line chooses install, remove, console or the run under
// the service control manager.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/select/backends.h"
#include "service/command_line.h"
#include "service/service_application.h"

namespace {

int run(const std::vector<std::string>& args) {
  std::string error;
  // Only the service itself takes the settings registered with it: the other runs have the
  // environment of the shell they were started from.
  auto backends =
      zaltor::platform::make_backends(error, zaltor::service::runs_under_service_manager(args));
  if (!backends) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  zaltor::service::ServiceApplication app(backends->platform());
  const int code = zaltor::service::run_command_line(args, backends->platform(), app.hooks());
  // The worker's threads may still run (a service ends while its loops sleep): end the
  // process as a stopped service ends, without tearing down what they still use.
  std::fflush(nullptr);
  std::_Exit(code);
}

}  // namespace

#ifdef _WIN32
#include <windows.h>

int wmain(int argc, wchar_t** argv) {
  std::vector<std::string> args;
  for (int i = 0; i < argc; ++i) {
    const int n = WideCharToMultiByte(CP_UTF8, 0, argv[i], -1, nullptr, 0, nullptr, nullptr);
    std::string arg(n > 0 ? static_cast<size_t>(n) : 1, '\0');
    if (n > 0) WideCharToMultiByte(CP_UTF8, 0, argv[i], -1, arg.data(), n, nullptr, nullptr);
    arg.resize(arg.size() - 1);  // the terminator
    args.push_back(std::move(arg));
  }
  return run(args);
}
#else
int main(int argc, char** argv) {
  return run(std::vector<std::string>(argv, argv + argc));
}
#endif
