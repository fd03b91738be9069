#include "service/command_line.h"

#include "platform/log.h"

namespace zaltor::service {
namespace {

// Compares as _wcsicmp does in the default locale: only A-Z fold to lower case.
bool equals_ascii_nocase(const std::string& a, const char* b) {
  size_t i = 0;
  for (; i < a.size() && b[i] != '\0'; ++i) {
    auto fold = [](char c) {
      return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    };
    if (fold(a[i]) != fold(b[i])) return false;
  }
  return i == a.size() && b[i] == '\0';
}

}  // namespace

bool runs_under_service_manager(const std::vector<std::string>& args) {
  return !(args.size() >= 2 && !args[1].empty() && (args[1][0] == '-' || args[1][0] == '/'));
}

int run_command_line(const std::vector<std::string>& args, platform::Platform& platform,
                     const ServiceHooks& hooks) {
  if (!runs_under_service_manager(args)) {
    const std::string word = args[1].substr(1);
    if (equals_ascii_nocase(word, "install")) return install_service(platform);
    if (equals_ascii_nocase(word, "remove")) return remove_service(platform);
    if (equals_ascii_nocase(word, "console")) {
      return run_console(args.size() >= 3 ? args[2] : std::string(), platform, hooks);
    }
    platform.console->print("Invalid arguments.");
    return 1;
  }
  return run_service(platform, hooks);
}

int run_service(platform::Platform& platform, const ServiceHooks& hooks) {
  {
    CMultiAntennaSvc svc("", "", platform, hooks);
    const uint32_t error = CServiceBase::Run(svc);
    if (error != 0) platform.console->print("Service failed to run w/err 0x%08x\n", error);
  }
  // A run under the manager always ends like an unknown word.
  platform.console->print("Invalid arguments.");
  return 1;
}

int run_console(const std::string& console_name, platform::Platform& platform,
                const ServiceHooks& hooks) {
  CMultiAntennaSvc svc("", console_name, platform, hooks);
  svc.set_console(true);
  svc.WriteLogEntry("Starting Rpc Server..\n", kLogInfo);
  const uint32_t result = svc.run_body();
  if (result != 0) {
    platform.console->print("RpcServerConnect returned: 0x%x\n", result);
  }
  // The exit code is the run body's result. The service object is destroyed on the way
  // out in both cases, which only unregisters the event provider a little earlier.
  return static_cast<int>(result);
}

}  // namespace zaltor::service
