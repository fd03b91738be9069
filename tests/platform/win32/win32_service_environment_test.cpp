// The service's registered settings (the service key's "Environment" value) on the real
// registry, and their application to a process that the service manager did not give them.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "platform/win32/win32_backends.h"

namespace zaltor::platform {
namespace {

class ServiceEnvironmentKey : public ::testing::Test {
 protected:
  void SetUp() override {
    std::random_device rd;
    name_ = "ZaltorEnvTest" + std::to_string(rd());
    key_ = L"SYSTEM\\CurrentControlSet\\Services\\" + std::wstring(name_.begin(), name_.end());
    for (const char* v : {"ZALTOR_T_ONE", "ZALTOR_T_TWO", "ZALTOR_T_THREE", "OTHER_T_FOUR"}) {
      _putenv_s(v, "");
    }
  }
  void TearDown() override {
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, key_.c_str());
    for (const char* v : {"ZALTOR_T_ONE", "ZALTOR_T_TWO", "ZALTOR_T_THREE", "OTHER_T_FOUR"}) {
      _putenv_s(v, "");
    }
  }
  void create_key() {
    HKEY k = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, key_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                              nullptr, &k, nullptr),
              ERROR_SUCCESS);
    RegCloseKey(k);
  }
  std::string getenv_or_none(const char* name) {
    const char* v = std::getenv(name);
    return v != nullptr ? v : "<none>";
  }

  std::string name_;
  std::wstring key_;
};

TEST_F(ServiceEnvironmentKey, TheValueIsAMultiStringOfTheEntries) {
  create_key();
  ASSERT_EQ(write_service_environment(name_, {"ZALTOR_T_ONE=a b", "ZALTOR_T_TWO=C:\\x\\y"}), 0u);
  DWORD type = 0;
  wchar_t data[64] = {};
  DWORD size = sizeof data;
  ASSERT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, key_.c_str(), L"Environment", RRF_RT_ANY, &type, data,
                         &size),
            ERROR_SUCCESS);
  EXPECT_EQ(type, static_cast<DWORD>(REG_MULTI_SZ));
  // Each string with its terminator, then the terminator of the list.
  std::wstring expected = L"ZALTOR_T_ONE=a b";
  expected.push_back(L'\0');
  expected += L"ZALTOR_T_TWO=C:\\x\\y";
  expected.push_back(L'\0');
  expected.push_back(L'\0');
  ASSERT_EQ(size, expected.size() * sizeof(wchar_t));
  EXPECT_EQ(std::wstring(data, size / sizeof(wchar_t)), expected);
}

TEST_F(ServiceEnvironmentKey, ApplyingSetsOnlyTheProductsVariablesTheProcessLacks) {
  create_key();
  ASSERT_EQ(write_service_environment(
                name_, {"ZALTOR_T_ONE=from the key", "ZALTOR_T_TWO=from the key",
                        "OTHER_T_FOUR=not ours", "ZALTOR_T_THREE=x=y", "ZALTOR_NOEQUALS"}),
            0u);
  _putenv_s("ZALTOR_T_TWO", "given");
  EXPECT_EQ(apply_service_environment(name_), 0u);
  EXPECT_EQ(getenv_or_none("ZALTOR_T_ONE"), "from the key");
  EXPECT_EQ(getenv_or_none("ZALTOR_T_TWO"), "given");
  EXPECT_EQ(getenv_or_none("ZALTOR_T_THREE"), "x=y");
  EXPECT_EQ(getenv_or_none("OTHER_T_FOUR"), "<none>");
  // The process's own environment block has it too (child processes inherit it).
  wchar_t buf[32] = {};
  EXPECT_GT(GetEnvironmentVariableW(L"ZALTOR_T_ONE", buf, 32), 0u);
  EXPECT_EQ(std::wstring(buf), L"from the key");
}

TEST_F(ServiceEnvironmentKey, WithoutTheKeyOrTheValueNothingChanges) {
  EXPECT_EQ(write_service_environment(name_, {"ZALTOR_T_ONE=a"}), 2u);
  EXPECT_EQ(apply_service_environment(name_), 2u);
  create_key();
  EXPECT_EQ(apply_service_environment(name_), 2u);
  EXPECT_EQ(getenv_or_none("ZALTOR_T_ONE"), "<none>");
}

TEST_F(ServiceEnvironmentKey, AnEmptyListIsAValueWithTheFinalTerminatorOnly) {
  create_key();
  ASSERT_EQ(write_service_environment(name_, {}), 0u);
  EXPECT_EQ(apply_service_environment(name_), 0u);
}

}  // namespace
}  // namespace zaltor::platform
