#pragma once
// Performance counters (PDH on Windows): one query holding counters added by path.

#include <cstdint>
#include <memory>
#include <string>

namespace zaltor::platform {

using CounterId = uint32_t;  // 0 = no counter

class CounterQuery {
 public:
  virtual ~CounterQuery() = default;
  // 0 and the counter, or a PDH error code (the counter stays 0).
  virtual uint32_t add_counter(const std::string& path, CounterId& counter) = 0;
  // The same for a path of English object and counter names, which a Windows of another
  // language publishes under translated ones (PdhAddEnglishCounterW). A backend without
  // translated names adds it as it stands.
  virtual uint32_t add_english_counter(const std::string& path, CounterId& counter) {
    return add_counter(path, counter);
  }
  // Takes one sample of every counter of the query; 0 or a PDH error code.
  virtual uint32_t collect() = 0;
  // The counter's value of the last sample as a 64-bit integer; 0 or a PDH error code.
  virtual uint32_t formatted_large(CounterId counter, int64_t& value) = 0;
};

class Counters {
 public:
  virtual ~Counters() = default;
  // A real-time query; null and `error` on failure. Dropping the query closes it.
  virtual std::unique_ptr<CounterQuery> open_query(uint32_t& error) = 0;
};

}  // namespace zaltor::platform
