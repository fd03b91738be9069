#pragma once
// The set of backends the service runs on. It is assembled in one place at start-up
// (platform/select) and handed down; the engine receives it, it never looks for one.

namespace zaltor {
class Console;
}

namespace zaltor::platform {

class Clock;
class ControlDevice;
class BoardQuery;
class DeviceLists;
class Wlan;
class Counters;
class SystemEvents;
class FileSystem;
class ProfileReader;
class Crypto;
class Registry;
class ServiceManager;
class ThreadPool;
class EventTrace;
class RpcRuntime;

struct Platform {
  Clock* clock = nullptr;
  Console* console = nullptr;
  // The notebook's hardware (simulated on Linux).
  ControlDevice* control_device = nullptr;
  BoardQuery* board = nullptr;
  DeviceLists* devices = nullptr;
  Wlan* wlan = nullptr;
  Counters* counters = nullptr;
  SystemEvents* system_events = nullptr;
  // The operating system.
  FileSystem* files = nullptr;
  ProfileReader* profiles = nullptr;
  Crypto* crypto = nullptr;
  Registry* registry = nullptr;
  ServiceManager* services = nullptr;
  ThreadPool* thread_pool = nullptr;
  EventTrace* event_trace = nullptr;
  RpcRuntime* rpc = nullptr;
};

}  // namespace zaltor::platform
