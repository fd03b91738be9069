// The private-profile reader of Windows, reproduced for INI files on Linux.
//
// What it reproduces: lines end at CR, LF or any run of them; blanks (tab to carriage
// return, ^Z and space) around lines, names and values are removed; "[name]" opens a
// section (up to the last ']' of the line, the name trimmed), a line starting with '[' but
// without ']' is an ordinary line; "key=value" lines and lines without '=' (keys without a
// value, which read as absent) fill the current section; lines before the first section
// belong to an unnamed one. Lines starting with ';' are kept as keys whose name starts with
// ';', so no lookup finds them: they are comments. Section and key names compare without
// regard to case (ASCII letters); the first section of a name wins, and within it the first
// key of a name. A value in matching single or double quotes loses them. A UTF-8 byte-order
// mark is skipped and UTF-16 files with a byte-order mark are read; text without a mark is
// taken as UTF-8 (Windows would use the ANSI code page; the configuration is ASCII).
//
// A configuration load asks for hundreds of keys: the file is read and parsed once and the
// parsed file is kept, with an index of its sections and keys, for as long as the file
// stays the same. "The same" is judged as Windows' own profile cache does, by the file's
// identity and times: device, inode, size, modification and change time. A file changed
// within the file system's timestamp granularity of being read could keep all of these, so
// while its times are that close to the read the bytes are compared as well.
//
// A file that is not a plain file (a directory) or is larger than kMaxInputFileBytes reads
// as an empty file, as an unreadable file does on Windows: every lookup gets its default.
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/file_system.h"

#include "platform/posix/posix_backends.h"
#include "platform/utf16.h"

namespace zaltor::platform {
namespace {

struct IniKey {
  std::u16string name;
  std::optional<std::u16string> value;
};

struct IniSection {
  std::u16string name;
  std::vector<IniKey> keys;
  // Case-folded key name -> its first key: the first key of a name is the one found.
  std::unordered_map<std::u16string, size_t> key_index;
};

// A parsed file with the first section of each case-folded name.
struct IniFile {
  std::vector<IniSection> sections;
  std::unordered_map<std::u16string, size_t> section_index;
};

// What identifies one content of a file without reading it.
struct FileStamp {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  int64_t modified_ns = 0;
  int64_t changed_ns = 0;
  bool operator==(const FileStamp&) const = default;
};

// File times can lag the moment of a write by the file system's timestamp granularity
// (a kernel tick, up to 10 ms); twice that and more is taken as settled.
constexpr int64_t kTimestampMarginNs = 50'000'000;

int64_t to_ns(const timespec& t) {
  return static_cast<int64_t>(t.tv_sec) * 1'000'000'000 + t.tv_nsec;
}

int64_t wall_now_ns() {
  timespec t{};
  ::clock_gettime(CLOCK_REALTIME, &t);
  return to_ns(t);
}

bool is_blank(char16_t c) {
  return (c >= 0x09 && c <= 0x0d) || c == 0x1a || c == 0x20;
}

char16_t fold(char16_t c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char16_t>(c + 32) : c;
}

// Names compare without regard to the case of ASCII letters: the index holds them folded.
std::u16string folded(std::u16string_view s) {
  std::u16string out(s);
  for (char16_t& c : out) c = fold(c);
  return out;
}

std::u16string_view trim(std::u16string_view s) {
  size_t b = 0;
  size_t e = s.size();
  while (b < e && is_blank(s[b])) ++b;
  while (e > b && is_blank(s[e - 1])) --e;
  return s.substr(b, e - b);
}

std::u16string decode(const std::string& bytes) {
  const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
  const size_t n = bytes.size();
  if (n >= 3 && p[0] == 0xEF && p[1] == 0xBB && p[2] == 0xBF) {
    return utf8_to_utf16(std::string_view(bytes).substr(3));
  }
  if (n >= 2 && ((p[0] == 0xFF && p[1] == 0xFE) || (p[0] == 0xFE && p[1] == 0xFF))) {
    const bool little = p[0] == 0xFF;
    std::u16string out;
    for (size_t i = 2; i + 1 < n; i += 2) {
      out.push_back(little ? static_cast<char16_t>(p[i] | (p[i + 1] << 8))
                           : static_cast<char16_t>((p[i] << 8) | p[i + 1]));
    }
    return out;
  }
  return utf8_to_utf16(bytes);
}

std::vector<IniSection> parse_sections(const std::string& bytes) {
  std::vector<IniSection> sections(1);  // the unnamed section before the first header
  const std::u16string text = decode(bytes);
  size_t pos = 0;
  while (pos < text.size()) {
    const size_t start = pos;
    while (pos < text.size() && text[pos] != u'\n' && text[pos] != u'\r') ++pos;
    size_t end = pos;
    while (pos < text.size() && (text[pos] == u'\n' || text[pos] == u'\r')) ++pos;
    std::u16string_view line = trim(std::u16string_view(text).substr(start, end - start));
    if (line.empty()) continue;
    if (line.front() == u'[') {
      const size_t close = line.rfind(u']');
      if (close != std::u16string_view::npos && close > 0) {
        sections.push_back(IniSection{std::u16string(trim(line.substr(1, close - 1))), {}, {}});
        continue;
      }
    }
    IniKey key;
    const size_t eq = line.find(u'=');
    if (eq == std::u16string_view::npos) {
      key.name = std::u16string(line);
    } else {
      key.name = std::u16string(trim(line.substr(0, eq)));
      key.value = std::u16string(trim(line.substr(eq + 1)));
    }
    // Consecutive keys with empty names collapse into one, as Windows keeps them.
    auto& keys = sections.back().keys;
    if (!key.name.empty() || keys.empty() || !keys.back().name.empty()) {
      keys.push_back(std::move(key));
    }
  }
  return sections;
}

std::atomic<uint64_t> g_files_parsed{0};

IniFile parse(const std::string& bytes) {
  IniFile file;
  file.sections = parse_sections(bytes);
  for (size_t i = 0; i < file.sections.size(); ++i) {
    IniSection& section = file.sections[i];
    file.section_index.emplace(folded(section.name), i);  // keeps the first of a name
    for (size_t k = 0; k < section.keys.size(); ++k) {
      section.key_index.emplace(folded(section.keys[k].name), k);
    }
  }
  return file;
}

// The stamp of the plain file at `path`; false when it cannot be read as one (missing, not
// a plain file, or larger than kMaxInputFileBytes).
bool stamp_of(const std::string& path, FileStamp& stamp) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
  if (static_cast<uint64_t>(st.st_size) > kMaxInputFileBytes) return false;
  stamp.device = st.st_dev;
  stamp.inode = st.st_ino;
  stamp.size = st.st_size;
  stamp.modified_ns = to_ns(st.st_mtim);
  stamp.changed_ns = to_ns(st.st_ctim);
  return true;
}

// The whole file, at most kMaxInputFileBytes of it; false when it cannot be read.
bool read_bytes(const std::string& path, std::string& bytes) {
  bytes.clear();
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return false;
  bool ok = true;
  try {
    char buf[65536];
    size_t n = 0;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) {
      bytes.append(buf, n);
      if (bytes.size() > kMaxInputFileBytes) {  // it grew while being read
        ok = false;
        break;
      }
    }
    if (std::ferror(f) != 0) ok = false;
  } catch (const std::bad_alloc&) {
    ok = false;
  }
  std::fclose(f);
  if (!ok) bytes.clear();
  return ok;
}

