// The Windows hardware backends against the real Win32 functions, run under Wine on the
// build machine: what Wine implements is exercised for real, what it lacks must fail with
// the system's own error codes.
#include <gtest/gtest.h>
#include <windows.h>
// windows.h first: objbase.h builds on its types (and WIN32_LEAN_AND_MEAN leaves COM out).
#include <objbase.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "engine/board_identification.h"
#include "platform/log.h"
#include "platform/win32/wide_text.h"
#include "platform/win32/win32_backends.h"
#include "platform/win32/win32_hardware.h"

namespace zaltor::platform {
namespace {

using engine::BoardIdentification;
using engine::trim_blanks;

constexpr uint32_t kControlCode = 0x0022240C;
constexpr int32_t kWbemInvalidNamespace = static_cast<int32_t>(0x8004100E);
constexpr uint32_t kErrorNoMoreItems = 259;
constexpr uint32_t kPdhInvalidHandle = 0xC0000BBC;
constexpr uint32_t kPdhNoCounter = 0xC0000BB9;
constexpr uint32_t kPdhNoData = 0x800007D5;

// ---- control device ---------------------------------------------------------------------

TEST(Win32ControlDevice, TheFirmwareDeviceIsMissingHereAndOpenAnswersFileNotFound) {
  auto device = make_win32_control_device();
  uint32_t error = 0;
  EXPECT_EQ(device->open("\\\\.\\ZLTACPI", error), nullptr);
  EXPECT_EQ(error, static_cast<uint32_t>(ERROR_FILE_NOT_FOUND));
}

TEST(Win32ControlDevice, AMissingDirectoryAnswersPathNotFound) {
  auto device = make_win32_control_device();
  uint32_t error = 0;
  EXPECT_EQ(device->open("C:\\zaltor-no-such-dir\\ZLTACPI", error), nullptr);
  EXPECT_EQ(error, static_cast<uint32_t>(ERROR_PATH_NOT_FOUND));
}

TEST(Win32ControlDevice, AnOrdinaryFileOpensButRefusesTheControlRequest) {
  std::random_device rd;
  const auto path =
      std::filesystem::temp_directory_path() / ("zaltor-ctl-" + std::to_string(rd()) + ".bin");
  { std::ofstream(path, std::ios::binary) << "not a device"; }
  const auto u8 = path.u8string();
  auto device = make_win32_control_device();
  uint32_t error = 1234;
  auto handle = device->open(std::string(u8.begin(), u8.end()), error);
  ASSERT_NE(handle, nullptr) << error;
  EXPECT_EQ(error, 0u);
  const uint8_t request[12] = {'D', 'S', 'T', 'S', 4, 0, 0, 0, 0x31, 0, 1, 0};
  uint8_t reply[1024] = {};
  uint32_t returned = 99;
  SetLastError(0);
  EXPECT_FALSE(
      handle->io_control(kControlCode, request, sizeof(request), reply, sizeof(reply), returned));
  const DWORD why = GetLastError();
  EXPECT_NE(why, 0u) << "the failure carries the system's reason";
  EXPECT_EQ(returned, 0u);
  // The handle is shared read and write: a second open of the same file works while the
  // first is held, and dropping both closes the file so that it can be deleted.
  uint32_t second_error = 0;
  auto second = device->open(std::string(u8.begin(), u8.end()), second_error);
  EXPECT_NE(second, nullptr) << second_error;
  handle.reset();
  second.reset();
  std::error_code ec;
  EXPECT_TRUE(std::filesystem::remove(path, ec)) << ec.message();
}

// ---- base board (WMI) -------------------------------------------------------------------

TEST(WmiBoardQuery, EveryStepSucceedsAndEachBaseBoardGivesItsProduct) {
  auto query = make_wmi_board_query();
  const BoardProducts answer = query->base_board_products();
  ASSERT_TRUE(answer.ok()) << static_cast<int>(answer.failed_step) << " " << std::hex << answer.hr;
  // Wine reports one base board.
  EXPECT_EQ(answer.products.size(), 1u);
  // The query runs again with the same answer.
  EXPECT_EQ(query->base_board_products().products, answer.products);
}

TEST(WmiBoardQuery, TheBoardIdentificationReadsTheLastProductTrimmed) {
  const std::vector<std::string> products = make_wmi_board_query()->base_board_products().products;
  ASSERT_FALSE(products.empty());
  auto query = make_wmi_board_query();
  auto console = make_win32_console();
  BoardIdentification board(*query, *console);
  ASSERT_EQ(board.ConnectWmi(), 0);
  ASSERT_EQ(board.QueryBaseBoard(), 0);
  std::string model = "stale";
  EXPECT_EQ(board.ReadModelName(model), 0);
  EXPECT_EQ(model, trim_blanks(products.back()));
}

TEST(WmiBoardQuery, AnUnknownNamespaceFailsAtTheConnectionWithTheWmiError) {
  auto query = make_wmi_board_query("ROOT\\ZALTORNOSUCHNAMESPACE");
  const BoardProducts answer = query->base_board_products();
  EXPECT_EQ(answer.failed_step, BoardQueryStep::kConnect);
  EXPECT_EQ(answer.hr, kWbemInvalidNamespace);
  EXPECT_TRUE(answer.products.empty());
}

TEST(WmiBoardQuery, AQueryGivesBackTheApartmentItTook) {
  std::thread([] {
    EXPECT_TRUE(make_wmi_board_query()->base_board_products().ok());
    EXPECT_TRUE(make_wmi_board_query()->base_board_products().ok()) << "and again";
    // Nothing of the queries' COM initialisation is left on this thread.
    EXPECT_EQ(CoInitialize(nullptr), S_OK);
    CoUninitialize();
  }).join();
}

// The board query as the worker's start-up runs it, on a thread whose COM is already set up.
int32_t identify_board(std::string& model) {
  auto query = make_wmi_board_query();
  auto console = make_win32_console();
  BoardIdentification board(*query, *console);
  if (const int32_t r = board.ConnectWmi(); r != 0) return r;
  if (const int32_t r = board.QueryBaseBoard(); r != 0) return r;
  return board.ReadModelName(model);
}

TEST(WmiBoardQuery, AThreadInTheMultithreadedApartmentIdentifiesTheBoardAndKeepsItsCom) {
  // A pool thread that another user of the pool put into the multithreaded apartment:
  // CoInitialize answers RPC_E_CHANGED_MODE there.
  std::thread([] {
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    // COM is usable on this thread already: the query runs in that apartment.
    EXPECT_TRUE(make_wmi_board_query()->base_board_products().ok());
    std::string model = "stale";
    EXPECT_EQ(identify_board(model), 0) << "a supported notebook stays supported";
    EXPECT_NE(model, "stale");
    // The queries uninitialised nothing: this thread's own initialisation still stands.
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_FALSE);
    CoUninitialize();
    CoUninitialize();
  }).join();
}

TEST(WmiBoardQuery, AThreadThatInitialisedComItselfKeepsItsInitialisation) {
  std::thread([] {
    ASSERT_EQ(CoInitialize(nullptr), S_OK);
    std::string model = "stale";
    EXPECT_EQ(identify_board(model), 0);
    EXPECT_NE(model, "stale");
    // The query gave back only its own reference (S_FALSE), not the thread's.
    EXPECT_EQ(CoInitialize(nullptr), S_FALSE);
    CoUninitialize();
    CoUninitialize();
    EXPECT_EQ(CoInitialize(nullptr), S_OK) << "and nothing more";
    CoUninitialize();
  }).join();
}

// ---- device lists (setup API) -----------------------------------------------------------

void expect_finite_list(DeviceLists& lists, DeviceClass cls, const char* enumerator) {
  SetLastError(0);
  auto list = lists.present_devices(cls, enumerator);
  ASSERT_NE(list, nullptr) << enumerator << " error " << GetLastError();
  uint32_t n = 0;
  while (n < 1000 && list->has_device(n)) ++n;
  ASSERT_LT(n, 1000u) << enumerator << ": the list ends";
  EXPECT_EQ(n, 0u) << enumerator << ": Wine has no such devices";
  std::string value = "stale";
  EXPECT_EQ(list->registry_property(n, DeviceProperty::kHardwareId, value), kErrorNoMoreItems);
  EXPECT_EQ(value, "");
  EXPECT_EQ(list->registry_property(n + 5, DeviceProperty::kDeviceDesc, value), kErrorNoMoreItems);
  uint32_t status = 0;
  EXPECT_FALSE(list->devnode_status(n, status));
}

TEST(SetupApiDeviceLists, PresentNetworkAdaptersOnThePciBusFormAFiniteList) {
  auto lists = make_setupapi_device_lists();
  expect_finite_list(*lists, DeviceClass::kNetwork, "PCI");
}

TEST(SetupApiDeviceLists, PresentBluetoothDevicesOfBothEnumeratorsFormFiniteLists) {
  auto lists = make_setupapi_device_lists();
  expect_finite_list(*lists, DeviceClass::kBluetooth, "BTHENUM");
  expect_finite_list(*lists, DeviceClass::kBluetooth, "BTHLE");
}

// ---- WLAN (native Wi-Fi API) ------------------------------------------------------------

TEST(NativeWifiWlan, OpensWithClientVersionTwoAndListsFinitelyManyInterfaces) {
  auto wlan = make_native_wifi_wlan();
  uint32_t error = 1234;
  auto session = wlan->open(2, error);
  ASSERT_NE(session, nullptr) << error;
  EXPECT_EQ(error, 0u);
  std::vector<WlanInterfaceInfo> interfaces(3);
  EXPECT_EQ(session->enum_interfaces(interfaces), 0u);
  EXPECT_LT(interfaces.size(), 64u);
  EXPECT_EQ(interfaces.size(), 0u) << "Wine has no wireless interface";
}

TEST(NativeWifiWlan, AnUnknownClientVersionIsRefused) {
  auto wlan = make_native_wifi_wlan();
  uint32_t error = 0;
  EXPECT_EQ(wlan->open(7, error), nullptr);
  EXPECT_EQ(error, static_cast<uint32_t>(ERROR_NOT_SUPPORTED));
}

TEST(NativeWifiWlan, QueriesOfAnUnknownInterfaceFail) {
  auto wlan = make_native_wifi_wlan();
  uint32_t error = 0;
  auto session = wlan->open(2, error);
  ASSERT_NE(session, nullptr) << error;
  const Guid unknown = *parse_guid("{6A1B2C3D-1111-2222-3333-444455556666}");
  uint32_t state = 77;
  EXPECT_NE(session->query_connection_state(unknown, state), 0u);
  EXPECT_EQ(state, 77u);
  uint32_t channel = 77;
  EXPECT_NE(session->query_channel(unknown, channel), 0u);
  EXPECT_EQ(channel, 77u);
}

TEST(NativeWifiWlan, WinesWlanServiceHasNoNotificationsAndSaysSo) {
  auto wlan = make_native_wifi_wlan();
  uint32_t error = 0;
  auto session = wlan->open(2, error);
  ASSERT_NE(session, nullptr) << error;
  std::atomic<int> calls{0};
  // Wine answers both the registration and its cancellation with
  // ERROR_CALL_NOT_IMPLEMENTED; the service does not check either answer.
  EXPECT_EQ(session->register_notification(kWlanSourceMsm,
                                           [&](uint32_t, uint32_t) { calls.fetch_add(1); }),
            static_cast<uint32_t>(ERROR_CALL_NOT_IMPLEMENTED));
  EXPECT_EQ(session->register_notification(kWlanSourceNone, nullptr),
            static_cast<uint32_t>(ERROR_CALL_NOT_IMPLEMENTED));
  // A registration without a callback is refused before the API is asked.
  EXPECT_EQ(session->register_notification(kWlanSourceMsm, nullptr),
            static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
  session.reset();
  EXPECT_EQ(calls.load(), 0);
}

// ---- performance counters (PDH) ---------------------------------------------------------

TEST(PdhCounters, AProcessorCounterCollectsAndFormatsAsALargeInteger) {
  auto counters = make_pdh_counters();
  uint32_t error = 1234;
  auto query = counters->open_query(error);
  ASSERT_NE(query, nullptr) << error;
  EXPECT_EQ(error, 0u);
  CounterId cpu = 0;
  ASSERT_EQ(query->add_counter("\\Processor(_Total)\\% Processor Time", cpu), 0u);
  EXPECT_NE(cpu, 0u);
  CounterId uptime = 0;
  ASSERT_EQ(query->add_counter("\\System\\System Up Time", uptime), 0u);
  EXPECT_NE(uptime, cpu);
  ASSERT_EQ(query->collect(), 0u);
  ASSERT_EQ(query->collect(), 0u);
  int64_t value = -1;
  ASSERT_EQ(query->formatted_large(cpu, value), 0u);
  EXPECT_GE(value, 0);
  EXPECT_LE(value, 100);
  int64_t up = -1;
  ASSERT_EQ(query->formatted_large(uptime, up), 0u);
  EXPECT_GT(up, 0) << "the system has been up for some seconds";
}

TEST(PdhCounters, CountersAddedByEnglishNamesShareTheQueryWithPublishedOnes) {
  // Wine's names are the English ones: both ways of adding find the same counters, and
  // their handles number on in one query.
  auto counters = make_pdh_counters();
  uint32_t error = 0;
  auto query = counters->open_query(error);
  ASSERT_NE(query, nullptr) << error;
  CounterId published = 0;
  ASSERT_EQ(query->add_counter("\\System\\System Up Time", published), 0u);
  CounterId english = 0;
  ASSERT_EQ(query->add_english_counter("\\Processor(_Total)\\% Processor Time", english), 0u);
  EXPECT_NE(english, 0u);
  EXPECT_NE(english, published);
  ASSERT_EQ(query->collect(), 0u);
  ASSERT_EQ(query->collect(), 0u);
  int64_t value = -1;
  ASSERT_EQ(query->formatted_large(english, value), 0u);
  EXPECT_GE(value, 0);
  EXPECT_LE(value, 100);
  CounterId missing = 77;
  EXPECT_EQ(query->add_english_counter("\\Network Interface(Wireless AX [R2])\\Bytes Total/sec",
                                       missing) &
                0xFFFFF000u,
            0xC0000000u);
  EXPECT_EQ(missing, 0u);
}

TEST(PdhCounters, TheWifiDriversRssiCounterDoesNotExistHere) {
  auto counters = make_pdh_counters();
  uint32_t error = 0;
  auto query = counters->open_query(error);
  ASSERT_NE(query, nullptr) << error;
  CounterId rssi = 77;
  const uint32_t st = query->add_counter("\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna A", rssi);
  EXPECT_EQ(st & 0xFFFFF000u, 0xC0000000u) << std::hex << st << ": a PDH error code";
  EXPECT_EQ(st, kPdhNoCounter) << std::hex << st;
  EXPECT_EQ(rssi, 0u);
  CounterId bytes = 77;
  EXPECT_NE(query->add_counter("\\Network Interface(Wireless AX [R2])\\Bytes Total/sec", bytes),
            0u);
  EXPECT_EQ(bytes, 0u);
}

TEST(PdhCounters, ACounterThatWasNeverAddedIsAnInvalidHandle) {
  auto counters = make_pdh_counters();
  uint32_t error = 0;
  auto query = counters->open_query(error);
  ASSERT_NE(query, nullptr) << error;
  int64_t value = 5;
  EXPECT_EQ(query->formatted_large(0, value), kPdhInvalidHandle);
  EXPECT_EQ(query->formatted_large(3, value), kPdhInvalidHandle);
  EXPECT_EQ(value, 5);
}

TEST(PdhCounters, CollectingAQueryWithoutCountersFails) {
  auto counters = make_pdh_counters();
  uint32_t error = 0;
  auto query = counters->open_query(error);
  ASSERT_NE(query, nullptr) << error;
  EXPECT_EQ(query->collect(), kPdhNoData);
}

// ---- the event window -------------------------------------------------------------------

class RecordingHandler final : public WindowHandler {
 public:
  bool on_message(const WindowMessage& m) override {
    std::lock_guard<std::mutex> g(mutex_);
    messages_.push_back(m);
    return m.kind != WindowMessage::kOther || handle_others_;
  }
  std::vector<WindowMessage> messages() {
    std::lock_guard<std::mutex> g(mutex_);
    return messages_;
  }
  void clear() {
    std::lock_guard<std::mutex> g(mutex_);
    messages_.clear();
  }
  void handle_others(bool on) {
    std::lock_guard<std::mutex> g(mutex_);
    handle_others_ = on;
  }

 private:
  std::mutex mutex_;
  std::vector<WindowMessage> messages_;
  bool handle_others_ = false;
};

// A unique window class per test, so that the tests do not find each other's windows.
std::string unique_class(const char* base) {
  std::random_device rd;
  return std::string(base) + " " + std::to_string(rd());
}

// The event window on a thread of its own, running its message loop there as the service's
// event window thread does.
class WindowThread {
 public:
  WindowThread(const std::string& cls, const std::string& title, RecordingHandler& handler)
      : events_(make_win32_system_events()), handler_(handler) {
    std::promise<bool> made;
    auto ready = made.get_future();
    thread_ = std::thread([&, cls, title] {
      auto window = events_->create_window(cls, title, handler);
      if (!window) {
        made.set_value(false);
        return;
      }
      lid_ = window->register_power_setting(PowerSetting::kLidSwitch);
      power_ = window->register_power_setting(PowerSetting::kAcDcPowerSource);
      made.set_value(true);
      window->run_message_loop();
      loop_ended_.store(true);
      window->unregister_power_settings();
    });
    created_ = ready.get();
    const std::wstring wcls = win32::wide(cls);
    const std::wstring wtitle = win32::wide(title);
    hwnd_ = FindWindowW(wcls.c_str(), wtitle.c_str());
    if (hwnd_ == nullptr)
      hwnd_ = FindWindowExW(HWND_MESSAGE, nullptr, wcls.c_str(), wtitle.c_str());
  }
  ~WindowThread() {
    if (thread_.joinable()) {
      // The close message must reach its default handling, which destroys the window.
      handler_.handle_others(false);
      if (hwnd_ != nullptr) PostMessageW(hwnd_, WM_CLOSE, 0, 0);
      thread_.join();
    }
  }
  bool created() const { return created_; }
  bool lid_registered() const { return lid_; }
  bool power_registered() const { return power_; }
  HWND hwnd() const { return hwnd_; }
  bool loop_ended() const { return loop_ended_.load(); }
  void join() { thread_.join(); }

 private:
  std::unique_ptr<SystemEvents> events_;
  RecordingHandler& handler_;
  std::thread thread_;
  bool created_ = false;
  bool lid_ = false;
  bool power_ = false;
  std::atomic<bool> loop_ended_{false};
  HWND hwnd_ = nullptr;
};

LRESULT send_power_setting(HWND hwnd, const GUID& setting, DWORD value) {
  std::vector<unsigned char> buffer(sizeof(POWERBROADCAST_SETTING) + sizeof(DWORD), 0);
  auto* s = reinterpret_cast<POWERBROADCAST_SETTING*>(buffer.data());
  s->PowerSetting = setting;
  s->DataLength = sizeof(DWORD);
  std::memcpy(s->Data, &value, sizeof(value));
  return SendMessageW(hwnd, WM_POWERBROADCAST, PBT_POWERSETTINGCHANGE,
                      reinterpret_cast<LPARAM>(buffer.data()));
}

constexpr GUID kLidSwitch = {
    0xBA3E0F4D, 0xB817, 0x4094, {0xA2, 0xD1, 0xD5, 0x63, 0x79, 0xE6, 0xA0, 0xF3}};
constexpr GUID kAcDcPowerSource = {
    0x5D3E9A59, 0xE9D5, 0x4B00, {0xA6, 0xBD, 0xFF, 0x34, 0xFF, 0x51, 0x65, 0x48}};
constexpr GUID kSomeOtherSetting = {
    0x12345678, 0x1234, 0x1234, {0x12, 0x34, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC}};

TEST(Win32EventWindow, CreationMessageArrivesBeforeCreateWindowReturns) {
  RecordingHandler handler;
  auto events = make_win32_system_events();
  auto window = events->create_window(unique_class("svc peek"), "peephole", handler);
  ASSERT_NE(window, nullptr);
  const auto messages = handler.messages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].kind, WindowMessage::kCreate);
}

