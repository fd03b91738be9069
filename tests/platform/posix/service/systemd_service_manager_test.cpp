// Installation and removal on systemd, against a stand-in systemctl that records its
// arguments and answers the unit states a test gives it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "platform/posix/posix_backends.h"
#include "service/command_line.h"
#include "service/host_fakes.h"
#include "service/service_environment.h"

namespace zaltor::host_test {
namespace {

// The stand-in answers `show` with the lines of "states" in turn (the last one repeats;
// "inactive" without the file) and fails a command when "fail-<command>" exists, printing
// that file's text to standard error.
const char* k_stand_in_systemctl = R"sh(#!/bin/sh
state="$(dirname "$0")"
echo "$*" >> "$state/calls"
if [ -f "$state/fail-$1" ]; then cat "$state/fail-$1" >&2; exit 1; fi
if [ "$1" = show ]; then
  if [ -f "$state/states" ]; then
    head -n 1 "$state/states"
    if [ "$(wc -l < "$state/states")" -gt 1 ]; then
      tail -n +2 "$state/states" > "$state/states.next"; mv "$state/states.next" "$state/states"
    fi
  else
    echo inactive
  fi
fi
exit 0
)sh";

class SystemdTest : public ::testing::Test {
 protected:
  void SetUp() override {
    bin_ = dir_.file("bin");
    units_ = dir_.file("units");
    std::filesystem::create_directory(bin_);
    std::filesystem::create_directory(units_);
    write_file(bin_ + "/systemctl", k_stand_in_systemctl, true);
    const char* path = std::getenv("PATH");
    old_path_ = path != nullptr ? path : "";
    ::setenv("PATH", (bin_ + ":" + old_path_).c_str(), 1);
    // The installation registers these from the installer's environment.
    for (const char* name : service::kServiceEnvironmentNames) {
      if (const char* v = std::getenv(name)) saved_env_.emplace_back(name, v);
      ::unsetenv(name);
    }
    manager_ = platform::make_systemd_service_manager(fp_.clock, {units_, ""});
    fp_.platform.services = manager_.get();
  }
  void TearDown() override {
    ::setenv("PATH", old_path_.c_str(), 1);
    for (const char* name : service::kServiceEnvironmentNames) ::unsetenv(name);
    for (const auto& [name, value] : saved_env_) ::setenv(name.c_str(), value.c_str(), 1);
  }

  int run(const char* word) {
    return service::run_command_line({"ZaltorMultiAntennaSvc", word}, fp_.platform);
  }
  void states(const std::string& lines) { write_file(bin_ + "/states", lines); }
  void fail(const std::string& command, const std::string& message) {
    write_file(bin_ + "/fail-" + command, message);
  }
  std::string calls() const { return read_file(bin_ + "/calls"); }
  std::string unit_file() const { return units_ + "/ZaltorMultiAntennaSvc.service"; }

