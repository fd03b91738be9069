#pragma once
// The base board query (WMI over COM on Windows). Each step answers an HRESULT (negative
// is a failure), so that the caller can print which step failed.

#include <cstdint>
#include <memory>
#include <string>

namespace zaltor::platform {

class BoardSession {
 public:
  virtual ~BoardSession() = default;
  virtual int32_t create_locator() = 0;
  virtual int32_t connect(const std::string& name_space) = 0;
  virtual int32_t set_proxy_blanket() = 0;
  virtual int32_t exec_query(const std::string& wql) = 0;
  // The next base board's "Product" value, converted to narrow text; false when no more.
  virtual bool next_product(std::string& product) = 0;
};

class BoardQuery {
 public:
  virtual ~BoardQuery() = default;
  // Initialises COM (CoInitialize) and gives a session; `hr` is the initialisation's result.
  // The session, once made, lives until the caller drops it.
  virtual std::unique_ptr<BoardSession> open(int32_t& hr) = 0;
};

}  // namespace zaltor::platform
