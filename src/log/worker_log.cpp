#include "log/worker_log.h"

#include "platform/status.h"

namespace zaltor::log {

void WorkerLog::attach(LogContext context) {
  std::unique_lock<std::shared_mutex> hold(lock_);
  context_ = context;
  attached_ = true;
}

void WorkerLog::detach() {
  std::unique_lock<std::shared_mutex> hold(lock_);
  attached_ = false;
  redirect_ = nullptr;
  context_ = LogContext{};
}

void WorkerLog::redirect(Log* calls) {
  std::unique_lock<std::shared_mutex> hold(lock_);
  redirect_ = calls;
}

void WorkerLog::write_entry(uint8_t level, const char* line) {
  std::shared_lock<std::shared_mutex> hold(lock_);
  if (attached_ && context_.writer != nullptr) context_.writer->WriteLogEntry(line, level);
}

void WorkerLog::vwrite(uint8_t level, const char* fmt, va_list ap) {
  std::shared_lock<std::shared_mutex> hold(lock_);
  if (redirect_ != nullptr) {
    redirect_->vwrite(level, fmt, ap);
    return;
  }
  if (!attached_) return;
  if (!context_.console_mode()) {
    context_.lines->assemble(level, fmt, ap, *context_.writer);
    return;
  }
  // The file receives the call's text as it was formatted into the line buffer.
  CallText text;
  context_.lines->assemble(level, fmt, ap, *context_.writer, &text);
  write_file_text(text.view());
}

uint32_t WorkerLog::write_file(const char* fmt, va_list ap) {
  return write_file_text(vformat(fmt, ap));
}

uint32_t WorkerLog::write_file_text(std::string_view text) {
  if (file_.files == nullptr) return kStatusLogFailure;
  if (file_.mutex != nullptr) file_.mutex->lock();
  if (file_.files->append_utf8_text(file_.name, text) != 0) {
    return kStatusLogFailure;  // the mutex stays with this thread
  }
  if (file_.mutex != nullptr) file_.mutex->unlock();
  return SWITCH_OK;
}

}  // namespace zaltor::log