  TempDir dir_;
  std::string bin_;
  std::string units_;
  std::string old_path_;
  std::vector<std::pair<std::string, std::string>> saved_env_;
  FakePlatform fp_;
  std::unique_ptr<platform::ServiceManager> manager_;
};

TEST_F(SystemdTest, InstallWritesANotifyUnitEnablesItAndStartsIt) {
  EXPECT_EQ(run("-install"), 0);
  EXPECT_EQ(fp_.console.text(), "ZaltorMultiAntennaSvc is installed.\n");
  std::string self;
  ASSERT_EQ(manager_->module_file_name(self), 0u);
  EXPECT_EQ(read_file(unit_file()),
            "# ZALTOR Multi Antenna Service\n"
            "[Unit]\n"
            "Description=Service for management of multi antenna system. If this service is "
            "stopped, Zaltor MultiAntenna App will stop working.\n"
            "\n[Service]\n"
            "Type=notify\n"
            "ExecStart=\"" +
                self +
                "\"\n"
                "\n[Install]\n"
                "WantedBy=multi-user.target\n");
  EXPECT_EQ(calls(),
            "daemon-reload\n"
            "enable ZaltorMultiAntennaSvc.service\n"
            "daemon-reload\n"
            "show --property=ActiveState --value ZaltorMultiAntennaSvc.service\n"
            "start --no-block ZaltorMultiAntennaSvc.service\n");
}

TEST_F(SystemdTest, InstallPassesTheInstallersSettingsToTheServiceProcess) {
  ::setenv("ZALTOR_PLATFORM", "sim", 1);
  ::setenv("ZALTOR_SIM_SCENARIO", "/srv/100% \"quiet\".json", 1);
  ::setenv("ZALTOR_RPC_ENDPOINT", "", 1);  // empty: the default, nothing to pass on
  ::setenv("ZALTOR_STATE_DIR", "/var/lib/z", 1);
  EXPECT_EQ(run("-install"), 0);
  const std::string unit = read_file(unit_file());
  EXPECT_NE(unit.find("Type=notify\n"
                      "Environment=\"ZALTOR_PLATFORM=sim\"\n"
                      "Environment=\"ZALTOR_SIM_SCENARIO=/srv/100%% \\\"quiet\\\".json\"\n"
                      "Environment=\"ZALTOR_STATE_DIR=/var/lib/z\"\n"
                      "ExecStart="),
            std::string::npos)
      << unit;
}

TEST_F(SystemdTest, InstallOverAnExistingServiceFailsWithServiceExists) {
  ASSERT_EQ(run("-install"), 0);
  EXPECT_EQ(run("-install"), 0);
  EXPECT_EQ(fp_.console.text(),
            "ZaltorMultiAntennaSvc is installed.\n"
            "CreateService failed w/err 0x00000431\n");
}

TEST_F(SystemdTest, AccessDeniedBySystemdIsError5AndLeavesNoUnit) {
  fail("enable", "Failed to enable unit: Access denied\n");
  EXPECT_EQ(run("-install"), 0);
  EXPECT_EQ(fp_.console.text(), "CreateService failed w/err 0x00000005\n");
  EXPECT_FALSE(std::filesystem::exists(unit_file()));
}

TEST_F(SystemdTest, InstallPrintsAStartFailureAndStillSaysInstalled) {
  fail("start", "Job for ZaltorMultiAntennaSvc.service failed.\n");
  EXPECT_EQ(run("-install"), 0);
  EXPECT_EQ(fp_.console.text(),
            "StartService failed w/err 0x0000065b\n"
            "ZaltorMultiAntennaSvc is installed.\n");
}

TEST_F(SystemdTest, MissingUnitDirectoryMeansNoManager) {
  std::filesystem::remove(units_);
  EXPECT_EQ(run("-install"), 0);
  EXPECT_EQ(fp_.console.text(), "OpenSCManager failed w/err 0x000006ba\n");
}

TEST_F(SystemdTest, SystemctlThatCannotBeRunMeansNoManager) {
  ::setenv("PATH", dir_.file("nowhere").c_str(), 1);
  EXPECT_EQ(run("-install"), 0);
  EXPECT_EQ(fp_.console.text(), "CreateService failed w/err 0x000006ba\n");
}

TEST_F(SystemdTest, RemoveStopsTheUnitPollingItsStateEverySecondThenDeletesIt) {
  ASSERT_EQ(run("-install"), 0);
  std::filesystem::remove(bin_ + "/calls");
  states("active\ndeactivating\ndeactivating\ndeactivating\ninactive\n");
  EXPECT_EQ(run("-remove"), 0);
  EXPECT_EQ(fp_.console.text(),
            "ZaltorMultiAntennaSvc is installed.\n"
            "Stopping ZaltorMultiAntennaSvc...\n"
            "ZaltorMultiAntennaSvc is stopped.\n"
            "ZaltorMultiAntennaSvc is removed.\n");
  EXPECT_EQ(fp_.clock.sleeps(), (std::vector<int64_t>{1000, 1000, 1000}));
  EXPECT_FALSE(std::filesystem::exists(unit_file()));
  const std::string show = "show --property=ActiveState --value ZaltorMultiAntennaSvc.service\n";
  EXPECT_EQ(calls(), show + "stop --no-block ZaltorMultiAntennaSvc.service\n" + show + show + show +
                         show + "disable ZaltorMultiAntennaSvc.service\ndaemon-reload\n");
}

TEST_F(SystemdTest, RemoveOfAStoppedUnitHasNoStoppingLine) {
  ASSERT_EQ(run("-install"), 0);
  states("failed\n");
  EXPECT_EQ(run("-remove"), 0);
  EXPECT_EQ(fp_.console.text(),
            "ZaltorMultiAntennaSvc is installed.\n"
            "ZaltorMultiAntennaSvc is removed.\n");
  EXPECT_TRUE(fp_.clock.sleeps().empty());
}

TEST_F(SystemdTest, RemoveOfAServiceThatIsNotInstalledFailsWithNoSuchService) {
  EXPECT_EQ(run("-remove"), 0);
  EXPECT_EQ(fp_.console.text(), "OpenService failed w/err 0x00000424\n");
}

TEST_F(SystemdTest, UnitStatesMapToServiceStates) {
  ASSERT_EQ(run("-install"), 0);
  platform::ServiceManager::Handle manager = 0;
  platform::ServiceManager::Handle service = 0;
  ASSERT_EQ(manager_->open_manager(platform::kManagerConnect, manager), 0u);
  ASSERT_EQ(manager_->open_service(manager, "ZaltorMultiAntennaSvc", platform::kServiceQueryStatus,
                                   service),
            0u);
  states("activating\nactive\nreloading\ndeactivating\ninactive\nfailed\n");
  std::vector<uint32_t> seen;
  for (int i = 0; i < 6; ++i) {
    platform::ServiceStatus status;
    ASSERT_EQ(manager_->query_status(service, status), 0u);
    EXPECT_EQ(status.service_type, 0x10u);
    seen.push_back(status.current_state);
  }
  EXPECT_EQ(seen, (std::vector<uint32_t>{2, 4, 4, 3, 1, 1}));
  // The handle was opened for queries only.
  platform::ServiceStatus status;
  EXPECT_EQ(manager_->control_stop(service, status), 5u);
  EXPECT_EQ(manager_->delete_service(service), 5u);
  EXPECT_EQ(manager_->close(service), 0u);
  EXPECT_EQ(manager_->close(service), 6u);
  EXPECT_EQ(manager_->close(manager), 0u);
}

TEST_F(SystemdTest, UnitNotKnownToSystemdIsNoSuchService) {
  ASSERT_EQ(run("-install"), 0);
  fail("show", "Unit ZaltorMultiAntennaSvc.service could not be found.\n");
  platform::ServiceManager::Handle manager = 0;
  platform::ServiceManager::Handle service = 0;
  ASSERT_EQ(manager_->open_manager(platform::kManagerConnect, manager), 0u);
  ASSERT_EQ(manager_->open_service(manager, "ZaltorMultiAntennaSvc", platform::kServiceQueryStatus,
                                   service),
            0u);
  platform::ServiceStatus status;
  EXPECT_EQ(manager_->query_status(service, status), 1060u);
}

TEST_F(SystemdTest, UnitDirectoryComesFromTheEnvironment) {
  ::setenv("ZALTOR_SYSTEMD_UNIT_DIR", units_.c_str(), 1);
  ::unsetenv("NOTIFY_SOCKET");
  const auto options = platform::systemd_options_from_environment();
  ::unsetenv("ZALTOR_SYSTEMD_UNIT_DIR");
  EXPECT_EQ(options.unit_dir, units_);
  EXPECT_EQ(options.notify_socket, "");
  EXPECT_EQ(platform::systemd_options_from_environment().unit_dir, "/etc/systemd/system");
}

}  // namespace
}  // namespace zaltor::host_test
