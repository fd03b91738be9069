// The Windows backends against the real Win32 functions (run under Wine on the build
// machine): files, console, registry, event tracing, service manager and thread pool.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/control_device.h"
#include "platform/guid.h"
#include "platform/select/backends.h"
#include "platform/win32/win32_backends.h"

namespace zaltor::platform {
namespace {

std::string read_bytes(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::ostringstream all;
  all << in.rdbuf();
  return all.str();
}

// A fresh directory under the Windows temporary directory, removed at the end.
class TempDir {
 public:
  TempDir() {
    std::random_device rd;
    for (;;) {
      path_ = std::filesystem::temp_directory_path() / ("zaltor-win32-" + std::to_string(rd()));
      if (std::filesystem::create_directory(path_)) break;
    }
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  // UTF-8 path of a file in the directory.
  std::string file(const std::string& name) const {
    const auto u8 = (path_ / std::filesystem::u8path(name)).u8string();
    return std::string(u8.begin(), u8.end());
  }
  std::filesystem::path path(const std::string& name) const {
    return path_ / std::filesystem::u8path(name);
  }

 private:
  std::filesystem::path path_;
};

// ---- files ------------------------------------------------------------------------------

TEST(Win32FileSystem, ProgramDirectoryIsTheExecutablesDirectory) {
  auto files = make_win32_file_system();
  std::string dir;
  ASSERT_EQ(files->program_directory(dir), 0u);
  wchar_t exe[MAX_PATH] = {};
  ASSERT_GT(GetModuleFileNameW(nullptr, exe, MAX_PATH), 0u);
  const std::filesystem::path self(exe);
  const auto expected = self.parent_path().u8string();
  EXPECT_EQ(dir, std::string(expected.begin(), expected.end()));
  EXPECT_EQ(files->join(dir, "Conf.bin"), dir + "\\Conf.bin");
  EXPECT_TRUE(files->exists(files->join(dir, self.filename().string())));
}

TEST(Win32FileSystem, WriteTextWritesCarriageReturnLineFeed) {
  TempDir dir;
  auto files = make_win32_file_system();
  size_t written = 0;
  EXPECT_EQ(files->write_text(dir.file("plain.ini"), "[A]\nk=1\n", written), 0);
  EXPECT_EQ(written, 8u) << "counts the bytes of the text taken, not of the file";
  EXPECT_EQ(read_bytes(dir.path("plain.ini")), "[A]\r\nk=1\r\n");
}

TEST(Win32FileSystem, AppendWritesTheByteOrderMarkOnceInUtf8WithCarriageReturns) {
  TempDir dir;
  auto files = make_win32_file_system();
  const std::string path = dir.file("rflog.txt");
  EXPECT_EQ(files->append_utf8_text(path, "one\n"), 0);
  EXPECT_EQ(files->append_utf8_text(path, "caf\xC3\xA9\n"), 0);
  EXPECT_EQ(read_bytes(dir.path("rflog.txt")), "\xEF\xBB\xBFone\r\ncaf\xC3\xA9\r\n");
  // An empty file counts as new.
  { std::ofstream(dir.path("empty.txt"), std::ios::binary); }
  EXPECT_EQ(files->append_utf8_text(dir.file("empty.txt"), "x"), 0);
  EXPECT_EQ(read_bytes(dir.path("empty.txt")), "\xEF\xBB\xBFx");
  // Read back: the mark is dropped and CR LF is a line feed again.
  std::string text;
  EXPECT_EQ(files->read_utf8_text(path, text), 0);
  EXPECT_EQ(text, "one\ncaf\xC3\xA9\n");
}

TEST(Win32FileSystem, AppendToADirectoryThatDoesNotExistFails) {
  TempDir dir;
  auto files = make_win32_file_system();
  EXPECT_EQ(files->append_utf8_text(dir.file("missing\\rflog.txt"), "x"), ENOENT);
}

TEST(Win32FileSystem, ReadUtf8TextWithoutAMarkAndWithANonAsciiName) {
  TempDir dir;
  auto files = make_win32_file_system();
  { std::ofstream(dir.path("v\xC3\xA9r.txt"), std::ios::binary) << "1.2.3 rest\r\n"; }
  std::string text;
  EXPECT_EQ(files->read_utf8_text(dir.file("v\xC3\xA9r.txt"), text), 0);
  EXPECT_EQ(text, "1.2.3 rest\n");
  EXPECT_EQ(files->read_utf8_text(dir.file("none.txt"), text), ENOENT);
}

TEST(Win32FileSystem, ReadBinaryNamesTheFailingStepAndKeepsBytes) {
  TempDir dir;
  auto files = make_win32_file_system();
  std::vector<uint8_t> data;
  FileSystem::ReadStep step = FileSystem::ReadStep::kRead;
  EXPECT_EQ(files->read_binary(dir.file("none"), data, step), ENOENT);
  EXPECT_EQ(step, FileSystem::ReadStep::kOpen);
  {
    std::ofstream out(dir.path("b"), std::ios::binary);
    out.write("\x01\r\n\x00\xFF", 5);
  }
  EXPECT_EQ(files->read_binary(dir.file("b"), data, step), 0);
  EXPECT_EQ(data, (std::vector<uint8_t>{1, '\r', '\n', 0, 255}));
}

TEST(Win32FileSystem, RemoveAnswersTheWin32Error) {
  TempDir dir;
  auto files = make_win32_file_system();
  size_t written = 0;
  ASSERT_EQ(files->write_text(dir.file("t"), "x", written), 0);
  EXPECT_TRUE(files->exists(dir.file("t")));
  EXPECT_EQ(files->remove(dir.file("t")), 0u);
  EXPECT_FALSE(files->exists(dir.file("t")));
  EXPECT_EQ(files->remove(dir.file("t")), static_cast<uint32_t>(ERROR_FILE_NOT_FOUND));
}

// ---- console ----------------------------------------------------------------------------

TEST(Win32Console, RedirectedOutputReceivesTheUtf8BytesUnchanged) {
  TempDir dir;
  const std::wstring path = dir.path("out.txt").wstring();
  HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  HANDLE saved = GetStdHandle(STD_OUTPUT_HANDLE);
  ASSERT_TRUE(SetStdHandle(STD_OUTPUT_HANDLE, file));
  auto console = make_win32_console();
  console->print("%d: %s", 4, "Config Version in reg key: \"1.0 \xE2\x82\xAC\"\n");
  console->write("Invalid arguments.");
  SetStdHandle(STD_OUTPUT_HANDLE, saved);
  CloseHandle(file);
  EXPECT_EQ(read_bytes(dir.path("out.txt")),
            "4: Config Version in reg key: \"1.0 \xE2\x82\xAC\"\nInvalid arguments.");
}

// ---- registry ---------------------------------------------------------------------------

class Win32RegistryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::random_device rd;
    path_ = "SOFTWARE\\ZALTOR\\BackendTest" + std::to_string(rd());
    HKEY key = nullptr;
    const std::wstring wpath(path_.begin(), path_.end());
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, wpath.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                              nullptr, &key, nullptr),
              ERROR_SUCCESS);
    const DWORD number = 7;
    RegSetValueExW(key, L"Number", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                   sizeof number);
    RegCloseKey(key);
  }
  void TearDown() override {
    const std::wstring wpath(path_.begin(), path_.end());
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, wpath.c_str());
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, wpath.c_str());
  }
  std::string path_;
  std::unique_ptr<Registry> registry_ = make_win32_registry();
};

