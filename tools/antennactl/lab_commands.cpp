// "antennactl lab ...": configurations evaluated on scenarios in virtual time. Each scenario
// and configuration runs in a child process of its own (the engine keeps process-wide state,
// the WLAN callback's remembered worker), as many at once as the machine has cores.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "antennactl/commands.h"

#if defined(_WIN32)

namespace antennactl {
int run_lab_command(int, char**) {
  std::fprintf(stderr, "antennactl: the lab runs on the Linux build only\n");
  return 2;
}
}  // namespace antennactl

#else

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "lab/lab_output.h"
#include "lab/lab_replay.h"
#include "lab/lab_report.h"
#include "lab/lab_run.h"

namespace antennactl {
namespace {

void lab_usage() {
  std::fprintf(
      stderr,
      "usage: antennactl lab run --model NAME --config FILE [--config FILE ...] [--json]\n"
      "                          [--report OUT.html] [--jobs N] [--trace] SCENARIO.json ...\n"
      "       antennactl lab replay RFLOG.txt\n");
}

struct Job {
  zaltor::lab::RunRequest request;
  pid_t pid = -1;
  int fd = -1;
  std::string out;
  bool done = false;
  zaltor::lab::RunResult result;
};

// The child's side: one run, its result as JSON on `fd`.
[[noreturn]] void run_child(const zaltor::lab::RunRequest& request, int fd) {
  const zaltor::lab::RunResult r = zaltor::lab::run_one(request);
  nlohmann::json j;
  j["ok"] = r.ok;
  j["error"] = r.error;
  if (r.ok) {
    j["trace"] = zaltor::lab::trace_to_json(r.trace);
    j["figures"] = zaltor::lab::figures_to_json(r.figures);
  }
  const std::string text = j.dump();
  size_t at = 0;
  while (at < text.size()) {
    const ssize_t n = ::write(fd, text.data() + at, text.size() - at);
    if (n <= 0) break;
    at += static_cast<size_t>(n);
  }
  ::close(fd);
  std::fflush(nullptr);
  ::_exit(0);
}

bool start_job(Job& job) {
  int fds[2];
  if (::pipe(fds) != 0) return false;
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid < 0) {
    ::close(fds[0]);
    ::close(fds[1]);
    return false;
  }
  if (pid == 0) {
    ::close(fds[0]);
    run_child(job.request, fds[1]);
  }
  ::close(fds[1]);
  job.pid = pid;
  job.fd = fds[0];
  return true;
}

void finish_job(Job& job) {
  ::close(job.fd);
  job.fd = -1;
  int status = 0;
  ::waitpid(job.pid, &status, 0);
  job.done = true;
  const nlohmann::json j = nlohmann::json::parse(job.out, nullptr, false);
  if (j.is_discarded() || !j.is_object()) {
    job.result.error = "scenario " + job.request.scenario_path + " with configuration " +
                       job.request.config_path + ": the run ended without a result";
    return;
  }
  job.result.ok = j.value("ok", false);
  job.result.error = j.value("error", "");
  if (job.result.ok && (!zaltor::lab::trace_from_json(j["trace"], job.result.trace) ||
                        !zaltor::lab::figures_from_json(j["figures"], job.result.figures))) {
    job.result.ok = false;
    job.result.error = "scenario " + job.request.scenario_path + ": the run's trace is unreadable";
  }
}

// Runs every job, at most `parallel` at once.
void run_jobs(std::vector<Job>& jobs, size_t parallel) {
  size_t next = 0;
  std::vector<size_t> active;
  while (next < jobs.size() || !active.empty()) {
    while (active.size() < parallel && next < jobs.size()) {
      if (!start_job(jobs[next])) {
        jobs[next].done = true;
        jobs[next].result.error = "cannot start a run for " + jobs[next].request.scenario_path;
      } else {
        active.push_back(next);
      }
      ++next;
    }
    if (active.empty()) continue;
    std::vector<pollfd> fds;
    for (size_t i : active) fds.push_back({jobs[i].fd, POLLIN, 0});
    if (::poll(fds.data(), fds.size(), -1) < 0) continue;
    for (size_t k = 0; k < fds.size(); ++k) {
      if ((fds[k].revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
      Job& job = jobs[active[k]];
      char buf[65536];
      const ssize_t n = ::read(job.fd, buf, sizeof buf);
      if (n > 0) {
        job.out.append(buf, static_cast<size_t>(n));
      } else {
        finish_job(job);
      }
    }
    std::vector<size_t> still;
    for (size_t i : active) {
      if (!jobs[i].done) still.push_back(i);
    }
    active.swap(still);
  }
}

int lab_run(int argc, char** argv) {
  std::string model;
  std::vector<std::string> configs;
  std::vector<std::string> scenarios;
  std::string report;
  bool as_json = false;
  bool traces = false;
  long jobs_wanted = 0;
  for (int i = 2; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--model" && i + 1 < argc) {
      model = argv[++i];
    } else if (arg == "--config" && i + 1 < argc) {
      configs.push_back(argv[++i]);
    } else if (arg == "--report" && i + 1 < argc) {
      report = argv[++i];
    } else if (arg == "--jobs" && i + 1 < argc) {
      char* end = nullptr;
      jobs_wanted = std::strtol(argv[++i], &end, 10);
      if (end == nullptr || *end != '\0' || jobs_wanted < 1) {
        lab_usage();
        return kExitUsage;
      }
    } else if (arg == "--json") {
      as_json = true;
    } else if (arg == "--trace") {
      as_json = true;
      traces = true;
    } else if (arg.size() > 1 && arg[0] == '-') {
      lab_usage();
      return kExitUsage;
    } else {
      scenarios.push_back(arg);
    }
  }
  if (model.empty() || configs.empty() || scenarios.empty()) {
    lab_usage();
    return kExitUsage;
  }

  std::vector<Job> jobs;
  for (const auto& s : scenarios) {
    for (const auto& c : configs) {
      Job job;
      job.request = {s, c, model, true};
      jobs.push_back(std::move(job));
    }
  }
  const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
  run_jobs(jobs, jobs_wanted > 0 ? static_cast<size_t>(jobs_wanted) : cores);

  int refused = 0;
  std::vector<zaltor::lab::RunRow> rows;
  for (auto& job : jobs) {
    if (!job.result.ok) {
      std::fprintf(stderr, "antennactl: %s\n", job.result.error.c_str());
      ++refused;
      continue;
    }
    zaltor::lab::RunRow row;
    row.scenario = job.request.scenario_path;
    row.config = job.request.config_path;
    row.trace = std::move(job.result.trace);
    row.figures = job.result.figures;
    rows.push_back(std::move(row));
  }
  if (refused > 0) return kExitRefused;

  if (as_json) {
    std::printf("%s\n", zaltor::lab::runs_to_json(rows, traces).dump(traces ? -1 : 2).c_str());
  } else {
    std::fputs(zaltor::lab::runs_to_table(rows).c_str(), stdout);
  }
  if (!report.empty()) {
    std::string error;
    if (!zaltor::lab::write_report(report, rows, model, error)) {
      std::fprintf(stderr, "antennactl: %s\n", error.c_str());
      return kExitRefused;
    }
  }
  return kExitDone;
}

int lab_replay(int argc, char** argv) {
  if (argc != 3) {
    lab_usage();
    return kExitUsage;
  }
  std::vector<uint8_t> data;
  if (!zaltor::lab::read_whole_file(argv[2], data)) {
    std::fprintf(stderr, "antennactl: log %s: cannot be read\n", argv[2]);
    return kExitRefused;
  }
  std::string error;
  nlohmann::json scenario;
  if (!zaltor::lab::scenario_from_log(std::string(data.begin(), data.end()), scenario, error)) {
    std::fprintf(stderr, "antennactl: log %s: %s\n", argv[2], error.c_str());
    return kExitRefused;
  }
  std::printf("%s\n", scenario.dump(2).c_str());
  return kExitDone;
}

}  // namespace

int run_lab_command(int argc, char** argv) {
  if (argc < 2) {
    lab_usage();
    return kExitUsage;
  }
  const std::string verb = argv[1];
  if (verb == "run") return lab_run(argc, argv);
  if (verb == "replay") return lab_replay(argc, argv);
  lab_usage();
  return kExitUsage;
}

}  // namespace antennactl

#endif
