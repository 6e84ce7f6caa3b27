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

// Loads a BMP file. Before handing it to the library, checks what the library
// cannot say clearly: the file exists and can be read, starts with "BM", and
// holds as many bytes as its header announces. `depths` lists the accepted bit
// counts (empty: any). Throws Failure("<path>: <reason>").
void load_bmp(const std::string & path, kevra::CDib & image, const std::vector<int> & depths);

// Saves through a temporary file in the destination's directory, then renames
// it over the destination, so that a failed save never leaves a partial or
// truncated file under the destination's name. Throws Failure("<path>: <reason>").
void save_bmp(kevra::CDib & image, const std::string & path);

// The library shows some refusals in a message box and writes some notes to
// a debug output. The command line collects them per thread instead, so that
// they can end up in the one-line message of the file concerned.
void install_library_notices();
std::string take_library_notices(); // "" when none; texts joined with "; "

// "12.5" style number without trailing zeros.
std::string format_number(double value, int decimals);

} // namespace kevra_cli

#endif
