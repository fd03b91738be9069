// Control commands of antennactl: each opens a control context on the running service,
// makes its calls, closes the context and prints what it got (as text or, with --json, as
// one JSON object). Exit codes: 0 the calls completed (whatever their status), 2 usage,
// 3 the service could not be reached or a call faulted.
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "antennactl/commands.h"
#include "platform/control_client.h"
#include "rpc/control_interface.h"

namespace antennactl {
namespace {

namespace platform = zaltor::platform;
namespace rpc = zaltor::rpc;

// Long enough for a sweep over all ports in a fixed mode (two stabilisation waits).
constexpr int kControlCallTimeoutMs = 30000;

const char* const kPortNames[] = {"Main", "Aux", "Aux2", "Aux3"};
const char* const kPositionNames[] = {"Main", "Div", "Off"};

std::string fault_text(uint32_t code) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "0x%08X", static_cast<unsigned>(code));
  return buf;
}

// Decimal or 0x-hex, optionally negative, within 32 bits.
bool parse_long(const char* text, int32_t& out) {
  if (text == nullptr || *text == '\0') return false;
  const char* p = text;
  bool negative = false;
  if (*p == '-' || *p == '+') {
    negative = *p == '-';
    ++p;
  }
  int base = 10;
  if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) {
    base = 16;
    p += 2;
  }
  if (*p == '\0') return false;
  errno = 0;
  char* end = nullptr;
  const unsigned long long v = std::strtoull(p, &end, base);
  if (errno != 0 || *end != '\0' || *p == '-' || *p == '+') return false;
  // Hex may spell a full 32-bit pattern (0xC0000094); decimal stays within long's range.
  if (negative) {
    if (v > 0x80000000ull) return false;
    out = static_cast<int32_t>(-static_cast<int64_t>(v));
    return true;
  }
  if (v > (base == 16 ? 0xFFFFFFFFull : 0x7FFFFFFFull)) return false;
  out = static_cast<int32_t>(static_cast<uint32_t>(v));
  return true;
}

// One session with the service: a connection and an open context.
class Session {
 public:
  // False (with `error`) when the service cannot be reached or refuses the context.
  bool open(uint32_t& error) {
    client_ = platform::connect_control_client(rpc::endpoint_name_from_environment(),
                                               kControlCallTimeoutMs, error);
    if (!client_) return false;
    error = client_->open_context(context_);
    return error == 0;
  }
  ~Session() {
    if (client_ && !context_.is_null()) client_->close_context(context_);
  }
  platform::ControlClient& client() { return *client_; }
  const platform::ContextHandleWire& context() const { return context_; }

 private:
  std::unique_ptr<platform::ControlClient> client_;
  platform::ContextHandleWire context_;
};

int unreachable(uint32_t error) {
  std::fprintf(stderr, "antennactl: cannot reach the service at endpoint \"%s\" (%s)\n",
               rpc::endpoint_name_from_environment().c_str(), fault_text(error).c_str());
  return kExitFault;
}

std::string join(const std::vector<int32_t>& v, const char* sep) {
  std::string s;
  for (size_t i = 0; i < v.size(); ++i) {
    if (i > 0) s += sep;
    s += std::to_string(v[i]);
  }
  return s;
}

// --- call ---------------------------------------------------------------------------------

// The numbers a call takes after its command code.
size_t argument_count(uint32_t procedure) {
  return static_cast<size_t>(platform::long_arguments(procedure) - 1);
}

