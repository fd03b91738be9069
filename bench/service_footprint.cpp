// The memory the running service keeps: the built ZaltorMultiAntennaSvc runs in console mode
// on the simulated two-switch notebook of samples/scenarios/noisy-office.json in Auto mode,
// in real time. Once it has finished three decision passes (three "Sleep:" lines, some
// twenty seconds in) the benchmark reads the process's resident memory from
// /proc/PID/status and stops it with Ctrl+C (SIGINT).
// Reported, in kB: rss_kb (VmRSS, the figure to watch), anon_kb (heap, stacks and other
// private memory) and file_kb (pages of the program and of the shared libraries).
//
// Run: build/bin/service_footprint
// The service and Conf.bin are taken from this program's own folder and run from a
// temporary folder, with a temporary registry substitute (ZALTOR_STATE_DIR).
#include <benchmark/benchmark.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

extern char** environ;

namespace {

namespace fs = std::filesystem;

// Measured after this many decision passes (each ends with its "Sleep:" line).
constexpr int kPasses = 3;
constexpr int kPassesTimeoutMs = 180000;

// VmRSS, RssAnon and RssFile of `pid`, in kB.
std::map<std::string, long> resident_memory(pid_t pid) {
  std::map<std::string, long> kb;
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string key;
  long value = 0;
  std::string unit;
  while (status >> key) {
    if (key == "VmRSS:" || key == "RssAnon:" || key == "RssFile:") {
      status >> value >> unit;
      kb[key] = value;
    } else {
      status.ignore(1 << 12, '\n');
    }
  }
  return kb;
}

// Reads the child's console until `marker` has appeared `count` times; false on end of output
// or timeout.
bool wait_for_lines(int fd, const std::string& marker, int count, int timeout_ms) {
  std::string seen;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  char buffer[4096];
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                          deadline - std::chrono::steady_clock::now())
                          .count();
    if (left <= 0) return false;
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, static_cast<int>(left)) <= 0) continue;
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n <= 0) return false;
    seen.append(buffer, static_cast<size_t>(n));
    for (size_t at = seen.find(marker); at != std::string::npos; at = seen.find(marker)) {
      if (--count == 0) return true;
      seen.erase(0, at + marker.size());
    }
    // Keep only a tail long enough to hold a marker split across two reads.
    if (seen.size() > marker.size()) seen.erase(0, seen.size() - marker.size());
  }
}

void bm_service_resident_memory(benchmark::State& state) {
  const fs::path bin = fs::read_symlink("/proc/self/exe").parent_path();
  const fs::path dir =
      fs::temp_directory_path() / ("zaltor-footprint-" + std::to_string(::getpid()));
  fs::remove_all(dir);
  const fs::path key = dir / "state/SOFTWARE/ZALTOR/ZALTOR MultiAntenna";
  fs::create_directories(key);
  std::ofstream(key / "ConfigVersion") << "2.0";
  for (const char* file : {"ZaltorMultiAntennaSvc", "Conf.bin"}) {
    fs::copy_file(bin / file, dir / file, fs::copy_options::overwrite_existing);
  }
  std::vector<std::string> env_text = {
      "ZALTOR_PLATFORM=sim",
      "ZALTOR_STATE_DIR=" + (dir / "state").string(),
      "ZALTOR_SIM_SCENARIO=" + std::string(ZALTOR_SOURCE_DIR) +
          "/samples/scenarios/noisy-office.json",
      "ZALTOR_RPC_ENDPOINT=ZaltorFootprint-" + std::to_string(::getpid()),
  };
  for (char** e = environ; *e != nullptr; ++e) {
    const std::string entry = *e;
    if (entry.rfind("ZALTOR_", 0) != 0) env_text.push_back(entry);
  }
  std::vector<char*> envp;
  for (auto& e : env_text) envp.push_back(e.data());
  envp.push_back(nullptr);
  const std::string program = (dir / "ZaltorMultiAntennaSvc").string();
  std::string console_flag = "-console";
  std::vector<char*> argv = {const_cast<char*>(program.c_str()), console_flag.data(), nullptr};

  int out[2];
  if (::pipe(out) != 0) {
    state.SkipWithError("pipe failed");
    return;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addchdir_np(&actions, dir.c_str());
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDERR_FILENO);
  posix_spawn_file_actions_addclose(&actions, out[0]);
  pid_t pid = 0;
  const int spawned =
      ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  ::close(out[1]);
  if (spawned != 0) {
    ::close(out[0]);
    state.SkipWithError("the service did not start");
    return;
  }

  std::map<std::string, long> kb;
  for (auto _ : state) {
    if (!wait_for_lines(out[0], "Sleep:", kPasses, kPassesTimeoutMs)) {
      state.SkipWithError("the service did not finish a decision pass");
      break;
    }
    kb = resident_memory(pid);
  }
  // Ctrl+C; its console output is drained meanwhile, so that a full pipe cannot hold it.
  ::kill(pid, SIGINT);
  int status = 0;
  pid_t ended = 0;
  char drain[4096];
  for (int i = 0; i < 100 && (ended = ::waitpid(pid, &status, WNOHANG)) == 0; ++i) {
    pollfd p{out[0], POLLIN, 0};
    if (::poll(&p, 1, 50) > 0 && ::read(out[0], drain, sizeof drain) <= 0) ::usleep(50000);
  }
  if (ended == 0) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, &status, 0);
  }
  ::close(out[0]);
  fs::remove_all(dir);
  state.counters["rss_kb"] = static_cast<double>(kb["VmRSS:"]);
  state.counters["anon_kb"] = static_cast<double>(kb["RssAnon:"]);
  state.counters["file_kb"] = static_cast<double>(kb["RssFile:"]);
}
BENCHMARK(bm_service_resident_memory)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
