#pragma once
// The hardware seams of the simulated notebook, each working on the notebook's state.

#include <memory>

#include "platform/board_query.h"
#include "platform/control_device.h"
#include "platform/counters.h"
#include "platform/device_list.h"
#include "platform/sim/notebook_core.h"
#include "platform/system_events.h"
#include "platform/wlan.h"

namespace zaltor::platform::sim {

// The one control code of the firmware's control device, and its antenna switch device.
constexpr uint32_t kControlCode = 0x0022240C;
constexpr uint32_t kSwitchDeviceId = 0x00010031;
// The device path, as the service spells it.
constexpr const char* kControlDevicePath = "\\\\.\\ZLTACPI";

// System error codes the simulated hardware answers with.
constexpr uint32_t kErrorFileNotFound = 2;
constexpr uint32_t kErrorInvalidData = 13;
constexpr uint32_t kErrorInvalidParameter = 87;
constexpr uint32_t kErrorNoMoreItems = 259;
constexpr uint32_t kErrorNotFound = 1168;
constexpr uint32_t kErrorInvalidState = 5023;

// PDH result codes.
constexpr uint32_t kPdhNoData = 0x800007D5;
constexpr uint32_t kPdhNoObject = 0xC0000BB8;
constexpr uint32_t kPdhNoCounter = 0xC0000BB9;
constexpr uint32_t kPdhInvalidHandle = 0xC0000BBC;
constexpr uint32_t kPdhBadCounterName = 0xC0000BC0;
constexpr uint32_t kPdhInvalidData = 0xC0000BC6;

// Node status of a started device (DN_DRIVER_LOADED | DN_STARTED | DN_DISABLEABLE |
// DN_NT_ENUMERATOR | DN_NT_DRIVER).
constexpr uint32_t kDevNodeStarted = 0x0180200A;

std::unique_ptr<ControlDevice> make_sim_control_device(NotebookCore& core);
std::unique_ptr<BoardQuery> make_sim_board(NotebookCore& core);
std::unique_ptr<DeviceLists> make_sim_device_lists(NotebookCore& core);
std::unique_ptr<Wlan> make_sim_wlan(NotebookCore& core);
std::unique_ptr<Counters> make_sim_counters(NotebookCore& core);
std::unique_ptr<SystemEvents> make_sim_system_events(NotebookCore& core);

}  // namespace zaltor::platform::sim
