#pragma once
// A file system that takes every call to another one but names a directory of the caller's
// choice as the program directory: the tools load a configuration from a directory of
// their own with the service's own loader, which looks for its files in the program
// directory.

#include <string>
#include <utility>
#include <vector>

#include "platform/file_system.h"

namespace zaltor::platform {

class ProgramDirectoryFiles final : public FileSystem {
 public:
  // `keep_appends` false: appended text (the service's log file) is dropped, for a caller
  // that reads the log calls themselves.
  ProgramDirectoryFiles(FileSystem& inner, std::string dir, bool keep_appends = true)
      : inner_(inner), dir_(std::move(dir)), keep_appends_(keep_appends) {}
  uint32_t program_directory(std::string& dir) override {
    dir = dir_;
    return 0;
  }
  std::string join(const std::string& d, const std::string& n) override {
    return inner_.join(d, n);
  }
  bool exists(const std::string& p) override { return inner_.exists(p); }
  int check_input_file(const std::string& p) override { return inner_.check_input_file(p); }
  uint32_t remove(const std::string& p) override { return inner_.remove(p); }
  int read_binary(const std::string& p, std::vector<uint8_t>& d, ReadStep& s) override {
    return inner_.read_binary(p, d, s);
  }
  int write_text(const std::string& p, std::string_view t, size_t& w) override {
    return inner_.write_text(p, t, w);
  }
  int append_utf8_text(const std::string& p, std::string_view t) override {
    return keep_appends_ ? inner_.append_utf8_text(p, t) : 0;
  }
  int read_utf8_text(const std::string& p, std::string& t) override {
    return inner_.read_utf8_text(p, t);
  }

 private:
  FileSystem& inner_;
  std::string dir_;
  bool keep_appends_;
};

}  // namespace zaltor::platform
