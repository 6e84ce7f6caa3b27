// Where the command line writes its files, the way every Unix tool does: a
// regular file (new or existing) is replaced at once by a complete one (written
// to a temporary file in its directory, then renamed over it, keeping its
// permissions); a symbolic link is written through to its target; a device, a
// pipe and "-" (standard output) are written directly. Temporary files are
// removed on failure and on SIGINT, SIGTERM and SIGHUP.
#ifndef KEVRA_CLI_OUTPUT_H
#define KEVRA_CLI_OUTPUT_H

#include <functional>
#include <string>

namespace kevra_cli {

// Installs the signal handlers that remove the registered temporary files
// before the program dies of the signal. Call once, early.
void install_cleanup_handlers();

// A path the signal handlers remove (at most 64 at once, one per thread in a
// batch). Unregister before removing or renaming it yourself.
void register_temporary(const std::string & path);
void unregister_temporary(const std::string & path);

// A new empty temporary file "<dir>.<base>.kevra-<pid>-<n>.tmp", registered.
// `dir` ends with '/' or is empty (the working directory). Throws Failure
// naming `shown` with the system's reason.
std::string make_temporary(const std::string & dir, const std::string & base, const std::string & shown);

// Writes `path` ("-": standard output) through `encode`, which writes a
// complete file at the name it is given and throws Failure on error. Nothing
// is left at a regular destination but the complete new file or the old one.
void write_output(const std::string & path, const std::function<void(const std::string & file)> & encode);

// "-" as an input: standard input copied to a registered temporary file,
// whose path is returned (remove it with remove_temporary). Once per process.
std::string read_standard_input();
void remove_temporary(const std::string & path);

} // namespace kevra_cli

#endif
