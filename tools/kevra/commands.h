// The sub-commands of `kevra`. Each registers itself on the application and
// returns the function that runs it once the command line is parsed; that
// function returns the exit code, or throws Failure / UsageError.
#ifndef KEVRA_CLI_COMMANDS_H
#define KEVRA_CLI_COMMANDS_H

#include "kevra/types.h"

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace kevra_cli {

struct Command {
    CLI::App * app = nullptr;
    std::function<int()> run;
};

Command add_process_command(CLI::App & app);
Command add_info_command(CLI::App & app);
Command add_histogram_command(CLI::App & app);
Command add_lut_command(CLI::App & app);
Command add_convert_command(CLI::App & app);
Command add_palette_command(CLI::App & app);
Command add_demo_command(CLI::App & app);

// --format bmp|png|tiff on a command that writes a file.
void add_format_option(CLI::App & command, std::string & format);
// "kevra: note: <file>: <text>" for each note of a loaded file.
struct SourceInfo;
void show_notes(const std::string & file, const SourceInfo & info);
// "WIDTHxHEIGHT". Throws UsageError naming the option.
void parse_size(const std::string & option, const std::string & text, int & width, int & height);

} // namespace kevra_cli

#endif