TEST(Win32EventWindow, PowerSettingsLidPowerSourceAndDeviceChangesReachTheHandler) {
  RecordingHandler handler;
  WindowThread w(unique_class("svc peek"), "peephole", handler);
  ASSERT_TRUE(w.created());
  ASSERT_NE(w.hwnd(), nullptr);
  EXPECT_TRUE(w.lid_registered());
  EXPECT_TRUE(w.power_registered());
  handler.clear();

  EXPECT_EQ(send_power_setting(w.hwnd(), kLidSwitch, 0), 0);
  EXPECT_EQ(send_power_setting(w.hwnd(), kAcDcPowerSource, 1), 0);
  EXPECT_EQ(send_power_setting(w.hwnd(), kLidSwitch, 1), 0);
  EXPECT_EQ(send_power_setting(w.hwnd(), kSomeOtherSetting, 5), 0);
  EXPECT_EQ(SendMessageW(w.hwnd(), WM_POWERBROADCAST, PBT_APMRESUMEAUTOMATIC, 0), 0);
  EXPECT_EQ(SendMessageW(w.hwnd(), WM_DEVICECHANGE, 0x0007 /* DBT_DEVNODES_CHANGED */, 0), 0);

  const auto m = handler.messages();
  ASSERT_EQ(m.size(), 6u);
  EXPECT_EQ(m[0].kind, WindowMessage::kPowerSettingChange);
  EXPECT_EQ(m[0].setting, PowerSetting::kLidSwitch);
  EXPECT_EQ(m[0].value, 0u);
  EXPECT_EQ(m[1].kind, WindowMessage::kPowerSettingChange);
  EXPECT_EQ(m[1].setting, PowerSetting::kAcDcPowerSource);
  EXPECT_EQ(m[1].value, 1u);
  EXPECT_EQ(m[2].kind, WindowMessage::kPowerSettingChange);
  EXPECT_EQ(m[2].setting, PowerSetting::kLidSwitch);
  EXPECT_EQ(m[2].value, 1u);
  EXPECT_EQ(m[3].kind, WindowMessage::kPowerBroadcastOther) << "a setting not asked for";
  EXPECT_EQ(m[4].kind, WindowMessage::kPowerBroadcastOther);
  EXPECT_EQ(m[5].kind, WindowMessage::kDeviceChange);
  EXPECT_FALSE(w.loop_ended());
}

