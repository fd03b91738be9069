#pragma once
// The command line of the service executable: "-install", "-remove", "-console [name]"
// (the switch character "-" or "/", the word without regard to ASCII case), and without a
// switch the run under the service control manager.

#include <string>
#include <vector>

#include "platform/platform.h"
#include "service/multi_antenna_svc.h"

namespace zaltor::service {

// `args` is the whole argument vector in UTF-8, the program name first. Returns the
// process's exit code: 0 for install and remove (their failures are only printed), 0 or the
// run body's error for console, 1 for an unknown word and for every run under the manager.
int run_command_line(const std::vector<std::string>& args, platform::Platform& platform,
                     const ServiceHooks& hooks = {});

// True when `args` take the path of a run under the service control manager (no switch
// word): the process is then the service that the manager started.
bool runs_under_service_manager(const std::vector<std::string>& args);

// The steps behind the words; each prints its own messages.
int install_service(platform::Platform& platform);
int remove_service(platform::Platform& platform);
int run_console(const std::string& console_name, platform::Platform& platform,
                const ServiceHooks& hooks);
int run_service(platform::Platform& platform, const ServiceHooks& hooks);

}  // namespace zaltor::service
