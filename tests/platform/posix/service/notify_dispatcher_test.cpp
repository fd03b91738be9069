// The systemd dispatcher: status reports over a notify socket that the test owns, SIGTERM
// as the stop control.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <thread>

#include "notify_socket.h"
#include "platform/posix/abstract_address.h"
#include "platform/posix/notify_dispatcher.h"
#include "platform/posix/posix_backends.h"
#include "service/host_fakes.h"
#include "service/multi_antenna_svc.h"

namespace zaltor::host_test {
namespace {

using service::CMultiAntennaSvc;
using service::CServiceBase;

std::string status_text(const std::string& state, uint32_t check_point, uint32_t exit_code = 0) {
  return "STATUS=" + state + ", checkpoint " + std::to_string(check_point) + ", exit code " +
         std::to_string(exit_code);
}

TEST(NotifyDispatcher, WithoutANotifySocketTheDispatcherFailsAsAHandStartedService) {
  FakeClock clock;
  auto manager = platform::make_systemd_service_manager(clock, {"/nonexistent", ""});
  EXPECT_EQ(manager->run_dispatcher("ZaltorMultiAntennaSvc", [](uint32_t, char**) {}), 1063u);
  platform::ServiceManager::StatusHandle handle = 9;
  EXPECT_EQ(manager->register_control_handler(
                "ZaltorMultiAntennaSvc", [](uint32_t) {}, handle),
            1063u);
  EXPECT_EQ(handle, 0u);
  EXPECT_EQ(manager->set_status(1, platform::ServiceStatus{}), 6u);
}

TEST(NotifyDispatcher, UnreachableNotifySocketFailsTheSameWay) {
  TempDir dir;
  FakeClock clock;
  auto manager = platform::make_systemd_service_manager(clock, {dir.path(), dir.file("none")});
  EXPECT_EQ(manager->run_dispatcher("ZaltorMultiAntennaSvc", [](uint32_t, char**) {}), 1063u);
}

TEST(NotifyDispatcher, NotifyMessagesNameTheStateTheCheckpointAndTheExitCode) {
  platform::ServiceStatus s;
  s.current_state = platform::kServiceRunning;
  EXPECT_EQ(platform::NotifyDispatcher::notify_message(s), "READY=1\n" + status_text("Running", 0));
  s.current_state = platform::kServiceStopPending;
  s.check_point = 7;
  EXPECT_EQ(platform::NotifyDispatcher::notify_message(s),
            "STOPPING=1\n" + status_text("Stop pending", 7));
  s.current_state = platform::kServiceStopped;
  s.check_point = 0;
  s.win32_exit_code = 31;
  EXPECT_EQ(platform::NotifyDispatcher::notify_message(s), status_text("Stopped", 0, 31));
  s.current_state = platform::kServicePaused;
  s.win32_exit_code = 0;
  s.check_point = 3;
  EXPECT_EQ(platform::NotifyDispatcher::notify_message(s), status_text("Paused", 3));
}

// The service runs until SIGTERM arrives; the stop runs on the dispatcher's thread.
TEST(NotifyDispatcher, SigtermStopsTheServiceAndEveryReportReachesTheNotifySocket) {
  TempDir dir;
  NotifySocket notify(dir.file("notify"));
  FakePlatform fp;
  auto manager = platform::make_systemd_service_manager(fp.clock, {dir.path(), notify.path()});
  auto pool = platform::make_thread_pool(fp.clock);
  fp.platform.services = manager.get();
  fp.platform.thread_pool = pool.get();

  auto release = fp.clock.make_event(true);
  auto body_done = fp.clock.make_event(true);
  std::atomic<bool> stop_on_dispatcher_thread{false};
  const auto dispatcher_thread = std::this_thread::get_id();
  service::ServiceHooks hooks;
  hooks.run_body = [&](CMultiAntennaSvc&) -> uint32_t {
    release->wait(platform::Clock::kInfinite);  // listening for the life of the service
    body_done->set();
    return 0;
  };
  hooks.set_default_mode = [&](CMultiAntennaSvc&) -> uint32_t {
    stop_on_dispatcher_thread = std::this_thread::get_id() == dispatcher_thread;
    return 0;
  };
  CMultiAntennaSvc svc("", "", fp.platform, hooks);

  std::vector<std::string> messages;
  std::thread controller([&] {
    for (;;) {
      const std::string m = notify.receive(20000);
      if (m.empty()) return;  // the dispatcher never answered: the test fails below
      messages.push_back(m);
      if (m.rfind("READY=1", 0) == 0) ::kill(::getpid(), SIGTERM);
      if (m.find("STATUS=Stopped") != std::string::npos) return;
    }
  });
  const uint32_t result = CServiceBase::Run(svc);
  controller.join();
  release->set();
  body_done->wait(platform::Clock::kInfinite);

  EXPECT_EQ(result, 0u);
  ASSERT_EQ(messages.size(), 4u);
  const std::string first = messages[0];
  const uint32_t cp =
      static_cast<uint32_t>(std::stoul(first.substr(first.find("checkpoint ") + 11)));
  EXPECT_EQ(messages[0], status_text("Start pending", cp));
  EXPECT_EQ(messages[1], "READY=1\n" + status_text("Running", 0));
  EXPECT_EQ(messages[2], "STOPPING=1\n" + status_text("Stop pending", cp + 1));
  EXPECT_EQ(messages[3], status_text("Stopped", 0));
  EXPECT_TRUE(stop_on_dispatcher_thread);
  EXPECT_GE(fp.clock.threads_started(), 2);  // the service entry point and the pool work
  // SIGTERM has its old disposition again.
  struct sigaction now {};
  ::sigaction(SIGTERM, nullptr, &now);
  EXPECT_EQ(now.sa_handler, SIG_DFL);
}

TEST(NotifyDispatcher, AbstractNotifySocketNamesAreUnderstood) {
  FakePlatform fp;
  const std::string name = "zaltor-host-test-" + std::to_string(::getpid());
  // Bind the abstract name by hand.
  int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ASSERT_GE(fd, 0);
  sockaddr_un addr{};
  const socklen_t len = platform::abstract_address(name, addr);
  ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&addr), len), 0);
  auto manager = platform::make_systemd_service_manager(fp.clock, {"/nonexistent", "@" + name});
  fp.platform.services = manager.get();
  // A service whose worker does not start stops by itself.
  auto pool = platform::make_thread_pool(fp.clock);
  fp.platform.thread_pool = pool.get();
  {
    CMultiAntennaSvc svc("", "", fp.platform);
    EXPECT_EQ(CServiceBase::Run(svc), 0u);
  }
  std::vector<std::string> messages;
  char buf[512];
  ssize_t n = 0;
  while ((n = ::recv(fd, buf, sizeof buf, MSG_DONTWAIT)) > 0) messages.emplace_back(buf, n);
  ::close(fd);
  ASSERT_GE(messages.size(), 3u);
  // Nothing follows the stopped report, even a running report that lost the race.
  EXPECT_EQ(messages.back(), status_text("Stopped", 0));
}

