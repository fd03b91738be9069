#pragma once
// The base boards' product names (WMI's Win32_BaseBoard on Windows). One call does the whole
// query; when a step fails it answers that step and its HRESULT (negative), so that the
// caller can print which step failed.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace zaltor::platform {

constexpr const char* kBoardNamespace = "ROOT\\CIMV2";
constexpr const char* kBoardQuery = "Select * from Win32_BaseBoard";

// The steps of the query, in the order they run.
enum class BoardQueryStep {
  kNone,             // every step succeeded
  kInitializeCom,    // CoInitialize
  kCreateLocator,    // the IWbemLocator object
  kConnect,          // the connection to kBoardNamespace
  kSetProxyBlanket,  // the connection's security
  kExecQuery,        // kBoardQuery
};

struct BoardProducts {
  BoardQueryStep failed_step = BoardQueryStep::kNone;
  int32_t hr = 0;  // the failed step's HRESULT
  // Each base board's "Product" value as UTF-8, in the order the system lists the boards (an
  // object without a text value gives an empty one).
  std::vector<std::string> products;
  bool ok() const { return failed_step == BoardQueryStep::kNone; }
};

class BoardQuery {
 public:
  virtual ~BoardQuery() = default;
  // Runs the query on the calling thread; what it sets up (COM, the connection) is released
  // before it returns.
  virtual BoardProducts base_board_products() = 0;
};

}  // namespace zaltor::platform
