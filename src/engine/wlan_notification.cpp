// WLAN connection notifications (MSM source), delivered on a thread of the WLAN service.
#include "engine/system_events.h"
#include "engine/worker_threads.h"
#include "platform/wlan.h"

namespace zaltor::engine {

void WlanNotificationCallback(uint32_t source, uint32_t code) {
  if (source != platform::kWlanSourceMsm) return;
  // Deliberately the remembered worker, not the registration's context: until a window,
  // power or monitor event has remembered one, notifications are ignored.
  AntennaSwitchWorkerObj* worker = remembered_worker();
  if (worker == nullptr) return;
  Console* console = worker->platform().console;
  auto print = [console](const char* text) {
    if (console != nullptr) console->write(text);
  };
  switch (code) {
    case platform::kWlanMsmConnected:
      print("wlan_notification_msm_connected\n");
      raise_reevaluation_locked(*worker, true, Trigger::kWlan);
      break;
    case platform::kWlanMsmDisconnected:
      print("wlan_notification_msm_disconnected\n");
      raise_reevaluation_locked(*worker, false, Trigger::kWlan);
      break;
    case platform::kWlanMsmAdapterRemoval:
      print("wlan_notification_msm_adapter_removal\n");
      raise_reevaluation_locked(*worker, false, Trigger::kWlan);
      break;
    default:
      break;
  }
}

}  // namespace zaltor::engine
