#include "log/printf_format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <type_traits>

namespace zaltor::log {
namespace {

// Beyond this a width or precision is left to the C library.
constexpr int kMaxField = 4096;

enum class Length { kNone, kHh, kH, kL, kLl, kZ, kJ, kT };

// One conversion of a format, from "%" to the conversion character: what it says.
struct Spec {
  const char* end = nullptr;  // one past the conversion character
  bool left = false;
  bool plus = false;
  bool space = false;
  bool zero = false;
  bool width_arg = false;
  int width = 0;
  bool precision_arg = false;
  int precision = -1;  // -1: none
  Length length = Length::kNone;
  char conversion = 0;
};

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// A number of the format; false beyond kMaxField.
bool parse_number(const char*& p, int& value) {
  value = 0;
  while (is_digit(*p)) {
    value = value * 10 + (*p - '0');
    if (value > kMaxField) return false;
    ++p;
  }
  return true;
}

// Parses the conversion that begins at `p` ("%"); false for one that is not formatted here.
bool parse_spec(const char* p, Spec& s) {
  s = Spec{};
  ++p;  // the "%"
  for (;; ++p) {
    if (*p == '-') {
      s.left = true;
    } else if (*p == '+') {
      s.plus = true;
    } else if (*p == ' ') {
      s.space = true;
    } else if (*p == '0') {
      s.zero = true;
    } else {
      break;
    }
  }
  if (*p == '*') {
    s.width_arg = true;
    ++p;
  } else if (!parse_number(p, s.width)) {
    return false;
  }
  if (*p == '.') {
    ++p;
    if (*p == '*') {
      s.precision_arg = true;
      ++p;
    } else if (!parse_number(p, s.precision)) {
      return false;
    }
  }
  switch (*p) {
    case 'h':
      s.length = (p[1] == 'h') ? Length::kHh : Length::kH;
      p += (p[1] == 'h') ? 2 : 1;
      break;
    case 'l':
      s.length = (p[1] == 'l') ? Length::kLl : Length::kL;
      p += (p[1] == 'l') ? 2 : 1;
      break;
    case 'z':
      s.length = Length::kZ;
      ++p;
      break;
    case 'j':
      s.length = Length::kJ;
      ++p;
      break;
    case 't':
      s.length = Length::kT;
      ++p;
      break;
    default:
      break;
  }
  s.conversion = *p;
  s.end = p + 1;
  const bool flags = s.left || s.plus || s.space || s.zero;
  const bool sized = s.width_arg || s.width != 0 || s.precision_arg || s.precision >= 0;
  switch (s.conversion) {
    case '%':
      return !flags && !sized && s.length == Length::kNone;
    case 'd':
    case 'i':
      return true;
    case 'u':
    case 'x':
    case 'X':
    case 'o':
      return !s.plus && !s.space;
    case 'c':
    case 's':
      return !s.plus && !s.space && !s.zero && s.length == Length::kNone;
    case 'f':
    case 'F':
      return s.length == Length::kNone || s.length == Length::kL;
    default:
      return false;
  }
}

// The text so far, cut to the buffer as vsnprintf cuts it; `length` counts it all.
class Output {
 public:
  Output(char* out, size_t capacity) : out_(out), room_(capacity > 0 ? capacity - 1 : 0) {}

  void put(const char* text, size_t n) {
    if (length_ < room_) std::memcpy(out_ + length_, text, std::min(n, room_ - length_));
    length_ += n;
  }
  void fill(char c, size_t n) {
    if (length_ < room_) std::memset(out_ + length_, c, std::min(n, room_ - length_));
    length_ += n;
  }
  void finish(size_t capacity) {
    if (capacity > 0) out_[std::min(length_, room_)] = '\0';
  }
  size_t length() const { return length_; }

