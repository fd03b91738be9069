#pragma once
// The process's thread pool: work items that run a callback with a context on a pool
// thread, once per submission.

namespace zaltor::platform {

class ThreadPool {
 public:
  using WorkCallback = void (*)(void* context);

  // A work item (PTP_WORK). It belongs to the pool and lives as long as the pool.
  class Work {
   public:
    virtual ~Work() = default;
  };

  virtual ~ThreadPool() = default;
  // CreateThreadpoolWork on the default pool: null when the item cannot be created.
  virtual Work* create_work(WorkCallback callback, void* context) = 0;
  // SubmitThreadpoolWork: runs the item's callback once on a pool thread. Submitting no
  // item does nothing.
  virtual void submit(Work* work) = 0;
};

}  // namespace zaltor::platform
