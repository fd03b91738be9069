// Work items on the process's default thread pool.
#include <windows.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "platform/win32/win32_backends.h"

namespace zaltor::platform {
namespace {

struct Item final : ThreadPool::Work {
  Item(ThreadPool::WorkCallback cb, void* ctx, Clock& c) : callback(cb), context(ctx), clock(c) {}
  ThreadPool::WorkCallback callback;
  void* context;
  Clock& clock;
  PTP_WORK work = nullptr;
  // Submissions whose callback has not yet returned.
  std::atomic<int> outstanding{0};
};

void CALLBACK run_item(PTP_CALLBACK_INSTANCE, PVOID parameter, PTP_WORK) {
  auto* item = static_cast<Item*>(parameter);
  {
    // A pool thread is not one the clock started: it joins the clock's schedule for the
    // callback's duration.
    ClockAttachment attached(item->clock);
    item->callback(item->context);
  }
  // The last touch of the item: after this the pool may release it.
  item->outstanding.fetch_sub(1);
}

class Win32ThreadPool final : public ThreadPool {
 public:
  explicit Win32ThreadPool(Clock& clock) : clock_(clock) {}
  ~Win32ThreadPool() override {
    std::lock_guard<std::mutex> hold(lock_);
    for (auto& item : items_) {
      CloseThreadpoolWork(item->work);
      // A callback that still runs (the run body listens for the life of the process) keeps
      // its item: it is left to the end of the process instead of being freed under it.
      if (item->outstanding.load() != 0) static_cast<void>(item.release());
    }
  }

  Work* create_work(WorkCallback callback, void* context) override {
    if (callback == nullptr) return nullptr;
    auto item = std::make_unique<Item>(callback, context, clock_);
    item->work = CreateThreadpoolWork(&run_item, item.get(), nullptr);
    if (item->work == nullptr) return nullptr;
    std::lock_guard<std::mutex> hold(lock_);
    items_.push_back(std::move(item));
    return items_.back().get();
  }

  void submit(Work* work) override {
    if (work == nullptr) return;
    auto* item = static_cast<Item*>(work);
    item->outstanding.fetch_add(1);
    SubmitThreadpoolWork(item->work);
  }

 private:
  Clock& clock_;
  std::mutex lock_;
  std::vector<std::unique_ptr<Item>> items_;
};

}  // namespace

std::unique_ptr<ThreadPool> make_win32_thread_pool(Clock& clock) {
  return std::make_unique<Win32ThreadPool>(clock);
}

}  // namespace zaltor::platform