TEST(Win32EventWindow, MessagesTheHandlerLeavesGetTheDefaultHandling) {
  RecordingHandler handler;
  WindowThread w(unique_class("svc peek"), "peephole", handler);
  ASSERT_NE(w.hwnd(), nullptr);
  // The default handling of WM_GETTEXTLENGTH answers the title's length.
  EXPECT_EQ(SendMessageW(w.hwnd(), WM_GETTEXTLENGTH, 0, 0), 8);
  EXPECT_EQ(handler.messages().back().kind, WindowMessage::kOther);
  handler.handle_others(true);
  EXPECT_EQ(SendMessageW(w.hwnd(), WM_GETTEXTLENGTH, 0, 0), 0) << "handled: the handler's 0";
}

TEST(Win32EventWindow, DestroyingTheWindowEndsTheMessageLoop) {
  RecordingHandler handler;
  WindowThread w(unique_class("svc peek"), "peephole", handler);
  ASSERT_NE(w.hwnd(), nullptr);
  // WM_CLOSE's default handling destroys the window on its own thread.
  EXPECT_EQ(SendMessageW(w.hwnd(), WM_CLOSE, 0, 0), 0);
  w.join();
  EXPECT_TRUE(w.loop_ended());
  const auto m = handler.messages();
  ASSERT_GE(m.size(), 2u);
  EXPECT_EQ(m.front().kind, WindowMessage::kCreate);
  bool destroyed = false;
  for (const auto& message : m) destroyed = destroyed || message.kind == WindowMessage::kDestroy;
  EXPECT_TRUE(destroyed);
  EXPECT_FALSE(IsWindow(w.hwnd()));
}

TEST(Win32EventWindow, DroppingTheWindowLeavesNoQuitMessageBehind) {
  RecordingHandler handler;
  auto events = make_win32_system_events();
  const std::string cls = unique_class("svc peek");
  auto window = events->create_window(cls, "peephole", handler);
  ASSERT_NE(window, nullptr);
  // A second window of the same class: the class is registered already.
  RecordingHandler other;
  auto second = events->create_window(cls, "peephole", other);
  ASSERT_NE(second, nullptr);
  window.reset();
  second.reset();
  MSG msg;
  EXPECT_FALSE(PeekMessageW(&msg, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
  for (const auto& m : handler.messages()) EXPECT_NE(m.kind, WindowMessage::kDestroy);
  EXPECT_EQ(FindWindowExW(HWND_MESSAGE, nullptr, win32::wide(cls).c_str(), nullptr), nullptr);
  EXPECT_EQ(FindWindowW(win32::wide(cls).c_str(), nullptr), nullptr);
}

}  // namespace
}  // namespace zaltor::platform
