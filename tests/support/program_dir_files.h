#pragma once
// A file system whose program directory is a directory the test chose: the configuration
// files a service start reads and writes beside its program land there instead of in the
// build's directory. Every other operation goes to the wrapped file system; the paths
// removed and written are recorded.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/file_system.h"

namespace zaltor::test_support {

class ProgramDirFiles : public platform::FileSystem {
 public:
  ProgramDirFiles(std::unique_ptr<platform::FileSystem> inner, std::string dir)
      : inner_(std::move(inner)), dir_(std::move(dir)) {}
  uint32_t program_directory(std::string& dir) override {
    dir = dir_;
    return 0;
  }
  std::string join(const std::string& d, const std::string& n) override {
    return inner_->join(d, n);
  }
  bool exists(const std::string& p) override { return inner_->exists(p); }
  int check_input_file(const std::string& p) override { return inner_->check_input_file(p); }
  uint32_t remove(const std::string& p) override {
    removed.push_back(p);
    return inner_->remove(p);
  }
  int read_binary(const std::string& p, std::vector<uint8_t>& d, ReadStep& s) override {
    return inner_->read_binary(p, d, s);
  }
  int write_text(const std::string& p, std::string_view t, size_t& w) override {
    written.push_back(p);
    return inner_->write_text(p, t, w);
  }
  int append_utf8_text(const std::string& p, std::string_view t) override {
    return inner_->append_utf8_text(p, t);
  }
  int read_utf8_text(const std::string& p, std::string& t) override {
    return inner_->read_utf8_text(p, t);
  }
  std::vector<std::string> removed;
  std::vector<std::string> written;

 private:
  std::unique_ptr<platform::FileSystem> inner_;
  std::string dir_;
};

}  // namespace zaltor::test_support
