#pragma once
// The Windows backends of the notebook's hardware seams: the firmware's control device
// (CreateFileW, DeviceIoControl), the base board query (WMI over COM), the setup API's
// device lists, the native Wi-Fi API, performance counters (PDH) and the event window for
// lid, power-source and device-change messages. Windows types stay inside this folder.

#include <memory>

#include "platform/board_query.h"
#include "platform/control_device.h"
#include "platform/counters.h"
#include "platform/device_list.h"
#include "platform/system_events.h"
#include "platform/wlan.h"

namespace zaltor::platform {

// CreateFileW with read and write access, shared read and write, open-existing (a handle of
// -1 or -2 is a failure, GetLastError its code); io_control is DeviceIoControl, synchronous.
std::unique_ptr<ControlDevice> make_win32_control_device();

// WMI: CoInitialize per session (balanced by CoUninitialize when the session ends on the
// thread that made it; a thread already in the multithreaded apartment, RPC_E_CHANGED_MODE,
// is used as it is, reported as S_FALSE and not uninitialised), the WbemLocator, ConnectServer,
// CoSetProxyBlanket, a forward-only WQL query and the "Product" property of each object as UTF-8
// text.
// `name_space`: the WMI namespace to connect to (tests name one that does not exist).
std::unique_ptr<BoardQuery> make_wmi_board_query(const std::string& name_space = kBoardNamespace);

// SetupDiGetClassDevsW (present devices of a class and an enumerator), registry properties
// read into a 1024-byte buffer, the node status property; the list is destroyed with it.
std::unique_ptr<DeviceLists> make_setupapi_device_lists();

// WlanOpenHandle, WlanEnumInterfaces, WlanQueryInterface, WlanRegisterNotification (through
// a static trampoline into the registered callback), WlanCloseHandle when the session ends.
std::unique_ptr<Wlan> make_native_wifi_wlan();

// One real-time PDH query per open_query; counters are added by their full path and read
// as 64-bit integers (PDH_FMT_LARGE). Dropping the query closes it.
std::unique_ptr<Counters> make_pdh_counters();

// A window that is never shown, with its message loop on the thread that creates it;
// power-setting notifications are registered to it.
std::unique_ptr<SystemEvents> make_win32_system_events();

}  // namespace zaltor::platform
