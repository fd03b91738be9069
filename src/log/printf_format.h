#pragma once
// printf-style formatting into a caller's buffer, as vsnprintf does it, for the log's hot
// path: a decision pass makes about two hundred log calls, and the C library's formatter
// costs more than the rest of a call (its set-up per call, and exact multi-precision
// arithmetic for every "%.1lf").
//
// The common conversions are formatted here: d i u x X o c s % and f F, with the flags
// "-+ 0", a width and a precision (numbers or "*") and the length modifiers hh h l ll z j t.
// Fixed-point numbers go through std::to_chars, which rounds exactly as printf does (the
// exact binary value, ties to even). Whatever else a format holds (e g a p n, "#", "L",
// wide characters), the arguments whose text is the C library's own choice (a null
// string, an infinite or NaN number) and widths or precisions beyond the buffers here send
// the whole call to vsnprintf when they are met: the arguments are read from a copy, and
// vsnprintf formats the call again from the start.

#include <cstdarg>
#include <cstddef>

namespace zaltor::log {

// vsnprintf's contract: writes at most capacity - 1 characters and a terminator (nothing
// when capacity is 0) and returns the length of the whole text, or a negative value when
// the C library's formatter fails.
int format_into(char* out, size_t capacity, const char* fmt, va_list ap);

}  // namespace zaltor::log
