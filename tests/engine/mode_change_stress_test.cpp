// Mode changes from several clients at once, against the auto loop, the monitor and the
// notebook's lid, power, Bluetooth, WLAN and radio events, on the scaled clock with real
// threads (the tsan build runs it under ThreadSanitizer). The clients switch between fixed
// modes and Auto as fast as they can for a few seconds — on Linux each over its own
// connection to the control interface on the real local socket, elsewhere through the
// control interface's view of the worker; then every client stops and one last fixed mode
// is chosen, which must be what the lines show, with the process's threads and descriptors
// back where they were.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "engine/engine_harness.h"
#include "service/worker_control_target.h"
#if !defined(_WIN32)
#include <unistd.h>

#include "platform/control_client.h"
#include "platform/posix/socket_rpc_runtime.h"
#include "rpc/control_endpoint.h"
#include "rpc/control_interface.h"
#include "rpc/control_procedures.h"
#endif

namespace zaltor::engine::autotest {
namespace {

// The notebook's clock runs this many times faster than real time, so that the loop's
// one-second steps take 10 ms.
constexpr int kSpeed = 100;
// Simulated milliseconds of the stress: 3 s of wall time.
constexpr int64_t kStressMs = 3000 * kSpeed;
constexpr int kClients = 4;

// How many entries a directory of /proc/self has now: -1 where the system does not tell.
int proc_self_entries([[maybe_unused]] const char* name) {
#if defined(__linux__)
  int n = 0;
  std::error_code ec;
  for (auto it = std::filesystem::directory_iterator(std::string("/proc/self/") + name, ec);
       !ec && it != std::filesystem::directory_iterator(); it.increment(ec)) {
    ++n;
  }
  return ec ? -1 : n;
#else
  return -1;
#endif
}
// Threads and open descriptors of this process now.
int task_count() {
  return proc_self_entries("task");
}
int descriptor_count() {
  return proc_self_entries("fd");
}

// What a client calls to choose a mode: the status the worker returned, or kTransportFailed
// when the call itself failed.
constexpr Status kTransportFailed = 0xFFFFFFFFu;
using ModeCall = std::function<Status(int32_t mode)>;

#if !defined(_WIN32)
// The control interface on the real local socket, serving the worker on its own thread.
class ControlServer {
 public:
  ControlServer(AntennaSwitchWorkerObj& worker, service::WorkerControlTarget& target)
      : endpoint_("ZaltorStress-" + std::to_string(::getpid())),
        procedures_(target),
        runtime_(platform::make_socket_rpc_runtime(worker.clock())),
        setup_{*runtime_, worker.clock(), worker.log(), procedures_, endpoint_, {}},
        thread_([this] { rpc::serve(setup_); }) {}
  ~ControlServer() {
    rpc::withdraw(*runtime_);
    runtime_->stop_listening();
    thread_.join();
  }
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  // A connection of its own with one context; null when none could be had.
  ModeCall client() {
    for (int attempt = 0; attempt < 500; ++attempt) {
      uint32_t error = 0;
      std::shared_ptr<platform::ControlClient> client =
          platform::connect_control_client(endpoint_, 5000, error);
      auto context = std::make_shared<platform::ContextHandleWire>();
      if (client && client->open_context(*context) == 0) {
        return [client, context](int32_t mode) {
          int32_t status = 0;
          if (client->set_value(*context, rpc::kSetUserMode, mode, status) != 0) {
            return kTransportFailed;
          }
          return static_cast<Status>(status);
        };
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));  // still setting up
    }
    return {};
  }

