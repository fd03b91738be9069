#pragma once
// The Windows backends of the operating-system seams: console, thread pool, event tracing,
// service control manager, files, private-profile INI files, cryptography (CNG) and the
// registry, and the control interface's RPC runtime. Each calls the real Win32 functions;
// Windows types stay inside this folder.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/crypto.h"
#include "platform/event_trace.h"
#include "platform/file_system.h"
#include "platform/log.h"
#include "platform/profile.h"
#include "platform/registry.h"
#include "platform/rpc_runtime.h"
#include "platform/service_manager.h"
#include "platform/thread_pool.h"

namespace zaltor::platform {

// Standard output. On a console the UTF-8 text is written as UTF-16 with WriteConsoleW, so
// that every character shows; redirected to a file or a pipe the UTF-8 bytes are written
// as they are (line feeds stay line feeds, as on Linux).
std::unique_ptr<Console> make_win32_console();

// Work items of the process's default thread pool (CreateThreadpoolWork,
// SubmitThreadpoolWork). Each callback runs with its pool thread attached to `clock`, so
// that it takes part in a simulated clock's schedule like a thread the clock started.
// Items whose callbacks still run when the pool is destroyed are left to end with the
// process (the run body listens for the life of the process).
std::unique_ptr<ThreadPool> make_win32_thread_pool(Clock& clock);

// Event Tracing for Windows: EventRegister without an enable callback, EventWrite with the
// descriptor and one data item (the line as zero-terminated UTF-16, terminator included),
// EventUnregister.
std::unique_ptr<EventTrace> make_etw_event_trace();

// The service control manager. The dispatcher runs through static trampolines that turn
// the wide argument vector into UTF-8 and call the portable service entry point and control
// handler (one service per process, as the product has).
std::unique_ptr<ServiceManager> make_scm_service_manager();

// Files: the program directory from GetModuleFileNameW and PathCchRemoveFileSpec (260
// characters), PathFileExistsW, DeleteFileW, and the C runtime's _wfopen with "rb", "w",
// "a+, ccs=UTF-8" and "r, ccs=UTF-8" (text mode: line feeds are written as CR LF).
std::unique_ptr<FileSystem> make_win32_file_system();

// GetPrivateProfileIntW and GetPrivateProfileStringW.
std::unique_ptr<ProfileReader> make_private_profile_reader();

// CNG (BCrypt) with the algorithm named by the caller ("AES").
std::unique_ptr<Crypto> make_cng_crypto();

// The local machine's registry (RegOpenKeyExW, RegGetValueW, RegSetValueExW).
std::unique_ptr<Registry> make_win32_registry();

// The control interface on the Windows RPC runtime (ncalrpc, the stubs generated from
// src/rpc/zaltor_antenna.idl). DeriveCapabilitySidsFromName is looked up in kernelbase.dll
// at run time; where it is missing the capability SIDs are derived the documented way
// (capability_sids.h). Calls of the procedures run attached to `clock`.
std::unique_ptr<RpcRuntime> make_win32_rpc_runtime(Clock& clock);

// The service key's "Environment" value (REG_MULTI_SZ of "NAME=value" strings under
// HKLM\SYSTEM\CurrentControlSet\Services\<service_name>), which Windows' service manager
// applies to the service process. Writing answers the registry's error (2: no such key).
uint32_t write_service_environment(const std::string& service_name,
                                   const std::vector<std::string>& entries);
// Sets each ZALTOR_* variable of that value that the process does not have already (set
// and not empty), for service managers that do not apply the value themselves (Wine's).
// 0, or the registry's error when there is no such value (2).
uint32_t apply_service_environment(const std::string& service_name);

}  // namespace zaltor::platform
