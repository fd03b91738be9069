// Performance counters through PDH: one real-time query, counters added by their full path
// (as published, or by English names).
#include <windows.h>
// windows.h first: the PDH headers build on its types.
#include <pdh.h>
#include <pdhmsg.h>

#include <vector>

#include "platform/win32/wide_text.h"
#include "platform/win32/win32_hardware.h"

namespace zaltor::platform {
namespace {

class PdhCounterQuery final : public CounterQuery {
 public:
  explicit PdhCounterQuery(PDH_HQUERY query) : query_(query) {}
  ~PdhCounterQuery() override { PdhCloseQuery(query_); }
  PdhCounterQuery(const PdhCounterQuery&) = delete;
  PdhCounterQuery& operator=(const PdhCounterQuery&) = delete;

  uint32_t add_counter(const std::string& path, CounterId& counter) override {
    return add(PdhAddCounterW, path, counter);
  }

  // Windows' own counter sets are translated: PdhAddCounterW would not find the English
  // names on a Windows of another language, PdhAddEnglishCounterW does on every one.
  uint32_t add_english_counter(const std::string& path, CounterId& counter) override {
    return add(PdhAddEnglishCounterW, path, counter);
  }

  uint32_t collect() override { return static_cast<uint32_t>(PdhCollectQueryData(query_)); }

  uint32_t formatted_large(CounterId counter, int64_t& value) override {
    if (counter == 0 || counter > counters_.size())
      return static_cast<uint32_t>(PDH_INVALID_HANDLE);
    PDH_FMT_COUNTERVALUE v = {};
    const PDH_STATUS st =
        PdhGetFormattedCounterValue(counters_[counter - 1], PDH_FMT_LARGE, nullptr, &v);
    if (st != ERROR_SUCCESS) return static_cast<uint32_t>(st);
    // A value whose own status says it is not valid is no value.
    if (v.CStatus != PDH_CSTATUS_VALID_DATA && v.CStatus != PDH_CSTATUS_NEW_DATA) {
      return static_cast<uint32_t>(v.CStatus);
    }
    value = static_cast<int64_t>(v.largeValue);
    return 0;
  }

 private:
  using AddFunction = PDH_STATUS(WINAPI*)(PDH_HQUERY, LPCWSTR, DWORD_PTR, PDH_HCOUNTER*);

  uint32_t add(AddFunction add_function, const std::string& path, CounterId& counter) {
    counter = 0;
    PDH_HCOUNTER handle = nullptr;
    const PDH_STATUS st = add_function(query_, win32::wide(path).c_str(), 0, &handle);
    if (st != ERROR_SUCCESS) return static_cast<uint32_t>(st);
    counters_.push_back(handle);
    counter = static_cast<CounterId>(counters_.size());
    return 0;
  }

  PDH_HQUERY query_;
  std::vector<PDH_HCOUNTER> counters_;
};

class PdhCounters final : public Counters {
 public:
  std::unique_ptr<CounterQuery> open_query(uint32_t& error) override {
    PDH_HQUERY query = nullptr;
    const PDH_STATUS st = PdhOpenQueryW(nullptr, 0, &query);
    error = static_cast<uint32_t>(st);
    if (st != ERROR_SUCCESS) return nullptr;
    return std::make_unique<PdhCounterQuery>(query);
  }
};

}  // namespace

std::unique_ptr<Counters> make_pdh_counters() {
  return std::make_unique<PdhCounters>();
}

}  // namespace zaltor::platform
