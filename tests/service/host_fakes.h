#pragma once
// Recording and scriptable stand-ins for the seams of the service host.

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "log/log_entry_writer.h"
#include "platform/clock.h"
#include "platform/event_trace.h"
#include "platform/file_system.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/service_manager.h"
#include "platform/thread_pool.h"

namespace zaltor::host_test {

class RecordingConsole final : public Console {
 public:
  void write(std::string_view text) override {
    std::lock_guard<std::mutex> hold(lock_);
    text_ += text;
  }
  std::string text() const {
    std::lock_guard<std::mutex> hold(lock_);
    return text_;
  }

 private:
  mutable std::mutex lock_;
  std::string text_;
};

struct RecordedEvent {
  platform::EventTrace::Handle handle;
  platform::EventDescriptor descriptor;
  std::string line;
};

class RecordingEventTrace final : public platform::EventTrace {
 public:
  uint32_t register_status = 0;
  uint32_t write_status = 0;
  // The highest event level a session records (0: none listens).
  std::atomic<int> listening_level{5};

  uint32_t register_provider(const platform::Guid& provider, Handle& handle) override;
  uint32_t write(Handle handle, const platform::EventDescriptor& d, std::string_view line) override;
  uint32_t unregister(Handle handle) override;
  bool enabled(Handle handle, const platform::EventDescriptor& d) override;
  int enabled_queries() const { return enabled_queries_.load(); }

  std::vector<RecordedEvent> events() const;
  std::vector<platform::Guid> registered;
  std::vector<Handle> unregistered;

 private:
  mutable std::mutex lock_;
  std::vector<RecordedEvent> events_;
  std::atomic<int> enabled_queries_{0};
};

// Sleeps are recorded and advance the clock's time at once; mutexes, events and threads are
// the real ones.
class FakeClock final : public platform::Clock {
 public:
  int64_t now_ms() override { return now_.load(); }
  void sleep_ms(int64_t ms) override;
  std::unique_ptr<platform::Mutex> make_mutex() override { return real_->make_mutex(); }
  std::unique_ptr<platform::Event> make_event(bool manual) override {
    return real_->make_event(manual);
  }
  std::unique_ptr<platform::Thread> start_thread(const char* name,
                                                 std::function<void()> body) override;
  void attach_current_thread() override {}
  void detach_current_thread() override {}

  std::vector<int64_t> sleeps() const;
  int threads_started() const { return threads_started_.load(); }
  // Called after each recorded sleep (tests use it to change what the fakes answer).
  std::function<void(int64_t)> on_sleep;

 private:
  std::unique_ptr<platform::Clock> real_ = platform::make_real_clock();
  std::atomic<int64_t> now_{0};
  std::atomic<int> threads_started_{0};
  mutable std::mutex lock_;
  std::vector<int64_t> sleeps_;
};

// Work items run only when the test says so.
class FakeThreadPool final : public platform::ThreadPool {
 public:
  bool fail_create = false;

  Work* create_work(WorkCallback callback, void* context) override;
  void submit(Work* work) override;
  // Runs every submitted item once, in order, on the calling thread.
  void run_submitted();
  int submissions() const { return static_cast<int>(submitted_.size()); }
  int null_submissions() const { return null_submissions_; }

 private:
  struct Item final : Work {
    WorkCallback callback;
    void* context;
  };
  std::vector<std::unique_ptr<Item>> items_;
  std::vector<Item*> submitted_;
  int null_submissions_ = 0;
};

// A scripted service control manager. Every call is recorded as one text line.
class FakeServiceManager final : public platform::ServiceManager {
 public:
  std::map<std::string, uint32_t> errors;  // by operation name: the error it answers
  std::string module_path = "/opt/zaltor/ZaltorMultiAntennaSvc";
  uint32_t stop_state = platform::kServiceStopPending;  // state after a stop request
  std::deque<uint32_t> query_states;                    // answered in turn; the last repeats
  // run_dispatcher: when set, runs the service entry point and then delivers `controls` on
  // the calling thread, as the manager does; else answers `errors["run_dispatcher"]` or
  // 1063.
  bool dispatch = false;
  std::vector<uint32_t> controls;