int run_call(const std::vector<std::string>& args, bool json) {
  if (args.size() < 2) {
    std::fprintf(stderr, "usage: antennactl call PROCEDURE CODE [ARG ...]\n");
    return kExitUsage;
  }
  uint32_t procedure = 0;
  int32_t number = 0;
  if (!rpc::procedure_by_name(args[0], procedure)) {
    if (!parse_long(args[0].c_str(), number) || number < 0) number = -1;
    procedure = static_cast<uint32_t>(number);
  }
  if (procedure < rpc::kQueryValue || procedure > rpc::kQueryArray) {
    std::fprintf(stderr,
                 "antennactl: unknown procedure \"%s\" (QueryValue, QueryIndexedValue, "
                 "SetValue, SetPairedValue, QueryArray or 2..6)\n",
                 args[0].c_str());
    return kExitUsage;
  }
  const size_t want = argument_count(procedure);
  if (args.size() != 2 + want) {
    std::fprintf(stderr, "antennactl: %s takes a command code and %zu argument(s)\n",
                 rpc::procedure_name(procedure), want);
    return kExitUsage;
  }
  int32_t code = 0;
  int32_t a[2] = {0, 0};
  if (!parse_long(args[1].c_str(), code)) {
    std::fprintf(stderr, "antennactl: bad command code \"%s\"\n", args[1].c_str());
    return kExitUsage;
  }
  for (size_t i = 0; i < want; ++i) {
    if (!parse_long(args[2 + i].c_str(), a[i])) {
      std::fprintf(stderr, "antennactl: bad argument \"%s\"\n", args[2 + i].c_str());
      return kExitUsage;
    }
  }

  auto print_fault = [&](uint32_t fault) {
    if (json) {
      std::printf("{\"fault\":\"%s\"}\n", fault_text(fault).c_str());
    } else {
      std::printf("fault=%s\n", fault_text(fault).c_str());
    }
    return kExitFault;
  };

  Session s;
  uint32_t error = 0;
  if (!s.open(error)) return print_fault(error);
  platform::ControlClient& c = s.client();
  int32_t status = 0;
  int32_t value = 0;
  std::vector<int32_t> values;
  uint32_t fault = 0;
  switch (procedure) {
    case rpc::kQueryValue:
      fault = c.query_value(s.context(), code, status, value);
      break;
    case rpc::kQueryIndexedValue:
      fault = c.query_indexed_value(s.context(), code, a[0], status, value);
      break;
    case rpc::kSetValue:
      fault = c.set_value(s.context(), code, a[0], status);
      break;
    case rpc::kSetPairedValue:
      fault = c.set_paired_value(s.context(), code, a[0], a[1], status);
      break;
    default:
      fault = c.query_array(s.context(), code, a[0], status, values);
      break;
  }
  if (fault != 0) return print_fault(fault);

  const bool has_value = platform::returns_value(procedure);
  if (json) {
    std::printf("{\"status\":%d", status);
    if (has_value) std::printf(",\"value\":%d", value);
    if (procedure == rpc::kQueryArray) std::printf(",\"values\":[%s]", join(values, ",").c_str());
    std::printf("}\n");
  } else {
    std::printf("status=%d\n", status);
    if (has_value) std::printf("value=%d\n", value);
    if (procedure == rpc::kQueryArray) std::printf("values=%s\n", join(values, ",").c_str());
  }
  return kExitDone;
}

// --- status -------------------------------------------------------------------------------

// One value read for the status screen: its status, or the fault that ended the call.
struct Reading {
  uint32_t fault = 0;
  int32_t status = 0;
  int32_t value = 0;
};

Reading read_value(Session& s, int32_t code) {
  Reading r;
  r.fault = s.client().query_value(s.context(), code, r.status, r.value);
  return r;
}

std::string reading_text(const Reading& r, const char* unit = "") {
  if (r.fault != 0) return "fault " + fault_text(r.fault);
  if (r.status != 0) return "unavailable (status " + std::to_string(r.status) + ")";
  return std::to_string(r.value) + unit;
}

std::string reading_json(const Reading& r) {
  if (r.fault != 0) return "{\"fault\":\"" + fault_text(r.fault) + "\"}";
  std::string s = "{\"status\":" + std::to_string(r.status);
  if (r.status == 0) s += ",\"value\":" + std::to_string(r.value);
  return s + "}";
}

std::string mode_text(const Reading& r) {
  if (r.fault != 0 || r.status != 0) return reading_text(r);
  if (r.value == 0) return "auto (0)";
  if (r.value == 99) return "unknown (99)";
  return std::to_string(r.value);
}