TEST_F(Win32RegistryTest, AMissingKeyIsNotFound) {
  uint32_t error = 0;
  EXPECT_EQ(registry_->open_local_machine(path_ + "\\Missing", error), nullptr);
  EXPECT_EQ(error, kRegistryNotFound);
}

TEST_F(Win32RegistryTest, AStringWrittenWithOneByteOfItsTerminatorReadsBackWhole) {
  uint32_t error = 99;
  auto key = registry_->open_local_machine(path_, error);
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(error, 0u);
  const std::string version = "2.0.1-\xC3\xA9";  // 7 UTF-16 units
  EXPECT_EQ(key->write_string("ConfigVersion", version, 7 * 2 + 1), 0u);
  std::string back;
  EXPECT_EQ(key->read_string("ConfigVersion", 2048, back), 0u);
  EXPECT_EQ(back, version);
  // The registry itself holds the whole string.
  wchar_t raw[64] = {};
  DWORD size = sizeof raw;
  const std::wstring wpath(path_.begin(), path_.end());
  ASSERT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, wpath.c_str(), L"ConfigVersion", RRF_RT_REG_SZ,
                         nullptr, raw, &size),
            ERROR_SUCCESS);
  EXPECT_EQ(std::wstring(raw), L"2.0.1-\u00e9");
}