// lstrcpyn: at most size - 1 characters.
std::u16string copy_n(std::u16string_view s, uint32_t size) {
  return std::u16string(s.substr(0, size == 0 ? 0 : size - 1));
}

// Copies a value or default the way the profile functions do: matching quotes are removed.
// When the buffer holds exactly the text after the opening quote less one character, the
// last character taken is dropped too; kept so that reads match Windows' own.
std::u16string copy_entry(std::u16string_view v, uint32_t size) {
  bool quoted = false;
  if (!v.empty() && (v[0] == u'\'' || v[0] == u'"') && v.size() > 1 && v.back() == v[0]) {
    quoted = true;
    v.remove_prefix(1);
  }
  std::u16string out = copy_n(v, size);
  if (quoted && size >= v.size() && !out.empty()) out.pop_back();
  return out;
}

class IniProfileReader final : public ProfileReader {
 public:
  uint32_t read_int(const std::string& section, const std::string& key, int32_t default_value,
                    const std::string& path) override {
    std::string text;
    // The value is read into a buffer of 30 characters, as Windows does.
    if (read_string(section, key, "", text, 30, path) == 0) {
      return static_cast<uint32_t>(default_value);
    }
    return parse_integer(utf8_to_utf16(text));
  }

  uint32_t read_string(const std::string& section, const std::string& key,
                       const std::string& default_value, std::string& value, uint32_t size,
                       const std::string& path) override {
    value.clear();
    if (size == 0) return 0;
    const std::lock_guard<std::mutex> hold(mutex_);
    std::u16string def = utf8_to_utf16(default_value);
    // Trailing spaces of the default are dropped (all but a first character).
    while (def.size() > 1 && def.back() == u' ') def.pop_back();
    const IniFile& file = load(path);
    const IniKey* found = find(file, utf8_to_utf16(section), utf8_to_utf16(key));
    const std::u16string out =
        copy_entry(found != nullptr && found->value ? *found->value : def, size);
    value = utf16_to_utf8(out);
    return static_cast<uint32_t>(out.size());
  }

