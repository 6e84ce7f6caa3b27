// kevra: the command line of the Kevra image-processing library.
#include "commands.h"
#include "common.h"
#include "run.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <vector>

int main(int argc, char ** argv)
{
    using namespace kevra_cli;

    CLI::App app{"kevra: dental image processing with the Kevra library (8/16-bit grey and 24-bit colour BMP files)",
                 "kevra"};
    app.require_subcommand(1);
    app.footer("Run `kevra COMMAND --help` for the options of a command.");
    std::vector<Command> commands = {
        add_process_command(app), add_info_command(app),    add_histogram_command(app),
        add_lut_command(app),     add_convert_command(app), add_palette_command(app),
        add_demo_command(app),
    };

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp & e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp & e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion & e) {
        return app.exit(e);
    } catch (const CLI::ParseError & e) {
        std::fprintf(stderr, "kevra: %s (see --help)\n", e.what());
        return exit_usage;
    }

    int code = exit_failure;
    try {
        for (const Command & c : commands)
            if (c.app->parsed())
                code = c.run();
    } catch (const UsageError & e) {
        std::fprintf(stderr, "kevra: %s\n", e.what());
        code = exit_usage;
    } catch (const Failure & e) {
        std::fprintf(stderr, "kevra: %s\n", e.what());
        code = exit_failure;
    } catch (const std::exception & e) {
        std::fprintf(stderr, "kevra: %s\n", e.what());
        code = exit_failure;
    }
    close_trace();
    return code;
}