 private:
  std::string endpoint_;
  rpc::ControlProcedures procedures_;
  std::unique_ptr<platform::RpcRuntime> runtime_;
  rpc::EndpointSetup setup_;
  std::thread thread_;
};
#endif

// The notebook's events in turn: lid, power source, Bluetooth, band, connection, radio.
std::vector<nlohmann::json> event_patches() {
  auto wlan = [](bool connected, int channel) {
    return nlohmann::json{{"wlan",
                           {{"interfaces",
                             {{{"description", "Wireless AX (R2) 160MHz"},
                               {"guid", "{6A1B2C3D-1111-2222-3333-444455556666}"},
                               {"connected", connected},
                               {"channel", channel}}}}}}};
  };
  auto headset = [](bool connected) {
    return nlohmann::json{{"bluetooth",
                           {{"BTHENUM",
                             {{{"hardwareId", "BTHENUM\\Dev_001122334455"},
                               {"description", "Headset"},
                               {"friendlyName", "Headset"},
                               {"connected", connected}}}}}}};
  };
  auto radio = [](int main0) {
    return nlohmann::json{
        {"radio", {{"rssi", {{{"Main", main0}, {"Div", -62}}, {{"Main", -70}, {"Div", -58}}}}}}};
  };
  return {
      {{"lid", {{"open", false}}}},
      {{"power", {{"source", 1}}}},
      headset(true),
      wlan(true, 36),
      radio(-85),
      {{"lid", {{"open", true}}}},
      wlan(false, 36),
      {{"power", {{"source", 0}}}},
      headset(false),
      wlan(true, 6),
      radio(-55),
  };
}

TEST(ModeChangeStress, ClientsEventsAndTheLoopEndOnTheLastFixedMode) {
  HarnessOptions o;
  o.scenario_patch = R"({"clock":{"mode":"scaled","speed":100}})";
  o.keep_log = false;
  o.scripted_device = true;
  o.start_notebook = true;
  o.keys = {{"BaseSleepIntervalBetweenEval", "3000"}, {"WifiStatMonitorInterval", "2000"}};
  AutoHarness h(o);
  ASSERT_EQ(h.Init(), 0);
  service::WorkerControlTarget target(h.worker());
  h.run_for(2000);  // the notebook's timeline thread ends at once on an empty timeline
  ASSERT_EQ(target.SetUserMode(0), 0u);

  const int tasks_before = task_count();
  const int descriptors_before = descriptor_count();
  std::vector<ModeCall> calls_of(kClients);
#if !defined(_WIN32)
  auto server = std::make_unique<ControlServer>(h.worker(), target);
  for (auto& call : calls_of) {
    call = server->client();
    ASSERT_TRUE(call) << "a client connects to the control interface";
  }
#else
  for (auto& call : calls_of) call = [&](int32_t mode) { return target.SetUserMode(mode); };
#endif

  std::atomic<bool> stop{false};
  std::atomic<int> calls{0};
  std::atomic<int> failed{0};
  std::atomic<int> verify_failures{0};
  std::atomic<size_t> most_held{0};
  auto client = [&](unsigned seed, const ModeCall& set_mode) {
    std::mt19937 random(seed);
    while (!stop.load()) {
      const auto mode = static_cast<int32_t>(random() % 5);  // Auto or one of the four modes
      const Status s = set_mode(mode);
      ++calls;
      if (s != 0) ++failed;
      if (s == SWITCH_ERR_VERIFY) ++verify_failures;
      int32_t current = 0;
      target.GetCurrentMode(current);
      const size_t held = WorkerTestAccess::threads_started(h.worker());
      size_t most = most_held.load();
      while (held > most && !most_held.compare_exchange_weak(most, held)) {
      }
    }
  };
  auto events = [&] {
    const auto patches = event_patches();
    for (size_t i = 0; !stop.load(); ++i) {
      std::string error;
      EXPECT_TRUE(h.notebook().apply_patch(patches[i % patches.size()], error)) << error;
      h.clock().sleep_ms(700);  // 7 ms of wall time
    }
  };

  std::vector<std::thread> threads;
  for (int c = 0; c < kClients; ++c) {
    threads.emplace_back(client, 1000u + static_cast<unsigned>(c), std::cref(calls_of[c]));
  }
  threads.emplace_back(events);
  h.run_for(kStressMs);
  stop = true;
  for (auto& t : threads) t.join();

  // Every client has stopped: one last fixed mode, other than the user's mode now, asked
  // for the same way; then the clients and the control interface go.
  const int32_t last = h.worker().user_mode() == 2 ? 3 : 2;
  ASSERT_EQ(calls_of[0](last), 0u);
  calls_of.clear();
#if !defined(_WIN32)
  server.reset();
#endif
  ASSERT_TRUE(h.run_until([&] { return !h.worker().auto_thread_running(); }, 10 * 1000 * kSpeed));
  h.run_for(5000);  // what a stopped loop could still do, it has had the time for

  std::printf("stress: %d calls, %d writes, at most %zu threads held\n", calls.load(),
              h.device().writes.load(), most_held.load());
  EXPECT_GT(calls.load(), 100) << "the clients ran";
  EXPECT_EQ(failed.load(), 0) << verify_failures.load() << " of them with 7";
  EXPECT_EQ(h.device().verify_mismatches.load(), 0) << "no write was overtaken before its check";
  EXPECT_EQ(h.worker().user_mode(), static_cast<uint32_t>(last));
  EXPECT_EQ(h.notebook().mode(), last);
  int32_t current = 0;
  EXPECT_EQ(target.GetCurrentMode(current), 0u);
  EXPECT_EQ(current, last);
  EXPECT_LE(most_held.load(), 16u) << "ended threads are joined as periods come and go";

  h.worker().stop_and_join_auto_threads();
  EXPECT_EQ(WorkerTestAccess::threads_started(h.worker()), 0u);
  if (tasks_before >= 0) {
    EXPECT_LE(task_count(), tasks_before) << "no thread of the stress is left";
  }
  if (descriptors_before >= 0) {
    EXPECT_LE(descriptor_count(), descriptors_before) << "no descriptor of the stress is left";
  }
}

}  // namespace
}  // namespace zaltor::engine::autotest
