// The log's own printf-style formatting gives, byte for byte, what the C library's gives.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "log/printf_format.h"
#include "platform/log.h"

namespace zaltor::log {
namespace {

struct Both {
  std::string ours;
  int ours_length;
  std::string c_library;
  int c_library_length;
};

Both both(size_t capacity, const char* fmt, ...) {
  std::vector<char> a(capacity + 1, 'X');
  std::vector<char> b(capacity + 1, 'X');
  va_list ap;
  va_start(ap, fmt);
  va_list again;
  va_copy(again, ap);
  const int na = format_into(a.data(), capacity, fmt, ap);
  const int nb = std::vsnprintf(b.data(), capacity, fmt, again);
  va_end(again);
  va_end(ap);
  return {std::string(a.data(), a.size()), na, std::string(b.data(), b.size()), nb};
}

#define EXPECT_AS_C_LIBRARY(...)                                  \
  do {                                                            \
    const Both r = both(__VA_ARGS__);                             \
    EXPECT_EQ(r.ours, r.c_library) << #__VA_ARGS__;               \
    EXPECT_EQ(r.ours_length, r.c_library_length) << #__VA_ARGS__; \
  } while (false)

TEST(PrintfFormat, TheFormatsOfADecisionPass) {
  for (double rate : {300.0, 337.5, 866.7, 1234.25, 0.05, 0.15, 0.25, 0.35, 2.5, 1e-7, 99.95}) {
    EXPECT_AS_C_LIBRARY(256, "(%.1lfM), ", rate);
    EXPECT_AS_C_LIBRARY(256, "Avg: %.1lf Mbps\n\n", rate);
    EXPECT_AS_C_LIBRARY(256, "%f|%.0f|%.3f|%12.2f|%-12.2f|%012.2f|%+.1f|% .1f", rate, rate, rate,
                        rate, rate, rate, rate, rate);
    EXPECT_AS_C_LIBRARY(256, "%f|%.0f|%+.1f|%010.1F", -rate, -rate, -rate, -rate);
  }
  for (int v : {0, 1, -1, -55, -95, -200, 16, 99, std::numeric_limits<int>::min(),
                std::numeric_limits<int>::max()}) {
    EXPECT_AS_C_LIBRARY(256, "Getting RSSI for mode %d: ", v);
    EXPECT_AS_C_LIBRARY(256, "*%d |%d |#%2d) |%5d|%-5d|%05d|%+d|% d|%.3d|%5.3d|%-+6d|%.0d|", v, v,
                        v, v, v, v, v, v, v, v, v, v);
    EXPECT_AS_C_LIBRARY(256, "%u|%x|%X|%o|%08x|%-8x|%.5u|%8.3x|%.0u", v, v, v, v, v, v, v, v, v);
    EXPECT_AS_C_LIBRARY(256, "%hhd|%hd|%hhu|%hu|%hhx", v, v, v, v, v);
  }
  EXPECT_AS_C_LIBRARY(256, "Sleep: %d\n\n", 3600000);
  EXPECT_AS_C_LIBRARY(256, "%s failed w/err 0x%08lx", "CreateFile", 0x80070005ul);
  EXPECT_AS_C_LIBRARY(256, "%ld|%lu|%lld|%llu|%llx|%zu|%zd|%jd|%td", -5L, 7ul, -9LL,
                      18446744073709551615ull, 0xDEADBEEFCAFEull, size_t{42},
                      static_cast<std::make_signed_t<size_t>>(-3), intmax_t{-12}, ptrdiff_t{-4});
  EXPECT_AS_C_LIBRARY(256, "%s|%10s|%-10s|%.2s|%8.3s|%c|%3c|%-3c|%%|100%%", "Main", "Aux", "Div",
                      "Aux2", "Aux3", 'x', 'y', 'z');
  EXPECT_AS_C_LIBRARY(256, "%*d|%-*d|%.*f|%*.*s|%*d", 6, 42, 6, 42, 2, 3.14159, 8, 2, "abcdef", -6,
                      42);
  EXPECT_AS_C_LIBRARY(256, "{%d, %d} = %s, **(%d), ", 1, 0, "Main", 1);
  EXPECT_AS_C_LIBRARY(256, "no conversion at all\n");
  EXPECT_AS_C_LIBRARY(256, "");
}

TEST(PrintfFormat, NumbersOverTheirWholeRange) {
  uint64_t x = 0x9E3779B97F4A7C15ull;
  for (int i = 0; i < 2000; ++i) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    const double scaled = static_cast<double>(static_cast<int64_t>(x)) / 1e9;
    const double tiny = static_cast<double>(x % 100000) / 1000.0;  // three decimals: ties
    EXPECT_AS_C_LIBRARY(512, "%.1f %.2f %f %.0f %.1f %.2f", scaled, scaled, scaled, scaled, tiny,
                        tiny);
    EXPECT_AS_C_LIBRARY(512, "%lld %llu %llx %d", static_cast<long long>(x), x, x,
                        static_cast<int>(x));
  }
  EXPECT_AS_C_LIBRARY(512, "%.1f|%f", std::numeric_limits<double>::max(),
                      std::numeric_limits<double>::denorm_min());
  EXPECT_AS_C_LIBRARY(512, "%.1f|%.1f", -0.0, -0.04);
}

TEST(PrintfFormat, CasesLeftToTheCLibraryGiveItsText) {
  const char* none = nullptr;
  EXPECT_AS_C_LIBRARY(256, "before %s after %d", none, 5);
  EXPECT_AS_C_LIBRARY(256, "%f %F %.1f %d", std::numeric_limits<double>::infinity(),
                      -std::numeric_limits<double>::infinity(),
                      std::numeric_limits<double>::quiet_NaN(), 7);
  EXPECT_AS_C_LIBRARY(256, "%e %g %#x %p", 1.5, 2.5, 255u, static_cast<void*>(nullptr));
  EXPECT_AS_C_LIBRARY(256, "%5000d|", 1);
  EXPECT_AS_C_LIBRARY(256, "%*d|", 5000, 1);
}

TEST(PrintfFormat, TextIsCutToTheCapacityAndTheLengthIsTheWholeText) {
  for (size_t capacity : {0u, 1u, 2u, 5u, 9u, 10u, 11u, 64u}) {
    EXPECT_AS_C_LIBRARY(capacity, "%s=%d (%.1fM)", "rate", 123, 866.7);
  }
}

}  // namespace
}  // namespace zaltor::log
