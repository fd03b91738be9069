// The base board query: the scenario's product strings, or its query error.
#include "platform/sim/sim_seams.h"

namespace zaltor::platform::sim {
namespace {

class SimBoard final : public BoardQuery {
 public:
  explicit SimBoard(NotebookCore& core) : core_(core) {}
  BoardProducts base_board_products() override {
    std::lock_guard<std::mutex> g(core_.mutex);
    BoardProducts answer;
    if (core_.scenario.query_error) {
      answer.failed_step = BoardQueryStep::kExecQuery;
      answer.hr = *core_.scenario.query_error;
      return answer;
    }
    answer.products = core_.scenario.products;
    return answer;
  }

 private:
  NotebookCore& core_;
};

}  // namespace

std::unique_ptr<BoardQuery> make_sim_board(NotebookCore& core) {
  return std::make_unique<SimBoard>(core);
}

}  // namespace zaltor::platform::sim