// Ports that have an RSSI reading: at most three.
int32_t rssi_ports(const Reading& switch_count) {
  if (switch_count.fault != 0 || switch_count.status != 0) return 3;
  return switch_count.value < 0 ? 0 : (switch_count.value > 3 ? 3 : switch_count.value);
}

int run_status(bool json) {
  Session s;
  uint32_t error = 0;
  if (!s.open(error)) return unreachable(error);
  const Reading switches = read_value(s, rpc::kGetSwitchCount);
  const Reading modes = read_value(s, rpc::kGetModeCount);
  const Reading user_mode = read_value(s, rpc::kGetUserMode);
  const Reading current = read_value(s, rpc::kGetCurrentMode);
  const Reading auto_state = read_value(s, rpc::kGetAutoState);
  const Reading average = read_value(s, rpc::kGetAverageRssi);
  const int32_t ports = rssi_ports(switches);
  int32_t rssi_status = 0;
  std::vector<int32_t> rssi;
  const uint32_t rssi_fault =
      s.client().query_array(s.context(), rpc::kGetRssiCurrentMode, ports, rssi_status, rssi);

  bool faulted = rssi_fault != 0;
  for (const Reading* r : {&switches, &modes, &user_mode, &current, &auto_state, &average}) {
    faulted = faulted || r->fault != 0;
  }

  if (json) {
    std::printf(
        "{\"switchCount\":%s,\"modeCount\":%s,\"userMode\":%s,\"currentMode\":%s,"
        "\"autoState\":%s,\"averageRssi\":%s,\"currentModeRssi\":",
        reading_json(switches).c_str(), reading_json(modes).c_str(),
        reading_json(user_mode).c_str(), reading_json(current).c_str(),
        reading_json(auto_state).c_str(), reading_json(average).c_str());
    if (rssi_fault != 0) {
      std::printf("{\"fault\":\"%s\"}}\n", fault_text(rssi_fault).c_str());
    } else {
      std::printf("{\"status\":%d,\"values\":[%s]}}\n", rssi_status, join(rssi, ",").c_str());
    }
    return faulted ? kExitFault : kExitDone;
  }

  std::printf("switches:      %s\n", reading_text(switches).c_str());
  std::printf("modes:         %s\n", reading_text(modes).c_str());
  std::printf("user mode:     %s\n", mode_text(user_mode).c_str());
  std::printf("current mode:  %s\n", mode_text(current).c_str());
  if (auto_state.fault == 0 && auto_state.status == 0) {
    std::printf("auto state:    %s (%d)\n", auto_state_name(auto_state.value), auto_state.value);
  } else {
    std::printf("auto state:    %s\n", reading_text(auto_state).c_str());
  }
  std::printf("average RSSI:  %s\n", reading_text(average, " dBm").c_str());
  std::printf("current-mode RSSI:");
  if (rssi_fault != 0) {
    std::printf(" fault %s\n", fault_text(rssi_fault).c_str());
  } else if (rssi_status != 0) {
    std::printf(" unavailable (status %d)\n", rssi_status);
  } else {
    for (size_t i = 0; i < rssi.size(); ++i) {
      std::printf("%s %s %d dBm", i == 0 ? "" : ",", kPortNames[i], rssi[i]);
    }
    std::printf("\n");
  }
  return faulted ? kExitFault : kExitDone;
}

// --- rssi ---------------------------------------------------------------------------------

