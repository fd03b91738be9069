#include "host_fakes.h"

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace zaltor::host_test {

uint32_t RecordingEventTrace::register_provider(const platform::Guid& provider, Handle& handle) {
  registered.push_back(provider);
  if (register_status != 0) return register_status;
  handle = 0x5151;
  return 0;
}

uint32_t RecordingEventTrace::write(Handle handle, const platform::EventDescriptor& d,
                                    std::string_view line) {
  std::lock_guard<std::mutex> hold(lock_);
  events_.push_back({handle, d, std::string(line)});
  return write_status;
}

bool RecordingEventTrace::enabled(Handle, const platform::EventDescriptor& d) {
  ++enabled_queries_;
  return d.level <= listening_level.load();
}

uint32_t RecordingEventTrace::unregister(Handle handle) {
  unregistered.push_back(handle);
  return 0;
}

std::vector<RecordedEvent> RecordingEventTrace::events() const {
  std::lock_guard<std::mutex> hold(lock_);
  return events_;
}

void FakeClock::sleep_ms(int64_t ms) {
  {
    std::lock_guard<std::mutex> hold(lock_);
    sleeps_.push_back(ms);
  }
  now_ += ms;
  if (on_sleep) on_sleep(ms);
}

std::unique_ptr<platform::Thread> FakeClock::start_thread(const char* name,
                                                          std::function<void()> body) {
  ++threads_started_;
  return real_->start_thread(name, std::move(body));
}

std::vector<int64_t> FakeClock::sleeps() const {
  std::lock_guard<std::mutex> hold(lock_);
  return sleeps_;
}

platform::ThreadPool::Work* FakeThreadPool::create_work(WorkCallback callback, void* context) {
  if (fail_create) return nullptr;
  auto item = std::make_unique<Item>();
  item->callback = callback;
  item->context = context;
  items_.push_back(std::move(item));
  return items_.back().get();
}

void FakeThreadPool::submit(Work* work) {
  if (work == nullptr) {
    ++null_submissions_;
    return;
  }
  submitted_.push_back(static_cast<Item*>(work));
}

void FakeThreadPool::run_submitted() {
  for (Item* item : submitted_) item->callback(item->context);
}

uint32_t FakeServiceManager::answer(const std::string& call, const std::string& op) {
  std::lock_guard<std::mutex> hold(lock_);
  calls_.push_back(call);
  auto it = errors.find(op);
  return it == errors.end() ? 0 : it->second;
}

uint32_t FakeServiceManager::module_file_name(std::string& path) {
  const uint32_t e = answer("module_file_name", "module_file_name");
  if (e == 0) path = module_path;
  return e;
}

uint32_t FakeServiceManager::open_manager(uint32_t access, Handle& manager) {
  const uint32_t e = answer("open_manager " + std::to_string(access), "open_manager");
  manager = e == 0 ? 100 : 0;
  return e;
}

uint32_t FakeServiceManager::create_service(Handle manager, const platform::ServiceConfig& c,
                                            Handle& service) {
  const uint32_t e = answer("create_service " + std::to_string(manager), "create_service");
  created = c;
  service = e == 0 ? 200 : 0;
  return e;
}

uint32_t FakeServiceManager::change_description(Handle service, const std::string& text) {
  description = text;
  return answer("change_description " + std::to_string(service), "change_description");
}

uint32_t FakeServiceManager::start_service(Handle service) {
  return answer("start_service " + std::to_string(service), "start_service");
}

uint32_t FakeServiceManager::open_service(Handle manager, const std::string& name, uint32_t access,
                                          Handle& service) {
  std::ostringstream call;
  call << "open_service " << manager << " " << name << " 0x" << std::hex << access;
  const uint32_t e = answer(call.str(), "open_service");
  service = e == 0 ? 300 : 0;
  return e;
}

uint32_t FakeServiceManager::control_stop(Handle service, platform::ServiceStatus& status) {
  const uint32_t e = answer("control_stop " + std::to_string(service), "control_stop");
  if (e == 0) status.current_state = stop_state;
  return e;
}

uint32_t FakeServiceManager::query_status(Handle service, platform::ServiceStatus& status) {
  const uint32_t e = answer("query_status " + std::to_string(service), "query_status");
  if (e == 0 && !query_states.empty()) {
    status.current_state = query_states.front();
    if (query_states.size() > 1) query_states.pop_front();
  }
  return e;
}

uint32_t FakeServiceManager::delete_service(Handle service) {
  return answer("delete_service " + std::to_string(service), "delete_service");
}

uint32_t FakeServiceManager::close(Handle handle) {
  return answer("close " + std::to_string(handle), "close");
}

uint32_t FakeServiceManager::run_dispatcher(const std::string& name, ServiceEntry entry) {
  if (!dispatch) {
    const uint32_t e = answer("run_dispatcher " + name, "run_dispatcher");
    return e != 0 ? e : platform::kErrorFailedServiceControllerConnect;
  }
  answer("run_dispatcher " + name, "run_dispatcher");
  std::string arg0 = name;
  char* argv[] = {arg0.data(), nullptr};
  entry(1, argv);
  for (uint32_t control : controls) {
    if (handler != nullptr) handler(control);
  }
  return 0;
}

uint32_t FakeServiceManager::register_control_handler(const std::string& name, ControlHandler h,
                                                      StatusHandle& handle) {
  const uint32_t e = answer("register_control_handler " + name, "register_control_handler");
  if (e == 0) {
    handler = h;
    handle = 77;
  } else {
    handle = 0;
  }
  return e;
}

uint32_t FakeServiceManager::set_status(StatusHandle handle, const platform::ServiceStatus& s) {
  {
    std::lock_guard<std::mutex> hold(lock_);
    reports_.push_back(s);
  }
  return answer("set_status " + std::to_string(handle), "set_status");
}

std::vector<std::string> FakeServiceManager::calls() const {
  std::lock_guard<std::mutex> hold(lock_);
  return calls_;
}

std::vector<platform::ServiceStatus> FakeServiceManager::reports() const {
  std::lock_guard<std::mutex> hold(lock_);
  return reports_;
}

bool MemoryFileSystem::exists(const std::string& path) {
  std::lock_guard<std::mutex> hold(lock_);
  return files_.count(path) != 0;
}

uint32_t MemoryFileSystem::remove(const std::string& path) {
  std::lock_guard<std::mutex> hold(lock_);
  return files_.erase(path) == 1 ? 0 : 2;
}

int MemoryFileSystem::append_utf8_text(const std::string& path, std::string_view text) {
  ++appends_;
  if (fail_append) return 13;
  std::lock_guard<std::mutex> hold(lock_);
  std::string& f = files_[path];
  if (f.empty()) f = "\xEF\xBB\xBF";
  f += text;
  return 0;
}

int MemoryFileSystem::read_utf8_text(const std::string& path, std::string& text) {
  std::lock_guard<std::mutex> hold(lock_);
  auto it = files_.find(path);
  if (it == files_.end()) return 2;
  text = it->second.substr(3);
  return 0;
}

std::string MemoryFileSystem::content(const std::string& path) const {
  std::lock_guard<std::mutex> hold(lock_);
  auto it = files_.find(path);
  return it == files_.end() ? std::string() : it->second;
}

TempDir::TempDir() {
  std::random_device rd;
  const auto base = std::filesystem::temp_directory_path();
  for (;;) {
    auto candidate = base / ("zaltor-host-" + std::to_string(rd()));
    if (std::filesystem::create_directory(candidate)) {
      path_ = candidate.string();
      return;
    }
  }
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

std::string own_program_directory(const TempDir& dir, const std::string& bin,
                                  const std::vector<std::string>& names) {
  const std::filesystem::path prog = std::filesystem::path(dir.path()) / "prog";
  std::filesystem::create_directories(prog);
  for (const auto& name : names) {
    std::filesystem::copy_file(std::filesystem::path(bin) / name, prog / name,
                               std::filesystem::copy_options::overwrite_existing);
  }
  return prog.string();
}

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void write_file(const std::string& path, const std::string& text, bool executable) {
  {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
  }
  if (executable) {
    std::filesystem::permissions(path, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add);
  }
}

}  // namespace zaltor::host_test
