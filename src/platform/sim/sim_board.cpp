// The base board query: the scenario's product strings, or its query error.
#include "platform/sim/sim_seams.h"

namespace zaltor::platform::sim {
namespace {

class SimBoardSession final : public BoardSession {
 public:
  explicit SimBoardSession(NotebookCore& core) : core_(core) {}
  int32_t create_locator() override { return 0; }
  int32_t connect(const std::string& name_space) override {
    std::string upper = name_space;
    for (char& c : upper) {
      if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return upper == "ROOT\\CIMV2" ? 0 : kWbemInvalidNamespace;
  }
  int32_t set_proxy_blanket() override { return 0; }
  int32_t exec_query(const std::string&) override {
    std::lock_guard<std::mutex> g(core_.mutex);
    if (core_.scenario.query_error) return *core_.scenario.query_error;
    products_ = core_.scenario.products;
    next_ = 0;
    return 0;
  }
  bool next_product(std::string& product) override {
    if (next_ >= products_.size()) return false;
    product = products_[next_++];
    return true;
  }

 private:
  NotebookCore& core_;
  std::vector<std::string> products_;
  size_t next_ = 0;
};

class SimBoard final : public BoardQuery {
 public:
  explicit SimBoard(NotebookCore& core) : core_(core) {}
  std::unique_ptr<BoardSession> open(int32_t& hr) override {
    hr = 0;
    return std::make_unique<SimBoardSession>(core_);
  }

 private:
  NotebookCore& core_;
};

}  // namespace

std::unique_ptr<BoardQuery> make_sim_board(NotebookCore& core) {
  return std::make_unique<SimBoard>(core);
}

}  // namespace zaltor::platform::sim
