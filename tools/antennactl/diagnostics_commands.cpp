// Diagnostics commands of antennactl: why, history, health and watch read the service's
// decision journal and antenna health over the diagnostics interface (no control context
// is needed) and print them for a person, or with --json as the service's JSON text.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "antennactl/commands.h"
#include "platform/control_client.h"
#include "rpc/control_interface.h"

namespace antennactl {
namespace {

namespace platform = zaltor::platform;
namespace rpc = zaltor::rpc;
using nlohmann::json;

constexpr int kDiagnosticsCallTimeoutMs = 10000;
// Room asked for first; a longer text is asked for again with the length the service names.
constexpr int32_t kFirstCapacity = 256 * 1024;

const char* const kConfigSetNames[] = {"Conf_2_4G", "Conf_5G", "Conf_BTCoexist", "Conf_LidClosed"};

std::string hex(uint32_t code) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%08X", static_cast<unsigned>(code));
  return buf;
}

// One diagnostics call; 0 with the text, else the fault (a message is printed).
uint32_t read_text(platform::ControlClient& client, uint32_t procedure, int32_t count,
                   std::string& text) {
  int32_t capacity = kFirstCapacity;
  for (int attempt = 0; attempt < 3; ++attempt) {
    int32_t status = 0, length = 0;
    const uint32_t fault =
        client.read_diagnostics(procedure, count, capacity, status, length, text);
    if (fault != 0) {
      std::fprintf(stderr, "antennactl: the diagnostics call failed (%s)\n", hex(fault).c_str());
      return fault;
    }
    if (status == 0) return 0;
    if (status != platform::kDiagnosticsMoreData || length <= capacity ||
        length > platform::kMaxDiagnosticsBytes) {
      std::fprintf(stderr, "antennactl: the service answered status %d\n", status);
      return platform::kRpcCallFailed;
    }
    capacity = length;  // the journal grew between the two calls at most a little
  }
  return platform::kRpcCallFailed;
}

std::unique_ptr<platform::ControlClient> connect(uint32_t& error) {
  auto client = platform::connect_control_client(rpc::endpoint_name_from_environment(),
                                                 kDiagnosticsCallTimeoutMs, error);
  if (!client) {
    std::fprintf(stderr, "antennactl: cannot reach the service at endpoint \"%s\" (%s)\n",
                 rpc::endpoint_name_from_environment().c_str(), hex(error).c_str());
  }
  return client;
}

// Reads and parses one text; false (a message printed) when that failed.
bool read_json(platform::ControlClient& client, uint32_t procedure, int32_t count,
               std::string& text, json& doc) {
  if (read_text(client, procedure, count, text) != 0) return false;
  doc = json::parse(text, nullptr, false);
  if (doc.is_discarded() || !doc.is_object()) {
    std::fprintf(stderr, "antennactl: the service's answer is not a JSON object\n");
    return false;
  }
  return true;
}

// A member of an object, or null when `obj` is not an object or has no such member: the
// printing never depends on the answer having every member it expects.
const json& field(const json& obj, const char* key) {
  static const json kNull;
  if (!obj.is_object()) return kNull;
  const auto it = obj.find(key);
  return it == obj.end() ? kNull : *it;
}

double number(const json& v, double absent = 0.0) {
  return v.is_number() ? v.get<double>() : absent;
}
int integer(const json& v) {
  if (!v.is_number()) return 0;
  const double d = v.get<double>();  // in range before the conversion, whatever was sent
  if (!(d > -2147483648.0 && d < 2147483647.0)) return d > 0 ? 2147483647 : -2147483647 - 1;
  return static_cast<int>(d);
}
std::string str(const json& v) {
  return v.is_string() ? v.get<std::string>() : std::string();
}

const char* trigger_words(const std::string& t) {
  if (t == "start") return "the service started in Auto";
  if (t == "timer") return "the regular timer ran out";
  if (t == "monitor") return "the monitor saw the signal or the rate drop";
  if (t == "lid") return "the lid was opened or closed";
  if (t == "power") return "the power source changed";
  if (t == "device") return "a device arrived or went away";
  if (t == "wlan") return "the Wi-Fi connection changed";
  if (t == "user") return "Auto was chosen after a fixed mode";
  return "unknown";
}

std::string outcome_words(const json& d) {
  const std::string o = str(field(d, "outcome"));
  const int chosen = integer(field(d, "chosen"));
  char buf[160];
  if (o == "chosen") {
    std::snprintf(buf, sizeof buf, "mode %d, chosen by the %s determinator", chosen,
                  str(field(d, "determinator")).c_str());
  } else if (o == "fallback-below-threshold") {
    std::snprintf(buf, sizeof buf, "mode %d (the default): every mode was below the threshold",
                  chosen);
  } else if (o == "fallback-failed-measurement") {
    std::snprintf(buf, sizeof buf, "mode %d (the default): a mode could not be measured at all",
                  chosen);
  } else if (o == "fallback-mismatch") {
    std::snprintf(buf, sizeof buf,
                  "mode %d (the default): RSSI and rate pointed to different modes", chosen);
  } else if (o == "not-connected") {
    std::snprintf(buf, sizeof buf, "mode %d (the default): Wi-Fi was not connected", chosen);
  } else if (o == "run-limit") {
    std::snprintf(buf, sizeof buf, "mode %d (the default): the run count ran out, Auto ended",
                  chosen);
  } else {
    std::snprintf(buf, sizeof buf, "mode %d (%s)", chosen, o.c_str());
  }
  return buf;
}

std::string dbm(const json& v) {
  if (!v.is_number()) return "--";
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.1f", v.get<double>());
  return buf;
}

std::string set_name(int set) {
  return set >= 0 && set < 4 ? kConfigSetNames[set] : std::string("?");
}

void print_decision(const json& d) {
  const int set = integer(field(d, "configSet"));
  const int current = integer(field(d, "currentMode"));
  std::printf("Decision at %.1f s, started because %s (%s).\n", number(field(d, "time")),
              trigger_words(str(field(d, "trigger"))), str(field(d, "trigger")).c_str());
  std::printf(
      "Config set %d (%s), %s determinator, device in %s.\n", set, set_name(set).c_str(),
      str(field(d, "determinator")).c_str(),
      current == 99 ? std::string("no mode").c_str() : ("mode " + std::to_string(current)).c_str());
  const json& modes = field(d, "modes");
  if (modes.is_array() && !modes.empty()) {
    std::printf("\n  mode  samples  RSSI dBm  rate Mbps  weight dB  weighted dBm\n");
    for (const json& m : modes) {
      const int mode = integer(field(m, "mode"));
      if (field(m, "disabled").is_boolean() && field(m, "disabled").get<bool>()) {
        std::printf("  %4d  disabled\n", mode);
        continue;
      }
      std::printf("  %4d  %7d  %8s  %9.1f  %+9.1f  %12s%s\n", mode, integer(field(m, "samples")),
                  dbm(field(m, "rssi")).c_str(), number(field(m, "rate")),
                  number(field(m, "weight")), dbm(field(m, "weighted")).c_str(),
                  mode == integer(field(d, "chosen")) ? "  <- chosen" : "");
    }
    std::printf("\n");
  }
  std::printf("Result: %s.\n", outcome_words(d).c_str());
  const int sleep = integer(field(d, "sleepMs"));
  if (sleep > 0) {
    std::printf("Then it slept %.0f s before deciding again.\n", sleep / 1000.0);
  } else {
    std::printf("It decided again at once.\n");
  }
}

int run_why(bool as_json) {
  uint32_t error = 0;
  auto client = connect(error);
  if (!client) return kExitFault;
  std::string text;
  json doc;
  if (!read_json(*client, platform::kReadLastDecision, 0, text, doc)) return kExitFault;
  if (as_json) {
    std::printf("%s\n", text.c_str());
    return kExitDone;
  }
  const json& d = field(doc, "decision");
  if (!d.is_object()) {
    std::printf("No decision yet: the auto loop has not finished a pass.\n");
    return kExitDone;
  }
  print_decision(d);
  return kExitDone;
}

int run_history(const std::vector<std::string>& args, bool as_json) {
  int32_t count = 0;  // every decision kept
  if (args.size() > 1) {
    std::fprintf(stderr, "usage: antennactl history [N] [--json]\n");
    return kExitUsage;
  }
  if (args.size() == 1) {
    char* end = nullptr;
    const long n = std::strtol(args[0].c_str(), &end, 10);
    if (args[0].empty() || *end != '\0' || n < 1 || n > 100000) {
      std::fprintf(stderr, "usage: antennactl history [N] [--json]  (N a positive count)\n");
      return kExitUsage;
    }
    count = static_cast<int32_t>(n);
  }
  uint32_t error = 0;
  auto client = connect(error);
  if (!client) return kExitFault;
  std::string text;
  json doc;
  if (!read_json(*client, platform::kReadHistory, count, text, doc)) return kExitFault;
  if (as_json) {
    std::printf("%s\n", text.c_str());
    return kExitDone;
  }
  const json& list = field(doc, "decisions");
  if (!list.is_array() || list.empty()) {
    std::printf("No decision yet: the auto loop has not finished a pass.\n");
    return kExitDone;
  }
  std::printf("  time s  trigger  set  determinator  was  chose  sleep s  outcome\n");
  for (const json& d : list) {
    const int current = integer(field(d, "currentMode"));
    std::printf("%8.1f  %-7s  %3d  %-12s  %3s  %5d  %7.0f  %s\n", number(field(d, "time")),
                str(field(d, "trigger")).c_str(), integer(field(d, "configSet")),
                str(field(d, "determinator")).c_str(),
                current == 99 ? "-" : std::to_string(current).c_str(), integer(field(d, "chosen")),
                integer(field(d, "sleepMs")) / 1000.0, str(field(d, "outcome")).c_str());
  }
  return kExitDone;
}

int run_health(bool as_json) {
  uint32_t error = 0;
  auto client = connect(error);
  if (!client) return kExitFault;
  std::string text;
  json doc;
  if (!read_json(*client, platform::kReadHealth, 0, text, doc)) return kExitFault;
  if (as_json) {
    std::printf("%s\n", text.c_str());
    return kExitDone;
  }
  const json& ports = field(doc, "ports");
  if (!ports.is_array() || ports.empty()) {
    std::printf("No antenna ports known yet.\n");
    return kExitDone;
  }
  for (const json& p : ports) {
    const std::string state = str(field(p, "state"));
    std::printf("%-5s  %-13s  %s\n", str(field(p, "port")).c_str(), state.c_str(),
                str(field(p, "detail")).c_str());
  }
  return kExitDone;
}

// --- watch ----------------------------------------------------------------------------------

volatile std::sig_atomic_t g_interrupted = 0;
void on_interrupt(int) {
  g_interrupted = 1;
}

// A bar of the RSSI from -100 dBm (empty) to -30 dBm (full).
std::string bar(const json& rssi, int width) {
  if (!rssi.is_number()) return std::string(static_cast<size_t>(width), '.');
  const double v = rssi.get<double>();
  int n = static_cast<int>((v + 100.0) / 70.0 * width + 0.5);
  n = std::max(0, std::min(width, n));
  return std::string(static_cast<size_t>(n), '#') +
         std::string(static_cast<size_t>(width - n), '.');
}

int run_watch(const std::vector<std::string>& args) {
  // --frames N draws N frames and ends (for scripts and tests); otherwise until Ctrl+C.
  long frames = -1;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--frames" && i + 1 < args.size()) {
      frames = std::strtol(args[i + 1].c_str(), nullptr, 10);
      ++i;
    } else {
      std::fprintf(stderr, "usage: antennactl watch\n");
      return kExitUsage;
    }
  }
  std::signal(SIGINT, on_interrupt);
  uint32_t error = 0;
  auto client = connect(error);
  if (!client) return kExitFault;
  platform::ContextHandleWire context;
  if (const uint32_t e = client->open_context(context); e != 0) {
    std::fprintf(stderr, "antennactl: the service refused a control context (%s)\n",
                 hex(e).c_str());
    return kExitFault;
  }
  using Steady = std::chrono::steady_clock;
  double seen_time = -1.0;       // the decision's time, to notice a new one
  Steady::time_point seen_at{};  // when this view first saw it
  int result = kExitDone;
  for (long frame = 0; !g_interrupted && (frames < 0 || frame < frames); ++frame) {
    int32_t status = 0, current = 0, user = 0, state = 0;
    std::string text;
    json doc;
    if (client->query_value(context, rpc::kGetCurrentMode, status, current) != 0 ||
        client->query_value(context, rpc::kGetUserMode, status, user) != 0 ||
        client->query_value(context, rpc::kGetAutoState, status, state) != 0 ||
        !read_json(*client, platform::kReadLastDecision, 0, text, doc)) {
      result = kExitFault;
      break;
    }
    const json& d = field(doc, "decision");
    std::string out = "\x1b[H\x1b[2J";  // home and clear: the view is redrawn in place
    char line[200];
    std::snprintf(line, sizeof line, "Zaltor multi-antenna service   (Ctrl+C ends)\n\n");
    out += line;
    std::snprintf(line, sizeof line, "Current mode: %s   user's choice: %s   auto loop: %s\n",
                  current == 99 ? "none" : std::to_string(current).c_str(),
                  user == 0 ? "Auto" : std::to_string(user).c_str(), auto_state_name(state));
    out += line;
    if (d.is_object()) {
      const double t = number(field(d, "time"));
      if (t != seen_time) {
        seen_time = t;
        seen_at = Steady::now();
      }
      const double waited = std::chrono::duration<double>(Steady::now() - seen_at).count();
      const double left = integer(field(d, "sleepMs")) / 1000.0 - waited;
      std::snprintf(line, sizeof line, "Last trigger: %s at %.1f s   outcome: %s\n",
                    str(field(d, "trigger")).c_str(), t, str(field(d, "outcome")).c_str());
      out += line;
      if (state == 0) {
        out += "Next pass: measuring now\n\n";
      } else {
        std::snprintf(line, sizeof line, "Next pass: in about %.0f s\n\n", left > 0 ? left : 0.0);
        out += line;
      }
      for (const json& m : field(d, "modes")) {
        const int mode = integer(field(m, "mode"));
        if (field(m, "disabled").is_boolean() && field(m, "disabled").get<bool>()) {
          std::snprintf(line, sizeof line, "  mode %2d  disabled\n", mode);
        } else {
          std::snprintf(line, sizeof line, "  mode %2d  %s  %6s dBm  %6.1f Mbps%s\n", mode,
                        bar(field(m, "rssi"), 30).c_str(), dbm(field(m, "rssi")).c_str(),
                        number(field(m, "rate")),
                        mode == integer(field(d, "chosen")) ? "  <- chosen" : "");
        }
        out += line;
      }
    } else {
      out += "No decision yet.\n";
    }
    std::fputs(out.c_str(), stdout);
    std::fflush(stdout);
    if (frames >= 0 && frame + 1 >= frames) break;
    for (int i = 0; i < 10 && !g_interrupted; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }
  client->close_context(context);
  std::printf("\n");
  return result;
}

}  // namespace

bool is_diagnostics_command(const std::string& command) {
  return command == "why" || command == "history" || command == "health" || command == "watch";
}

int run_diagnostics_command(const std::string& command, const std::vector<std::string>& args,
                            bool as_json) {
  if (command == "why" || command == "health") {
    if (!args.empty()) {
      std::fprintf(stderr, "usage: antennactl %s [--json]\n", command.c_str());
      return kExitUsage;
    }
    return command == "why" ? run_why(as_json) : run_health(as_json);
  }
  if (command == "history") return run_history(args, as_json);
  if (as_json) {
    std::fprintf(stderr, "usage: antennactl watch  (a live view; no --json)\n");
    return kExitUsage;
  }
  return run_watch(args);
}

}  // namespace antennactl
