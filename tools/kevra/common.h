// Shared plumbing of the kevra command line: failures as one-line messages,
// file names, checked loading and atomic saving of BMP files, and capture of
// the texts the library shows to the user.
#ifndef KEVRA_CLI_COMMON_H
#define KEVRA_CLI_COMMON_H

#include "kevra_steps.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace kevra {
class CDib;
}

namespace kevra_cli {

// Exit codes: 0 done, 1 a file or a run failed, 2 the command line is wrong.
constexpr int exit_failure = 1;
constexpr int exit_usage = 2;

// A failure reported to the user as one line on stderr ("kevra: <what>").
// The text names the file concerned and the reason.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A wrong value on the command line (exit code 2): UsageError, shared with
// the step options (kevra_steps.h).

// UTF-8 command-line text to the library's wide file names (the library turns
// them back into UTF-8 to open the file). Throws Failure for invalid UTF-8.
std::wstring widen(const std::string & utf8);
std::string narrow(const wchar_t * text);

// The library shows some refusals in a message box and writes some notes to
// a debug output. The command line collects them per thread instead, so that
// they can end up in the one-line message of the file concerned.
void install_library_notices();
std::string take_library_notices(); // "" when none; texts joined with "; "

// -q/--quiet: no notes, no batch summary when all went well.
void set_quiet(bool on);
bool quiet();
// "kevra: note: <text>" on stderr, unless quiet.
void note(const std::string & text);

// "12.5" style number without trailing zeros.
std::string format_number(double value, int decimals);

} // namespace kevra_cli

#endif