  uint32_t module_file_name(std::string& path) override;
  uint32_t open_manager(uint32_t access, Handle& manager) override;
  uint32_t create_service(Handle manager, const platform::ServiceConfig& config,
                          Handle& service) override;
  uint32_t change_description(Handle service, const std::string& description) override;
  uint32_t start_service(Handle service) override;
  uint32_t open_service(Handle manager, const std::string& name, uint32_t access,
                        Handle& service) override;
  uint32_t control_stop(Handle service, platform::ServiceStatus& status) override;
  uint32_t query_status(Handle service, platform::ServiceStatus& status) override;
  uint32_t delete_service(Handle service) override;
  uint32_t close(Handle handle) override;
  uint32_t run_dispatcher(const std::string& name, ServiceEntry entry) override;
  uint32_t register_control_handler(const std::string& name, ControlHandler handler,
                                    StatusHandle& handle) override;
  uint32_t set_status(StatusHandle handle, const platform::ServiceStatus& status) override;

  std::vector<std::string> calls() const;
  std::vector<platform::ServiceStatus> reports() const;
  platform::ServiceConfig created;
  std::string description;
  ControlHandler handler = nullptr;

 private:
  uint32_t answer(const std::string& call, const std::string& op);
  mutable std::mutex lock_;
  std::vector<std::string> calls_;
  std::vector<platform::ServiceStatus> reports_;
};

// Files kept in memory; appends can be made to fail.
class MemoryFileSystem final : public platform::FileSystem {
 public:
  std::atomic<bool> fail_append{false};

  uint32_t program_directory(std::string& dir) override {
    dir = "/prog";
    return 0;
  }
  std::string join(const std::string& dir, const std::string& name) override {
    return dir + "/" + name;
  }
  bool exists(const std::string& path) override;
  uint32_t remove(const std::string& path) override;
  int read_binary(const std::string&, std::vector<uint8_t>&, ReadStep& failed) override {
    failed = ReadStep::kOpen;
    return 2;
  }
  int write_text(const std::string&, std::string_view, size_t& written) override {
    written = 0;
    return 13;
  }
  int append_utf8_text(const std::string& path, std::string_view text) override;
  int read_utf8_text(const std::string& path, std::string& text) override;

  std::string content(const std::string& path) const;
  int appends() const { return appends_.load(); }

 private:
  mutable std::mutex lock_;
  std::map<std::string, std::string> files_;
  std::atomic<int> appends_{0};
};

// Records the finished lines that reach the emitting end.
class RecordingWriter final : public log::LogEntryWriter {
 public:
  int32_t WriteLogEntry(std::string_view line, uint8_t level) override {
    std::lock_guard<std::mutex> hold(lock_);
    lines.emplace_back(level, std::string(line));
    return 0;
  }
  std::vector<std::pair<uint8_t, std::string>> lines;

 private:
  std::mutex lock_;
};

// A platform of fakes.
struct FakePlatform {
  FakeClock clock;
  RecordingConsole console;
  RecordingEventTrace trace;
  FakeThreadPool pool;
  FakeServiceManager services;
  MemoryFileSystem files;
  platform::Platform platform;

  FakePlatform() {
    platform.clock = &clock;
    platform.console = &console;
    platform.event_trace = &trace;
    platform.thread_pool = &pool;
    platform.services = &services;
    platform.files = &files;
  }
};

// A fresh empty directory under the system's temporary directory, removed at the end.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::string read_file(const std::string& path);

// A program directory of the test's own ("prog" under `dir`) holding copies of the files
// `names` of the build's directory `bin` (the service binary, Conf.bin). A service start
// decrypts the configuration into its program directory and removes it again, so services
// started at once from one directory (tests run in parallel) would meet each other's file.
std::string own_program_directory(const TempDir& dir, const std::string& bin,
                                  const std::vector<std::string>& names);
void write_file(const std::string& path, const std::string& text, bool executable = false);

}  // namespace zaltor::host_test
