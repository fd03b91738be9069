#pragma once
// Files and the program directory. Paths are UTF-8.

#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace zaltor::platform {

// The largest input file read whole: configuration files ("Conf.bin", "Conf.ini", a console
// configuration, "ver.txt") and scenario files. They hold kilobytes; a file beyond 64 MiB is
// refused unread (as a failed allocation, where the reader has one) instead of being held
// in memory, so that a stray huge file cannot exhaust the service's memory at start.
inline constexpr uint64_t kMaxInputFileBytes = uint64_t{64} << 20;

// Sizes `data` for a file's bytes; false instead of std::bad_alloc when there is no room.
inline bool try_resize(std::vector<uint8_t>& data, size_t size) {
  try {
    data.resize(size);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

class FileSystem {
 public:
  virtual ~FileSystem() = default;

  // The directory of the running executable (its path less the last component).
  // 0, or the system's error code.
  virtual uint32_t program_directory(std::string& dir) = 0;
  // `dir` and `name` joined with the platform's separator.
  virtual std::string join(const std::string& dir, const std::string& name) = 0;
  virtual bool exists(const std::string& path) = 0;
  // 0, or the system's error code.
  virtual uint32_t remove(const std::string& path) = 0;

  // Whether `path` can be read whole as an input file: 0 for a regular file of at most
  // kMaxInputFileBytes; EISDIR for a directory or anything else that is not a plain file;
  // EFBIG for a larger file; else the error number of examining it (ENOENT: not there).
  // The default serves file systems held in memory, whose files are all readable.
  virtual int check_input_file(const std::string& path) {
    (void)path;
    return 0;
  }

  // Reads a whole file in binary mode. 0, or the C runtime's error number, with the step
  // that failed. A directory fails to open (EISDIR); a file larger than kMaxInputFileBytes,
  // or one whose buffer cannot be allocated, fails at kAllocate (ENOMEM) with nothing read.
  enum class ReadStep { kOpen, kSeek, kAllocate, kRead };
  virtual int read_binary(const std::string& path, std::vector<uint8_t>& data,
                          ReadStep& failed) = 0;
  // Writes `text` to a new or truncated file in text mode ("w": on Windows each line feed
  // becomes carriage return and line feed). 0 or the error number; `written` counts the
  // bytes of `text` taken.
  virtual int write_text(const std::string& path, std::string_view text, size_t& written) = 0;
  // Appends UTF-8 text in text mode, writing a byte-order mark first when the file is new
  // or empty ("a+, ccs=UTF-8"). 0, or the error number when the file cannot be opened.
  virtual int append_utf8_text(const std::string& path, std::string_view text) = 0;
  // Reads a UTF-8 text file ("r, ccs=UTF-8"; a leading byte-order mark is dropped). A
  // directory fails with EISDIR, a file larger than kMaxInputFileBytes with EFBIG.
  virtual int read_utf8_text(const std::string& path, std::string& text) = 0;
};

}  // namespace zaltor::platform
