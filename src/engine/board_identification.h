#pragma once
// Board identification: the mainboard's product name through the board query (WMI's
// Win32_BaseBoard on Windows), and the start-up check that decides whether this machine
// is a supported device (board, support flags, antenna switch number).

#include <cstdint>
#include <memory>
#include <string>

#include "engine/antenna_switch.h"
#include "engine/shared_state.h"
#include "platform/board_query.h"
#include "platform/log.h"
#include "platform/status.h"

namespace zaltor::engine {

constexpr size_t kModelNameBuffer = 255;  // bytes, terminator included
constexpr size_t kProductTextLimit = 1023;

// Removes leading and trailing " \t\r\n".
std::string trim_blanks(const std::string& text);

// The base board query in the worker's three steps: connect, query, read the name. The query
// runs once, in ConnectWmi; the steps then report its answer. Failures are printed to the
// console, not logged.
class BoardIdentification {
 public:
  BoardIdentification(platform::BoardQuery& query, Console& console)
      : query_(query), console_(console) {}

  // Runs the board query: COM, the locator, the connection to "ROOT\CIMV2", the proxy
  // blanket and the query. 0, or -1 when a step before the query failed (printed).
  int32_t ConnectWmi();
  // The outcome of "Select * from Win32_BaseBoard": 0, or -1 (printed; also -1 when
  // ConnectWmi did not succeed).
  int32_t QueryBaseBoard();
  // Every base board overwrites `model` with its trimmed "Product" value, so the last one
  // wins; with none the name stays empty. The copy is bounded to 254 bytes and refuses a
  // longer value instead of truncating it: a refused value leaves the name empty (like a
  // bounded string copy that fails), and a later board may still set it. Returns 0.
  int32_t ReadModelName(std::string& model);

 private:
  platform::BoardQuery& query_;
  Console& console_;
  platform::BoardProducts answer_;
  bool connected_ = false;
  bool queried_ = false;
};

// The model identification of the worker's initialisation:
//   board query (failure: "Query model name failed, marked as unsupported device.\n",
//   level 2, result 3); "ExecQuery OK!\n" to the console; "ModelName: %s\n" (level 4);
//   control device not open: 4; the status word (failed request: 4) logged as
//   "[SUPPORT_FLAGS] 0x%08x\n" (level 4); the switch number (failure or 0 or less:
//   "MultiAntenna is not Supported!\n", level 2, result 3), logged as
//   "AntennaSwitchNumber = %d\n" (level 4) and stored with ModeCount = 1 << SwitchCount.
// A firmware reporting more than four switches is held to four: the switch table has
// four ports and the mode number must stay within 16 modes. Returns 0, 3 or 4.
Status identify_model(BoardIdentification& board, AntennaSwitch& sw, DeviceState& state, Log& log,
                      Console& console, std::string& model_name);

}  // namespace zaltor::engine
