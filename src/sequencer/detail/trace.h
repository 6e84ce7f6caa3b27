// The sequencer's trace file, shared by every sequencer of the process.
//
// Lines are UTF-8 text. Whether the file is written at all is decided once per
// process, at the first line traced: only when the file already exists then.
#ifndef KEVRA_SEQUENCER_DETAIL_TRACE_H
#define KEVRA_SEQUENCER_DETAIL_TRACE_H

#include <string>

namespace kevra::detail {

// printf-style formatting into a UTF-8 string ("%f" takes a double: floats
// are widened by the call, as the trace lines want).
#if defined(__GNUC__) || defined(__clang__)
__attribute__((format(printf, 1, 2)))
#endif
std::string trace_format(const char *format, ...);

// Appends one line (the text, then a line feed), prefixed "ERROR : " when
// error is set, when tracing is on.
void trace_line(const std::string &utf8_text, bool error);

// Test hook: forget the once-per-process decision, so that the next line
// traced tests for the file again. Not for library code.
void reset_trace_state_for_tests();

} // namespace kevra::detail

#endif