TEST_F(Win32RegistryTest, ReadErrorsAreTheRegistrysOwn) {
  uint32_t error = 0;
  auto key = registry_->open_local_machine(path_, error);
  ASSERT_NE(key, nullptr);
  std::string value = "stale";
  EXPECT_EQ(key->read_string("ConfigVersion", 2048, value), kRegistryNotFound);
  EXPECT_EQ(value, "");
  EXPECT_EQ(key->read_string("Number", 2048, value), kRegistryUnsupportedType);
  // Written with its whole terminator, the text needs exactly its (length + 1) * 2 bytes.
  ASSERT_EQ(key->write_string("Long", "0123456789", 22), 0u);
  EXPECT_EQ(key->read_string("Long", 20, value), kRegistryMoreData);
  EXPECT_EQ(key->read_string("Long", 22, value), 0u);
  EXPECT_EQ(value, "0123456789");
}

// ---- event tracing ----------------------------------------------------------------------

TEST(EtwEventTrace, RegistersWritesAndUnregistersTheServiceProvider) {
  auto trace = make_etw_event_trace();
  const auto provider = parse_guid("{F5F415CB-6614-45C6-9453-C5A0D2CD3C5C}");
  ASSERT_TRUE(provider.has_value());
  EventTrace::Handle handle = 0;
  ASSERT_EQ(trace->register_provider(*provider, handle), 0u);
  EXPECT_NE(handle, 0u);
  EventDescriptor d;
  d.id = 4;
  d.channel = 16;
  d.level = 4;
  d.keyword = 0x8000000000000000ull;
  EXPECT_EQ(trace->write(handle, d, "MultiAntennaSvc in OnStart"), 0u);
  // No trace session listens to the provider while the tests run.
  EXPECT_FALSE(trace->enabled(handle, d));
  EXPECT_EQ(trace->unregister(handle), 0u);
}

// ---- service manager --------------------------------------------------------------------

TEST(ScmServiceManager, OpeningAMissingServiceAnswers1060) {
  auto scm = make_scm_service_manager();
  ServiceManager::Handle manager = 0;
  ASSERT_EQ(scm->open_manager(kManagerConnect, manager), 0u);
  ASSERT_NE(manager, 0u);
  ServiceManager::Handle service = 0;
  EXPECT_EQ(scm->open_service(manager, "ZaltorNoSuchService", kServiceQueryStatus, service),
            kErrorServiceDoesNotExist);
  EXPECT_EQ(service, 0u);
  EXPECT_EQ(scm->close(manager), 0u);
}

TEST(ScmServiceManager, TheDispatcherRunByHandFailsWith1063) {
  auto scm = make_scm_service_manager();
  static std::atomic<int> entered{0};
  const uint32_t error =
      scm->run_dispatcher("ZaltorMultiAntennaSvc", [](uint32_t, char**) { entered.store(1); });
  EXPECT_EQ(error, kErrorFailedServiceControllerConnect);
  EXPECT_EQ(entered.load(), 0);
}

TEST(ScmServiceManager, ModuleFileNameIsThisExecutable) {
  auto scm = make_scm_service_manager();
  std::string path;
  ASSERT_EQ(scm->module_file_name(path), 0u);
  wchar_t exe[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, exe, MAX_PATH);
  const auto expected = std::filesystem::path(exe).u8string();
  EXPECT_EQ(path, std::string(expected.begin(), expected.end()));
  EXPECT_EQ(path.substr(path.size() - 4), ".exe");
}

// ---- thread pool ------------------------------------------------------------------------