  uint32_t read_section_names(std::string& names, uint32_t size, const std::string& path) override {
    names.clear();
    if (size <= 1) return 0;
    const std::lock_guard<std::mutex> hold(mutex_);
    const IniFile& file = load(path);
    std::u16string buf;
    uint32_t room = size - 1;  // one character stays for the list's final zero
    for (const IniSection& s : file.sections) {
      if (s.name.empty()) continue;
      const auto need = static_cast<uint32_t>(s.name.size() + 1);
      if (need >= room) {
        // Cut: the name's first room - 1 characters, its zero, the final zero.
        buf.append(s.name.substr(0, room - 1));
        names = utf16_to_utf8(buf);
        return size - 2;
      }
      buf.append(s.name);
      buf.push_back(u'\0');
      room -= need;
    }
    names = utf16_to_utf8(buf);
    return static_cast<uint32_t>(buf.size());
  }

 private:
  static uint32_t parse_integer(const std::u16string& s) {
    // Blanks, an optional sign, an optional 0b/0o/0x base prefix and digits; the lower 32
    // bits of the value; no digits read as 0.
    size_t i = 0;
    while (i < s.size() && s[i] <= u' ') ++i;
    bool minus = false;
    if (i < s.size() && (s[i] == u'+' || s[i] == u'-')) {
      minus = s[i] == u'-';
      ++i;
    }
    uint32_t base = 10;
    if (i + 1 < s.size() && s[i] == u'0') {
      if (s[i + 1] == u'b') base = 2;
      if (s[i + 1] == u'o') base = 8;
      if (s[i + 1] == u'x') base = 16;
      if (base != 10) i += 2;
    }
    uint32_t total = 0;
    for (; i < s.size(); ++i) {
      const char16_t c = s[i];
      uint32_t digit = 99;
      if (c >= u'0' && c <= u'9') digit = c - u'0';
      if (c >= u'A' && c <= u'Z') digit = c - u'A' + 10;
      if (c >= u'a' && c <= u'z') digit = c - u'a' + 10;
      if (digit >= base) break;
      total = total * base + digit;
    }
    return minus ? 0u - total : total;
  }

  static const IniKey* find(const IniFile& file, const std::u16string& section,
                            const std::u16string& key) {
    // Only the first section of a name is searched.
    const auto s = file.section_index.find(folded(trim(section)));
    if (s == file.section_index.end()) return nullptr;
    const IniSection& sec = file.sections[s->second];
    const auto k = sec.key_index.find(folded(trim(key)));
    return k == sec.key_index.end() ? nullptr : &sec.keys[k->second];
  }

  // The parsed file, reused while it stays the same (see the top of this file).
  const IniFile& load(const std::string& path) {
    static const IniFile kUnreadable = parse("");
    FileStamp stamp;
    if (!stamp_of(path, stamp)) {
      cached_ = false;
      return kUnreadable;
    }
    const int64_t read_at = wall_now_ns();
    if (cached_ && path == cached_path_ && stamp == cached_stamp_) {
      if (!settled()) {
        // Times this close to the last read prove nothing: compare the bytes.
        std::string bytes;
        if (!read_bytes(path, bytes)) {
          // A failed read (out of descriptors, say) says nothing about the file: kept as
          // its parse, it would stand for the file until the file changed.
          cached_ = false;
          return kUnreadable;
        }
        if (bytes == cached_bytes_) {
          cached_read_at_ = read_at;
          if (settled()) cached_bytes_ = std::string();
          return cached_file_;
        }
        return reparse(path, stamp, read_at, std::move(bytes));
      }
      return cached_file_;
    }
    std::string bytes;
    if (!read_bytes(path, bytes)) {
      cached_ = false;
      return kUnreadable;
    }
    return reparse(path, stamp, read_at, std::move(bytes));
  }

  const IniFile& reparse(const std::string& path, const FileStamp& stamp, int64_t read_at,
                         std::string bytes) {
    g_files_parsed.fetch_add(1, std::memory_order_relaxed);
    cached_file_ = parse(bytes);
    cached_path_ = path;
    cached_stamp_ = stamp;
    cached_read_at_ = read_at;
    cached_ = true;
    cached_bytes_ = settled() ? std::string() : std::move(bytes);
    return cached_file_;
  }

  // Whether a change after the last read would have changed the file's times.
  bool settled() const {
    const int64_t latest = std::max(cached_stamp_.modified_ns, cached_stamp_.changed_ns);
    return latest + kTimestampMarginNs < cached_read_at_;
  }

  std::mutex mutex_;  // guards the cache: the reader may be shared between threads
  bool cached_ = false;
  std::string cached_path_;
  FileStamp cached_stamp_;
  int64_t cached_read_at_ = 0;  // wall time just before the bytes were read
  std::string cached_bytes_;    // kept only while the stamp is not yet settled
  IniFile cached_file_;
};

}  // namespace

std::unique_ptr<ProfileReader> make_ini_profile_reader() {
  return std::make_unique<IniProfileReader>();
}

uint64_t ini_files_parsed() {
  return g_files_parsed.load(std::memory_order_relaxed);
}

}  // namespace zaltor::platform
