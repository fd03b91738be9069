// UTF-8 to UTF-16 into a caller's buffer gives what the converting call gives.
#include <gtest/gtest.h>

#include <string>

#include "platform/utf16.h"

namespace zaltor::platform {
namespace {

std::u16string into_buffer(std::string_view text) {
  std::u16string out(text.size(), u'\0');
  out.resize(utf8_to_utf16(text, out.data(), out.size()));
  return out;
}

TEST(Utf8ToUtf16, IntoABufferAsIntoAString) {
  const char* texts[] = {
      "",
      "Sleep: 30000\n",
      "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x93\xB6",  // two, three and four bytes
      "\xFF broken \xC3",                           // invalid lead, cut sequence
      "\xE0\x80\x80 overlong, \xED\xA0\x80 surrogate",
  };
  for (const char* text : texts) {
    EXPECT_EQ(into_buffer(text), utf8_to_utf16(text)) << text;
  }
}

TEST(Utf8ToUtf16, NeverWritesBeyondTheCapacity) {
  char16_t out[4] = {u'x', u'x', u'x', u'x'};
  EXPECT_EQ(utf8_to_utf16("abcdef", out, 3), 3u);
  EXPECT_EQ(std::u16string(out, 4), u"abcx");
}

}  // namespace
}  // namespace zaltor::platform
