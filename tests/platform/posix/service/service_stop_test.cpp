// The whole service under the systemd dispatcher on the simulated notebook: it starts, Auto
// mode chooses a mode, and a stop puts the antenna back into the default mode of the config
// set in force, as the switch lines show.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "engine/system_events.h"
#include "notify_socket.h"
#include "platform/posix/posix_backends.h"
#include "platform/posix/socket_rpc_runtime.h"
#include "platform/rpc_runtime.h"
#include "platform/sim/sim_notebook.h"
#include "service/command_line.h"
#include "service/host_fakes.h"
#include "service/service_application.h"
#include "support/program_dir_files.h"

namespace zaltor::host_test {
namespace {

using namespace std::chrono_literals;

// Polls `done` in real time for at most `limit`.
template <typename F>
bool eventually(F done, std::chrono::milliseconds limit = 60s) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < end) {
    if (done()) return true;
    std::this_thread::sleep_for(10ms);
  }
  return done();
}

// The build's directory: the test executable's own, where the build puts Conf.bin too.
std::string build_bin_dir() {
  const char* dir = std::getenv("ZALTOR_TEST_BIN_DIR");
  if (dir != nullptr && *dir != '\0') return dir;
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
}

// The service's process as the product assembles it, with a recording console and event
// trace, a registry under a temporary directory and the notify socket of the test. The
// configuration is a copy of the build's sample Conf.bin in a program directory of the
// test's own.
class ServiceOnNotebook {
 public:
  ServiceOnNotebook(const std::string& scenario, const TempDir& dir, const std::string& notify) {
    std::string error;
    notebook_ = platform::sim::make_sim_notebook_from_text(scenario, error);
    EXPECT_TRUE(notebook_) << error;
    platform::Platform& p = platform();
    p.clock = &notebook_->clock();
    p.control_device = &notebook_->control_device();
    p.board = &notebook_->board();
    p.devices = &notebook_->devices();
    p.wlan = &notebook_->wlan();
    p.counters = &notebook_->counters();
    p.system_events = &notebook_->system_events();
    p.console = console_.get();
    p.event_trace = trace_.get();
    files_ = std::make_unique<test_support::ProgramDirFiles>(
        platform::make_posix_file_system(),
        own_program_directory(dir, build_bin_dir(), {"Conf.bin"}));
    profiles_ = platform::make_ini_profile_reader();
    crypto_ = platform::make_openssl_crypto();
    registry_ = platform::make_state_dir_registry(dir.path());
    services_ = platform::make_systemd_service_manager(*p.clock, {dir.file("units"), notify});
    pool_ = platform::make_thread_pool(*p.clock);
    rpc_ = platform::make_socket_rpc_runtime(*p.clock);
    p.files = files_.get();
    p.profiles = profiles_.get();
    p.crypto = crypto_.get();
    p.registry = registry_.get();
    p.services = services_.get();
    p.thread_pool = pool_.get();
    p.rpc = rpc_.get();
    notebook_->start();
    app_ = std::make_unique<service::ServiceApplication>(p);
  }

  // Runs the service path of the command line on a thread of its own, as the process's
  // main thread would.
  void start() {
    main_ = std::thread([this, hooks = app_->hooks()] {
      exit_code_.store(service::run_command_line({"ZaltorMultiAntennaSvc"}, platform(), hooks));
      main_ended_.store(true);
    });
  }

  // Waits for the service path to return and stops the Auto threads and the event window.
  // The run body stays blocked in listening, as in the product until the process ends: it
  // holds the service object's hooks, the runtime, the worker and the notebook, so these
  // are kept for the rest of the test process.
  ~ServiceOnNotebook() {
    if (main_.joinable()) {
      if (!main_ended_.load()) kill(getpid(), SIGTERM);  // a test that gave up early
      main_.join();
    }
    app_->worker().stop_and_join_auto_threads();
    notebook_->close_windows();
    eventually([] { return engine::event_window_threads_running() == 0; });
    engine::forget_remembered_worker();
    static std::vector<std::shared_ptr<void>>* kept = new std::vector<std::shared_ptr<void>>;
    kept->push_back(std::move(app_));
    kept->push_back(std::move(rpc_));
    kept->push_back(std::move(pool_));
    kept->push_back(std::move(services_));
    kept->push_back(std::move(registry_));
    kept->push_back(std::move(crypto_));
    kept->push_back(std::move(profiles_));
    kept->push_back(std::move(files_));
    kept->push_back(std::move(notebook_));
    kept->push_back(std::move(platform_holder_));
    kept->push_back(std::move(console_));
    kept->push_back(std::move(trace_));
  }

  platform::Platform& platform() { return *platform_holder_; }
  platform::sim::SimNotebook& notebook() { return *notebook_; }
  engine::AntennaSwitchWorkerObj& worker() { return app_->worker(); }
  bool main_ended() const { return main_ended_.load(); }
  int exit_code() const { return exit_code_.load(); }
  std::string events() const {
    std::string text;
    for (const auto& e : trace_->events()) text += e.line;
    return text;
  }

 private:
  std::unique_ptr<platform::sim::SimNotebook> notebook_;
  std::shared_ptr<RecordingConsole> console_ = std::make_shared<RecordingConsole>();
  std::shared_ptr<RecordingEventTrace> trace_ = std::make_shared<RecordingEventTrace>();
  std::unique_ptr<platform::FileSystem> files_;
  std::unique_ptr<platform::ProfileReader> profiles_;
  std::unique_ptr<platform::Crypto> crypto_;
  std::unique_ptr<platform::Registry> registry_;
  std::unique_ptr<platform::ServiceManager> services_;
  std::unique_ptr<platform::ThreadPool> pool_;
  std::unique_ptr<platform::RpcRuntime> rpc_;
  std::shared_ptr<platform::Platform> platform_holder_ = std::make_shared<platform::Platform>();
  std::unique_ptr<service::ServiceApplication> app_;
  std::thread main_;
  std::atomic<bool> main_ended_{false};
  std::atomic<int> exit_code_{-1};
};