int run_rssi(const std::vector<std::string>& args, bool json) {
  bool all_ports = false;
  for (const std::string& a : args) {
    if (a == "--all-ports") {
      all_ports = true;
    } else {
      std::fprintf(stderr, "usage: antennactl rssi [--all-ports]\n");
      return kExitUsage;
    }
  }
  Session s;
  uint32_t error = 0;
  if (!s.open(error)) return unreachable(error);
  const Reading switches = read_value(s, rpc::kGetSwitchCount);
  if (switches.fault != 0) return unreachable(switches.fault);
  const int32_t ports = rssi_ports(switches);
  const int32_t count = all_ports ? 2 * ports : ports;
  int32_t status = 0;
  std::vector<int32_t> values;
  const uint32_t fault = s.client().query_array(
      s.context(), all_ports ? rpc::kGetRssiAllPorts : rpc::kGetRssiCurrentMode, count, status,
      values);
  if (fault != 0) {
    std::fprintf(stderr, "antennactl: the call faulted (%s)\n", fault_text(fault).c_str());
    return kExitFault;
  }
  if (json) {
    std::printf("{\"status\":%d,\"ports\":%d,\"values\":[%s]}\n", status, ports,
                join(values, ",").c_str());
    return kExitDone;
  }
  if (status != 0) {
    std::printf("status=%d\n", status);
    return kExitDone;
  }
  const int rows = all_ports ? 2 : 1;
  for (int row = 0; row < rows; ++row) {
    if (all_ports) std::printf("%s: ", kPositionNames[row]);
    for (int32_t p = 0; p < ports; ++p) {
      std::printf("%s%s %d dBm", p == 0 ? "" : ", ", kPortNames[p],
                  values[static_cast<size_t>(row * ports + p)]);
    }
    std::printf("\n");
  }
  return kExitDone;
}

// --- mode, switch, line -------------------------------------------------------------------

bool same_letters(const std::string& a, const char* b) {
  if (a.size() != std::strlen(b)) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i]))) {
      return false;
    }
  }
  return true;
}

bool parse_position(const std::string& text, int32_t& position) {
  for (int32_t i = 0; i < 3; ++i) {
    if (same_letters(text, kPositionNames[i])) {
      position = i;
      return true;
    }
  }
  return parse_long(text.c_str(), position);
}

int print_status_only(uint32_t fault, int32_t status, bool json) {
  if (fault != 0) {
    std::fprintf(stderr, "antennactl: the call faulted (%s)\n", fault_text(fault).c_str());
    return kExitFault;
  }
  if (json) {
    std::printf("{\"status\":%d}\n", status);
  } else {
    std::printf("status=%d\n", status);
  }
  return kExitDone;
}

int print_status_value(uint32_t fault, int32_t status, int32_t value, bool json) {
  if (fault != 0) {
    std::fprintf(stderr, "antennactl: the call faulted (%s)\n", fault_text(fault).c_str());
    return kExitFault;
  }
  if (json) {
    std::printf("{\"status\":%d,\"value\":%d}\n", status, value);
  } else {
    std::printf("status=%d\n", status);
    if (status == 0) std::printf("value=%d\n", value);
  }
  return kExitDone;
}

int run_mode(const std::vector<std::string>& args, bool json) {
  int32_t mode = 0;
  if (args.size() != 1 || (args[0] != "auto" && (!parse_long(args[0].c_str(), mode)))) {
    std::fprintf(stderr, "usage: antennactl mode auto|N\n");
    return kExitUsage;
  }
  Session s;
  uint32_t error = 0;
  if (!s.open(error)) return unreachable(error);
  int32_t status = 0;
  const uint32_t fault = s.client().set_value(s.context(), rpc::kSetUserMode, mode, status);
  return print_status_only(fault, status, json);
}

// "switch get K" / "switch set K POS" and "line get ID" / "line set ID LEVEL".
int run_get_set(const char* word, const std::vector<std::string>& args, bool json, int32_t get_code,
                int32_t set_code, bool positions) {
  int32_t index = 0;
  int32_t level = 0;
  const bool get = args.size() == 2 && args[0] == "get" && parse_long(args[1].c_str(), index);
  const bool set =
      args.size() == 3 && args[0] == "set" && parse_long(args[1].c_str(), index) &&
      (positions ? parse_position(args[2], level) : parse_long(args[2].c_str(), level));
  if (!get && !set) {
    if (positions) {
      std::fprintf(stderr, "usage: antennactl %s get K | %s set K Main|Div|Off|0|1|2\n", word,
                   word);
    } else {
      std::fprintf(stderr, "usage: antennactl %s get ID | %s set ID LEVEL\n", word, word);
    }
    return kExitUsage;
  }
  Session s;
  uint32_t error = 0;
  if (!s.open(error)) return unreachable(error);
  int32_t status = 0;
  if (get) {
    int32_t value = 0;
    const uint32_t fault =
        s.client().query_indexed_value(s.context(), get_code, index, status, value);
    return print_status_value(fault, status, value, json);
  }
  const uint32_t fault = s.client().set_paired_value(s.context(), set_code, index, level, status);
  return print_status_only(fault, status, json);
}

}  // namespace

