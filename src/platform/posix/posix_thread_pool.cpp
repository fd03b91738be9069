#include <mutex>
#include <vector>

#include "platform/posix/posix_backends.h"

namespace zaltor::platform {
namespace {

class PlainThreadPool final : public ThreadPool {
 public:
  explicit PlainThreadPool(Clock& clock) : clock_(clock) {}
  ~PlainThreadPool() override {
    std::lock_guard<std::mutex> hold(lock_);
    for (auto& t : threads_) t->detach();
  }

  Work* create_work(WorkCallback callback, void* context) override {
    if (callback == nullptr) return nullptr;
    std::lock_guard<std::mutex> hold(lock_);
    items_.push_back(std::make_unique<Item>(callback, context));
    return items_.back().get();
  }

  void submit(Work* work) override {
    if (work == nullptr) return;
    const auto* item = static_cast<const Item*>(work);
    WorkCallback callback = item->callback;
    void* context = item->context;
    std::lock_guard<std::mutex> hold(lock_);
    threads_.push_back(
        clock_.start_thread("pool work", [callback, context] { callback(context); }));
  }

 private:
  struct Item final : Work {
    Item(WorkCallback cb, void* ctx) : callback(cb), context(ctx) {}
    WorkCallback callback;
    void* context;
  };

  Clock& clock_;
  std::mutex lock_;
  std::vector<std::unique_ptr<Item>> items_;
  std::vector<std::unique_ptr<Thread>> threads_;
};

}  // namespace

std::unique_ptr<ThreadPool> make_thread_pool(Clock& clock) {
  return std::make_unique<PlainThreadPool>(clock);
}

}  // namespace zaltor::platform