// The built-in notebook at fifty times real time, without its timeline.
constexpr const char* kFastNotebook = R"({"clock": {"mode": "scaled", "speed": 50.0},
                                          "timeline": []})";

void use_private_endpoint(const char* test) {
  const std::string name = std::string("ZaltorStopTest-") + test + "-" + std::to_string(getpid());
  setenv("ZALTOR_RPC_ENDPOINT", name.c_str(), 1);
}

TEST(ServiceStopOnNotebook, StopPutsTheAntennaIntoTheDefaultModeOfTheActiveSet) {
  use_private_endpoint("default-mode");
  TempDir dir;
  NotifySocket notify(dir.file("notify"));
  ServiceOnNotebook svc(kFastNotebook, dir, notify.path());
  svc.start();

  // Auto mode on the 5 GHz link chooses mode 3 (switch 1 in Div), the best signal.
  ASSERT_TRUE(eventually([&] {
    return svc.worker().initialised() && svc.worker().shared.auto_state() == engine::kAutoIdle &&
           svc.notebook().mode() == 3;
  })) << svc.events();
  ASSERT_EQ(svc.worker().active_config_set(), 1u);
  const int32_t default_mode = svc.worker().settings().DefaultMode[1];
  ASSERT_EQ(default_mode, 1);

  ASSERT_EQ(kill(getpid(), SIGTERM), 0);
  ASSERT_TRUE(eventually([&] { return svc.main_ended(); }));
  EXPECT_EQ(svc.exit_code(), 1);  // a run under the manager always ends so

  EXPECT_EQ(svc.notebook().mode(), default_mode)
      << "lines 0x" << std::hex << svc.notebook().lines();
  EXPECT_EQ(svc.worker().user_mode(), 1u);
  const std::string events = svc.events();
  EXPECT_NE(events.find("MultiAntennaSvc in OnStop"), std::string::npos);
  EXPECT_NE(events.find("Trying to set antenna to default mode...\n"), std::string::npos);

  std::string stopping, stopped;
  for (const auto& m : notify.drain()) {
    if (m.rfind("STOPPING=1\n", 0) == 0) stopping = m;
    if (m.find("STATUS=Stopped, checkpoint 0, exit code 0") != std::string::npos) stopped = m;
  }
  EXPECT_FALSE(stopping.empty());
  EXPECT_FALSE(stopped.empty());
}

TEST(ServiceStopOnNotebook, StopWhileTheEndpointIsRetriedStillSetsTheDefaultMode) {
  use_private_endpoint("retry");
  TempDir dir;
  NotifySocket notify(dir.file("notify"));
  // Another process holds the endpoint name: the run body retries every five seconds.
  auto holder_clock = platform::make_real_clock();
  auto holder = platform::make_socket_rpc_runtime(*holder_clock);
  ASSERT_TRUE(holder->open_endpoint(std::getenv("ZALTOR_RPC_ENDPOINT")).ok());

  // The switches stand in mode 4 (both Div) at start.
  ServiceOnNotebook svc(R"({"clock": {"mode": "scaled", "speed": 50.0}, "timeline": [],
                            "firmware": {"lines": 0}})",
                        dir, notify.path());
  ASSERT_EQ(svc.notebook().mode(), 4);
  svc.start();
  ASSERT_TRUE(eventually([&] {
    return svc.worker().initialised() &&
           svc.events().find("Initializing RPC endpoints.\n") != std::string::npos;
  }));
  EXPECT_EQ(svc.worker().user_mode(), 99u) << "Auto is chosen only once the endpoint is open";

  ASSERT_EQ(kill(getpid(), SIGTERM), 0);
  ASSERT_TRUE(eventually([&] { return svc.main_ended(); }));
  EXPECT_EQ(svc.notebook().mode(), 1) << "the default mode of the set in force";
  EXPECT_EQ(svc.events().find("RPC Endpoints ok.\n"), std::string::npos);
  static auto* kept_holder = new std::vector<std::unique_ptr<platform::RpcRuntime>>;
  kept_holder->push_back(std::move(holder));  // the name stays taken: the run body retries on
}

TEST(ServiceStopOnNotebook, StopWhileTheWorkerStartsAnswersNotReadyAndChangesNothing) {
  use_private_endpoint("starting");
  TempDir dir;
  NotifySocket notify(dir.file("notify"));
  // No Wi-Fi adapter yet: the worker's start-up waits for one, retrying every five seconds.
  ServiceOnNotebook svc(R"({"clock": {"mode": "scaled", "speed": 50.0}, "timeline": [],
                            "firmware": {"lines": 0}, "pciNics": []})",
                        dir, notify.path());
  svc.start();
  ASSERT_TRUE(eventually(
      [&] { return svc.events().find("No NICs found on system.\n") != std::string::npos; }));
  ASSERT_EQ(kill(getpid(), SIGTERM), 0);
  ASSERT_TRUE(eventually([&] { return svc.main_ended(); }));
  EXPECT_FALSE(svc.worker().initialised());
  EXPECT_EQ(svc.worker().user_mode(), 99u);
  EXPECT_EQ(svc.notebook().mode(), 4) << "nothing changed on the switch lines";
  EXPECT_NE(svc.events().find("Trying to set antenna to default mode...\n"), std::string::npos);
}

}  // namespace
}  // namespace zaltor::host_test