const char* auto_state_name(int32_t v) {
  switch (v) {
    case 0:
      return "measuring";
    case 1:
      return "idle";
    case 2:
      return "ended";
    default:
      return "?";
  }
}

int run_control_command(int argc, char** argv) {
  const std::string command = argv[0];
  bool json = false;
  std::vector<std::string> args;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--json") == 0) {
      json = true;
    } else {
      args.emplace_back(argv[i]);
    }
  }
  if (command == "help" || command == "--help" || command == "-h") {
    print_usage();
    return kExitDone;
  }
  if (command == "status" && args.empty()) return run_status(json);
  if (command == "mode") return run_mode(args, json);
  if (command == "rssi") return run_rssi(args, json);
  if (command == "switch") {
    return run_get_set("switch", args, json, rpc::kGetSwitchPosition, rpc::kSetSwitchPosition,
                       true);
  }
  if (command == "line") {
    return run_get_set("line", args, json, rpc::kGetControlBit, rpc::kSetControlBit, false);
  }
  if (command == "call") return run_call(args, json);
  if (is_diagnostics_command(command)) return run_diagnostics_command(command, args, json);
  print_usage();
  return kExitUsage;
}

void print_usage() {
  std::fprintf(
      stderr,
      "usage: antennactl COMMAND [ARG ...] [--json]\n"
      "\n"
      "Talking to the running service (endpoint from ZALTOR_RPC_ENDPOINT, default\n"
      "ZaltorMultiAntennaRpcEndpoint):\n"
      "  status                     switch and mode counts, user and current mode, auto state,\n"
      "                             average RSSI and the current mode's RSSI per port\n"
      "  mode auto|N                choose automatic selection or fixed mode N\n"
      "  rssi [--all-ports]         RSSI of the current mode, or of every port in both\n"
      "                             switch positions\n"
      "  switch get K               position of switch K\n"
      "  switch set K POS           drive switch K to POS (Main, Div, Off or 0, 1, 2)\n"
      "  line get ID                level of control line ID\n"
      "  line set ID LEVEL          set control line ID to LEVEL\n"
      "  call PROCEDURE CODE [ARG ...]\n"
      "                             one raw call: PROCEDURE is QueryValue, QueryIndexedValue,\n"
      "                             SetValue, SetPairedValue or QueryArray (ARG: the count);\n"
      "                             CODE and ARG decimal or 0x-hex; prints status=N,\n"
      "                             value=N or values=N,N,..., or fault=0xXXXXXXXX\n"
      "  why                        the last decision of the auto loop, in plain words\n"
      "  history [N]                the last N decisions (all kept: at least 64), oldest first\n"
      "  health                     per antenna port: ok, no-signal, not-switching,\n"
      "                             line-fault or unknown, with the reason\n"
      "  watch                      a live view redrawn every second until Ctrl+C\n"
      "  --json                     print the data of any of these (but watch) as JSON\n"
      "\n"
      "Working on configuration files:\n"
      "  config encrypt Conf.ini Conf.bin\n"
      "  config decrypt Conf.bin Conf.ini\n"
      "  config check FILE --model NAME --switches N\n"
      "\n"
      "Evaluating configurations on simulated notebooks in virtual time (Linux build):\n"
      "  lab run --model NAME --config FILE [--config FILE ...] [--json] [--report OUT.html]\n"
      "          [--jobs N] SCENARIO.json ...\n"
      "  lab replay RFLOG.txt       print a scenario that reproduces a log's measurements\n"
      "\n"
      "Exit codes: 0 done (whatever the service's status), 1 a configuration was refused,\n"
      "2 usage error, 3 the service could not be reached or the call faulted.\n");
}

}  // namespace antennactl