 private:
  char* out_;
  size_t room_;
  size_t length_ = 0;
};

// `sign` (0: none), then `body`, padded to `width` with spaces (left or right) or zeros
// (between the sign and the body).
void put_padded(Output& out, const Spec& s, int width, char sign, const char* body, size_t n,
                bool zero_pad) {
  const size_t used = n + (sign != 0 ? 1 : 0);
  const size_t pad = static_cast<size_t>(width) > used ? static_cast<size_t>(width) - used : 0;
  if (!s.left && !zero_pad) out.fill(' ', pad);
  if (sign != 0) out.put(&sign, 1);
  if (!s.left && zero_pad) out.fill('0', pad);
  out.put(body, n);
  if (s.left) out.fill(' ', pad);
}

void put_integer(Output& out, const Spec& s, int width, int precision, bool negative,
                 unsigned long long magnitude) {
  char digits[64];
  char* end = digits + sizeof digits;
  char* p = end;
  const unsigned base = s.conversion == 'x' || s.conversion == 'X' ? 16u
                        : s.conversion == 'o'                      ? 8u
                                                                   : 10u;
  const char* symbols = s.conversion == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
  while (magnitude != 0) {
    *--p = symbols[magnitude % base];
    magnitude /= base;
  }
  // The precision is the least number of digits (1 by default; 0 prints no digit for 0).
  const size_t least = precision < 0 ? 1 : static_cast<size_t>(precision);
  char body[kMaxField + 64];
  size_t n = static_cast<size_t>(end - p);
  size_t zeros = least > n ? least - n : 0;
  std::memset(body, '0', zeros);
  std::memcpy(body + zeros, p, n);
  n += zeros;
  char sign = 0;
  if (negative) {
    sign = '-';
  } else if (s.plus) {
    sign = '+';
  } else if (s.space) {
    sign = ' ';
  }
  put_padded(out, s, width, sign, body, n, s.zero && !s.left && precision < 0);
}

// `v` (finite, not negative) with `places` decimals, as printf rounds it (the exact binary
// value, ties to even), into `out`: the length, or 0 when left to std::to_chars. The log's
// numbers ("%.1lf" of a rate) take this way: below 2^53 with at most three decimals the
// exact value times 10^places is a 64-bit integer times a power of two, so that the rounding
// is integer arithmetic.
size_t fixed_few_places(double v, int places, char* out) {
  static constexpr uint64_t kPow10[] = {1, 10, 100, 1000};
  if (places > 3) return 0;
  uint64_t bits = 0;
  std::memcpy(&bits, &v, sizeof bits);
  const int exponent_bits = static_cast<int>(bits >> 52);
  const uint64_t fraction = bits & ((uint64_t{1} << 52) - 1);
  // v = mantissa * 2^exponent exactly.
  const uint64_t mantissa = exponent_bits == 0 ? fraction : (fraction | (uint64_t{1} << 52));
  const int exponent = (exponent_bits == 0 ? 1 : exponent_bits) - 1075;
  if (exponent >= 0) return 0;  // 2^53 and beyond
  const uint64_t pow10 = kPow10[places];
  const uint64_t scaled = mantissa * pow10;  // below 2^63
  const int shift = -exponent;
  uint64_t q = 0;
  if (shift < 64) {
    q = scaled >> shift;
    const uint64_t rest = scaled & ((uint64_t{1} << shift) - 1);
    const uint64_t half = uint64_t{1} << (shift - 1);
    if (rest > half || (rest == half && (q & 1) != 0)) ++q;
  }  // else below a half of the last place: 0
  char whole[24];
  char* w = whole + sizeof whole;
  uint64_t integer = q / pow10;
  do {
    *--w = static_cast<char>('0' + integer % 10);
    integer /= 10;
  } while (integer != 0);
  size_t n = static_cast<size_t>(whole + sizeof whole - w);
  std::memcpy(out, w, n);
  if (places > 0) {
    out[n++] = '.';
    uint64_t part = q % pow10;
    for (int i = places - 1; i >= 0; --i) {
      out[n + static_cast<size_t>(i)] = static_cast<char>('0' + part % 10);
      part /= 10;
    }
    n += static_cast<size_t>(places);
  }
  return n;
}

template <typename Signed>
unsigned long long magnitude_of(Signed v) {
  using Unsigned = std::make_unsigned_t<Signed>;
  return v < 0 ? static_cast<unsigned long long>(Unsigned(0) - static_cast<Unsigned>(v))
               : static_cast<unsigned long long>(v);
}

}  // namespace

int format_into(char* out, size_t capacity, const char* fmt, va_list ap) {
  // The arguments are read from a copy: a case left to the C library, found on the way,
  // then formats the whole call again from `ap`, which is still untouched.
  va_list args;
  va_copy(args, ap);
  bool to_c_library = false;
  Output o(out, capacity);
  const char* p = fmt;
  Spec s;
  while (*p != '\0') {
    const char* next = std::strchr(p, '%');
    if (next == nullptr) {
      o.put(p, std::strlen(p));
      break;
    }
    o.put(p, static_cast<size_t>(next - p));
    if (!parse_spec(next, s)) {
      to_c_library = true;
      break;
    }
    p = s.end;
    int width = s.width;
    if (s.width_arg) {
      width = va_arg(args, int);
      if (width < 0) {
        s.left = true;
        width = width == std::numeric_limits<int>::min() ? std::numeric_limits<int>::max() : -width;
      }
    }
    int precision = s.precision;
    if (s.precision_arg) {
      precision = va_arg(args, int);
      if (precision < 0) precision = -1;
    }
    if (width > kMaxField || precision > kMaxField) {
      to_c_library = true;  // too wide for the buffers here
      break;
    }
    switch (s.conversion) {
      case '%':
        o.put("%", 1);
        break;
      case 'd':
      case 'i': {
        long long v = 0;
        switch (s.length) {
          case Length::kHh:
            v = static_cast<signed char>(va_arg(args, int));
            break;
          case Length::kH:
            v = static_cast<short>(va_arg(args, int));
            break;
          case Length::kL:
            v = va_arg(args, long);
            break;
          case Length::kLl:
            v = va_arg(args, long long);
            break;
          case Length::kZ:
            v = static_cast<long long>(va_arg(args, std::make_signed_t<size_t>));
            break;
          case Length::kJ:
            v = static_cast<long long>(va_arg(args, intmax_t));
            break;
          case Length::kT:
            v = static_cast<long long>(va_arg(args, ptrdiff_t));
            break;
          case Length::kNone:
            v = va_arg(args, int);
            break;
        }
        put_integer(o, s, width, precision, v < 0, magnitude_of(v));
        break;
      }
      case 'u':
      case 'x':
      case 'X':
      case 'o': {
        unsigned long long v = 0;
        switch (s.length) {
          case Length::kHh:
            v = static_cast<unsigned char>(va_arg(args, unsigned));
            break;
          case Length::kH:
            v = static_cast<unsigned short>(va_arg(args, unsigned));
            break;
          case Length::kL:
            v = va_arg(args, unsigned long);
            break;
          case Length::kLl:
            v = va_arg(args, unsigned long long);
            break;
          case Length::kZ:
            v = va_arg(args, size_t);
            break;
          case Length::kJ:
            v = static_cast<unsigned long long>(va_arg(args, uintmax_t));
            break;
          case Length::kT:
            v = static_cast<unsigned long long>(
                static_cast<std::make_unsigned_t<ptrdiff_t>>(va_arg(args, ptrdiff_t)));
            break;
          case Length::kNone:
            v = va_arg(args, unsigned);
            break;
        }
        put_integer(o, s, width, precision, false, v);
        break;
      }
      case 'c': {
        const char c = static_cast<char>(static_cast<unsigned char>(va_arg(args, int)));
        put_padded(o, s, width, 0, &c, 1, false);
        break;
      }
      case 's': {
        const char* text = va_arg(args, const char*);
        if (text == nullptr) {
          to_c_library = true;  // its text for a null string
          break;
        }
        size_t n = 0;
        if (precision < 0) {
          n = std::strlen(text);
        } else {
          const void* nul = std::memchr(text, '\0', static_cast<size_t>(precision));
          n = nul != nullptr ? static_cast<size_t>(static_cast<const char*>(nul) - text)
                             : static_cast<size_t>(precision);
        }
        put_padded(o, s, width, 0, text, n, false);
        break;
      }
      case 'f':
      case 'F': {
        const double v = va_arg(args, double);
        if (!std::isfinite(v)) {
          to_c_library = true;  // its text for infinities and NaNs
          break;
        }
        // printf's rounding: the exact binary value, ties to even.
        char digits[kMaxField + 400];
        const int places = precision < 0 ? 6 : precision;
        size_t n = fixed_few_places(std::fabs(v), places, digits);
        if (n == 0) {
          const auto r = std::to_chars(digits, digits + sizeof digits, std::fabs(v),
                                       std::chars_format::fixed, places);
          if (r.ec != std::errc{}) {
            to_c_library = true;
            break;
          }
          n = static_cast<size_t>(r.ptr - digits);
        }
        char sign = 0;
        if (std::signbit(v)) {
          sign = '-';
        } else if (s.plus) {
          sign = '+';
        } else if (s.space) {
          sign = ' ';
        }
        put_padded(o, s, width, sign, digits, n, s.zero && !s.left);
        break;
      }
      default:
        break;
    }
    if (to_c_library) break;
  }
  va_end(args);
  if (to_c_library) return std::vsnprintf(out, capacity, fmt, ap);
  o.finish(capacity);
  return static_cast<int>(o.length());
}

}  // namespace zaltor::log
