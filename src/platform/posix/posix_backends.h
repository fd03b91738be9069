#pragma once
// The Linux backends of the operating-system seams: console, thread pool, system log,
// systemd, files, INI profiles, cryptography (OpenSSL) and the registry substitute.

#include <memory>
#include <string>

#include "platform/clock.h"
#include "platform/crypto.h"
#include "platform/event_trace.h"
#include "platform/file_system.h"
#include "platform/log.h"
#include "platform/profile.h"
#include "platform/registry.h"
#include "platform/service_manager.h"
#include "platform/thread_pool.h"

namespace zaltor::platform {

// Standard output, written through at once (every text is flushed).
std::unique_ptr<Console> make_stdout_console();

// Work items run on plain threads that the clock starts, one per submission. Threads that
// are still running when the pool is destroyed are left to end with the process (the run
// body listens for the life of the process).
std::unique_ptr<ThreadPool> make_thread_pool(Clock& clock);

// The system log as the event trace sink. When `journal_socket` exists each event goes to
// journald over its native protocol with MESSAGE (the line without its line end),
// PRIORITY from the event level (1 crit, 2 err, 3 warning, 4 info, 5 debug),
// SYSLOG_IDENTIFIER, ZALTOR_EVENT_ID (the descriptor's id), ZALTOR_EVENT_LEVEL and
// ZALTOR_PROVIDER_ID (the provider's GUID); otherwise it goes to syslog(3) with the same
// priority. Writing to an unknown handle answers 6 (invalid handle).
inline constexpr const char* kJournalSocket = "/run/systemd/journal/socket";
std::unique_ptr<EventTrace> make_system_log_event_trace(
    const std::string& identifier, const std::string& journal_socket = kJournalSocket);

// The service control manager on systemd.
//
// Registration writes the unit "<name>.service" into `unit_dir` (Type=notify, the
// description as Description=, the binary as ExecStart=), reloads systemd and, for
// automatic start, enables the unit; start, stop, state queries, disabling and reloading go
// through `systemctl` (found on PATH). Unit states map to service states: activating =
// start pending, active or reloading = running, deactivating = stop pending, inactive or
// failed = stopped. systemctl failures map to Win32 codes by their message: access denied
// 5, unit not found 1060, anything else 1627; systemctl that cannot be run gives 1722.
//
// The dispatcher speaks the notify protocol over `notify_socket` (a path, or "@name" for
// the abstract namespace): without one it fails with 1063 as a hand-started service does
// on Windows. It runs the service entry point on its own thread, sends every status report
// (READY=1 for running, STOPPING=1 for stop pending, and always STATUS= with the state,
// the checkpoint and the exit code), delivers SIGTERM as the stop control on the calling
// thread and returns when the service has reported that it stopped.
struct SystemdOptions {
  std::string unit_dir = "/etc/systemd/system";
  std::string notify_socket;
};
// ZALTOR_SYSTEMD_UNIT_DIR overrides the unit directory (for tests); NOTIFY_SOCKET is set
// by systemd for a Type=notify service.
SystemdOptions systemd_options_from_environment();
std::unique_ptr<ServiceManager> make_systemd_service_manager(Clock& clock, SystemdOptions options);

// Files on a POSIX file system (text mode writes line feeds as they are).
std::unique_ptr<FileSystem> make_posix_file_system();
std::unique_ptr<ProfileReader> make_ini_profile_reader();
// How many times the INI readers of this process have parsed a file (tests and benchmarks
// see the cache at work by it).
uint64_t ini_files_parsed();
std::unique_ptr<Crypto> make_openssl_crypto();
// The registry substitute rooted at ZALTOR_STATE_DIR (default /var/lib/zaltor-multiantenna).
std::unique_ptr<Registry> make_state_dir_registry();
// The same rooted at `root`.
std::unique_ptr<Registry> make_state_dir_registry(const std::string& root);

}  // namespace zaltor::platform
