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
#include <cstdint>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

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
};

bool is_blank(char16_t c) {
  return (c >= 0x09 && c <= 0x0d) || c == 0x1a || c == 0x20;
}

char16_t fold(char16_t c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char16_t>(c + 32) : c;
}

bool same_name(const std::u16string& a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (fold(a[i]) != fold(b[i])) return false;
  }
  return true;
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

std::vector<IniSection> parse(const std::string& bytes) {
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
        sections.push_back(IniSection{std::u16string(trim(line.substr(1, close - 1))), {}});
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
    const std::vector<IniSection>& sections = load(path);
    const IniKey* found = find(sections, utf8_to_utf16(section), utf8_to_utf16(key));
    const std::u16string out =
        copy_entry(found != nullptr && found->value ? *found->value : def, size);
    value = utf16_to_utf8(out);
    return static_cast<uint32_t>(out.size());
  }

  uint32_t read_section_names(std::string& names, uint32_t size, const std::string& path) override {
    names.clear();
    if (size <= 1) return 0;
    const std::lock_guard<std::mutex> hold(mutex_);
    const std::vector<IniSection>& sections = load(path);
    std::u16string buf;
    uint32_t room = size - 1;  // one character stays for the list's final zero
    for (const IniSection& s : sections) {
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

  static const IniKey* find(const std::vector<IniSection>& sections, const std::u16string& section,
                            const std::u16string& key) {
    const std::u16string_view sec = trim(section);
    const std::u16string_view k = trim(key);
    for (const IniSection& s : sections) {
      if (!same_name(s.name, sec)) continue;
      for (const IniKey& entry : s.keys) {
        if (same_name(entry.name, k)) return &entry;
      }
      return nullptr;  // only the first section of a name is searched
    }
    return nullptr;
  }

  // The parsed file, reused while its bytes stay the same.
  const std::vector<IniSection>& load(const std::string& path) {
    std::string bytes;
    std::ifstream in(path, std::ios::binary);
    if (in) {
      std::ostringstream all;
      all << in.rdbuf();
      bytes = all.str();
    }
    if (!cached_ || path != cached_path_ || bytes != cached_bytes_) {
      cached_sections_ = parse(bytes);
      cached_path_ = path;
      cached_bytes_ = std::move(bytes);
      cached_ = true;
    }
    return cached_sections_;
  }

  std::mutex mutex_;  // guards the cache: the reader may be shared between threads
  bool cached_ = false;
  std::string cached_path_;
  std::string cached_bytes_;
  std::vector<IniSection> cached_sections_;
};

}  // namespace

std::unique_ptr<ProfileReader> make_ini_profile_reader() {
  return std::make_unique<IniProfileReader>();
}

}  // namespace zaltor::platform
