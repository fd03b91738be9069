#include "engine/board_identification.h"

namespace zaltor::engine {

using platform::BoardProducts;
using platform::BoardQuery;
using platform::BoardQueryStep;
using platform::kBoardNamespace;
using platform::kBoardQuery;
using platform::kMaxPorts;
namespace {
constexpr const char* kBlanks = " \t\r\n";
}

std::string trim_blanks(const std::string& text) {
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) return {};
  const size_t last = text.find_last_not_of(kBlanks);
  return text.substr(first, last - first + 1);
}

int32_t BoardIdentification::ConnectWmi() {
  connected_ = false;
  queried_ = false;
  answer_ = query_.base_board_products();
  const auto hr = static_cast<unsigned>(answer_.hr);
  switch (answer_.failed_step) {
    case BoardQueryStep::kInitializeCom:
      console_.print("Failed to initialize COM library. Error code = 0x%x\n", hr);
      return -1;
    case BoardQueryStep::kCreateLocator:
      console_.print("Failed to create IWbemLocator object. Error code = 0x%x\n", hr);
      return -1;
    case BoardQueryStep::kConnect:
      console_.print("Could not connect to namespace %s. Error code = 0x%x\n", kBoardNamespace, hr);
      return -1;
    case BoardQueryStep::kSetProxyBlanket:
      console_.print("Could not set proxy blanket. Error code = 0x%x\n", hr);
      return -1;
    case BoardQueryStep::kExecQuery:
    case BoardQueryStep::kNone:
      break;
  }
  connected_ = true;
  return 0;
}

int32_t BoardIdentification::QueryBaseBoard() {
  if (!connected_) return -1;
  if (answer_.failed_step == BoardQueryStep::kExecQuery) {
    console_.print("Query (%s) failed. Error code = 0x%x\n", kBoardQuery,
                   static_cast<unsigned>(answer_.hr));
    return -1;
  }
  queried_ = true;
  return 0;
}

int32_t BoardIdentification::ReadModelName(std::string& model) {
  model.clear();
  if (!queried_) return 0;
  for (std::string product : answer_.products) {
    if (product.size() > kProductTextLimit) product.resize(kProductTextLimit);
    std::string trimmed = trim_blanks(product);
    // Bounded copy into the 255-byte buffer: a value that does not fit is refused.
    if (trimmed.size() > kModelNameBuffer - 1) trimmed.clear();
    // The buffer is a C string: text after an embedded zero is not part of it.
    model = trimmed.substr(0, trimmed.find('\0'));
  }
  return 0;
}

Status identify_model(BoardIdentification& board, AntennaSwitch& sw, DeviceState& state, Log& log,
                      Console& console, std::string& model_name) {
  model_name.clear();
  if (board.ConnectWmi() != 0 || board.QueryBaseBoard() != 0) {
    log.write(kLogError, "Query model name failed, marked as unsupported device.\n");
    return SWITCH_ERR_NOT_PRESENT;
  }
  console.print("ExecQuery OK!\n");
  board.ReadModelName(model_name);
  log.write(kLogInfo, "ModelName: %s\n", model_name.c_str());

  if (state.control_device() == nullptr) return SWITCH_ERR_STATUS_IO;
  uint32_t flags = 0;
  if (sw.read_status_word(flags) != SWITCH_OK) return SWITCH_ERR_STATUS_IO;
  log.write(kLogInfo, "[SUPPORT_FLAGS] 0x%08x\n", flags);

  int32_t count = 0;
  if (sw.GetSwitchNumber(count) != SWITCH_OK || count <= 0) {
    log.write(kLogError, "MultiAntenna is not Supported!\n");
    return SWITCH_ERR_NOT_PRESENT;
  }
  log.write(kLogInfo, "AntennaSwitchNumber = %d\n", count);
  const int32_t held = count > kMaxPorts ? kMaxPorts : count;
  state.set_switch_count(held);
  state.set_mode_count(1u << held);
  return SWITCH_OK;
}

}  // namespace zaltor::engine