platform::ServiceManager* g_manager = nullptr;
std::atomic<uint32_t> g_late_report{0};

// An entry point that stops at once and then reports again.
void stop_then_report(uint32_t, char** argv) {
  platform::ServiceManager::StatusHandle handle = 0;
  if (g_manager->register_control_handler(
          argv[0], [](uint32_t) {}, handle) != 0)
    return;
  platform::ServiceStatus s;
  s.current_state = platform::kServiceStopped;
  g_manager->set_status(handle, s);
  s.current_state = platform::kServiceRunning;
  g_late_report = g_manager->set_status(handle, s);
}

TEST(NotifyDispatcher, ReportsAfterStoppedAreRefusedAndNotSent) {
  TempDir dir;
  NotifySocket notify(dir.file("notify"));
  FakeClock clock;
  auto manager = platform::make_systemd_service_manager(clock, {dir.path(), notify.path()});
  g_manager = manager.get();
  EXPECT_EQ(manager->run_dispatcher("ZaltorMultiAntennaSvc", &stop_then_report), 0u);
  EXPECT_EQ(g_late_report.load(), 6u);
  EXPECT_EQ(notify.drain(), std::vector<std::string>{status_text("Stopped", 0)});
  g_manager = nullptr;
}

}  // namespace
}  // namespace zaltor::host_test