TEST(Win32ThreadPool, EachSubmissionRunsOnceOnAPoolThread) {
  auto clock = make_real_clock();
  auto pool = make_win32_thread_pool(*clock);
  EXPECT_EQ(pool->create_work(nullptr, nullptr), nullptr);
  pool->submit(nullptr);  // nothing to run

  struct Runs {
    std::atomic<int> count{0};
    std::atomic<DWORD> thread{0};
    std::unique_ptr<Event> done;
  } runs;
  runs.done = clock->make_event(false);
  auto* work = pool->create_work(
      [](void* context) {
        auto* r = static_cast<Runs*>(context);
        r->thread.store(GetCurrentThreadId());
        r->count.fetch_add(1);
        r->done->set();
      },
      &runs);
  ASSERT_NE(work, nullptr);
  pool->submit(work);
  ASSERT_TRUE(runs.done->wait(10000));
  pool->submit(work);
  ASSERT_TRUE(runs.done->wait(10000));
  EXPECT_EQ(runs.count.load(), 2);
  EXPECT_NE(runs.thread.load(), GetCurrentThreadId());
}

// ---- the backends on Windows ------------------------------------------------------------

TEST(Win32Select, TheSimulatedNotebookRunsOnTheRealOperatingSystemBackends) {
  _putenv_s("ZALTOR_PLATFORM", "sim");
  _putenv_s("ZALTOR_SIM_SCENARIO", "");
  std::string error;
  auto backends = make_backends(error);
  _putenv_s("ZALTOR_PLATFORM", "");
  ASSERT_NE(backends, nullptr) << error;
  Platform& p = backends->platform();
  EXPECT_NE(p.control_device, nullptr);
  EXPECT_NE(p.console, nullptr);
  EXPECT_NE(p.files, nullptr);
  EXPECT_NE(p.profiles, nullptr);
  EXPECT_NE(p.crypto, nullptr);
  EXPECT_NE(p.registry, nullptr);
  EXPECT_NE(p.services, nullptr);
  EXPECT_NE(p.thread_pool, nullptr);
  EXPECT_NE(p.event_trace, nullptr);
  ASSERT_NE(p.rpc, nullptr);
  // The real security calls: the descriptor that admits everyone and a package.
  const RpcStep admitted = p.rpc->admit_everyone_and("Zaltor.antennaSwitch_k3d9wq2v8xhna");
  EXPECT_TRUE(admitted.ok()) << admitted.status << " " << admitted.failed_call;
  // The real service manager: a missing service is 1060.
  ServiceManager::Handle manager = 0;
  ASSERT_EQ(p.services->open_manager(kManagerConnect, manager), 0u);
  ServiceManager::Handle service = 0;
  EXPECT_EQ(p.services->open_service(manager, "ZaltorNoSuchService", kServiceQueryStatus, service),
            kErrorServiceDoesNotExist);
  p.services->close(manager);
  p.clock->detach_current_thread();
}

TEST(Win32Select, NativeIsTheDefaultAndRunsOnTheMachinesOwnBackends) {
  for (const char* name : {"native", ""}) {
    _putenv_s("ZALTOR_PLATFORM", name);
    std::string error;
    auto backends = make_backends(error);
    _putenv_s("ZALTOR_PLATFORM", "");
    ASSERT_NE(backends, nullptr) << "ZALTOR_PLATFORM=" << name << ": " << error;
    Platform& p = backends->platform();
    for (const void* seam :
         {static_cast<const void*>(p.clock), static_cast<const void*>(p.console),
          static_cast<const void*>(p.control_device), static_cast<const void*>(p.board),
          static_cast<const void*>(p.devices), static_cast<const void*>(p.wlan),
          static_cast<const void*>(p.counters), static_cast<const void*>(p.system_events),
          static_cast<const void*>(p.files), static_cast<const void*>(p.profiles),
          static_cast<const void*>(p.crypto), static_cast<const void*>(p.registry),
          static_cast<const void*>(p.services), static_cast<const void*>(p.thread_pool),
          static_cast<const void*>(p.event_trace)}) {
      EXPECT_NE(seam, nullptr) << "ZALTOR_PLATFORM=" << name;
    }
    // The machine's hardware: this machine has no firmware control device.
    uint32_t open_error = 0;
    EXPECT_EQ(p.control_device->open("\\\\.\\ZLTACPI", open_error), nullptr);
    EXPECT_EQ(open_error, 2u);
    // The machine's clock: a wait of 30 ms takes real time.
    const int64_t before = p.clock->now_ms();
    auto never = p.clock->make_event(true);
    EXPECT_FALSE(never->wait(30));
    EXPECT_GE(p.clock->now_ms() - before, 25);
  }
}

}  // namespace
}  // namespace zaltor::platform
