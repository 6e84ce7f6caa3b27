// kevra: the command line of the Kevra image-processing library.
#include "commands.h"
#include "common.h"
#include "imageio.h"
#include "output.h"
#include "run.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace {

using namespace kevra_cli;

std::string command_list(const CLI::App & app)
{
    std::string list;
    for (const CLI::App * c : app.get_subcommands({}))
        list += (list.empty() ? "" : ", ") + c->get_name();
    return list;
}

const CLI::App * find_command(const CLI::App & app, const std::string & name)
{
    for (const CLI::App * c : app.get_subcommands({}))
        if (c->get_name() == name)
            return c;
    return nullptr;
}

bool known_option(const CLI::App & app, const CLI::App & command, const std::string & name)
{
    return command.get_option_no_throw(name) != nullptr || app.get_option_no_throw(name) != nullptr;
}

// What CLI11 would report late or under another name: `--version`, `help`,
// an unknown command, an unknown option. Returns -1 to go on parsing.
int pre_parse(CLI::App & app, const std::vector<std::string> & args)
{
    std::size_t at = 0;
    for (; at < args.size(); ++at) {
        const std::string & a = args[at];
        if (a == "--")
            break;
        if (a == "--version" || a == "-V") {
            std::printf("kevra %s (Kevra library %s)\nformats: %s\n", KEVRA_TOOL_VERSION, KEVRA_TOOL_VERSION,
                        formats_text().c_str());
            return 0;
        }
    }
    at = 0;
    while (at < args.size() && args[at].size() > 1 && args[at][0] == '-') {
        if (args[at] == "-h" || args[at] == "--help")
            return -1;
        if (!known_option(app, app, args[at].substr(0, args[at].find('=')))) {
            std::fprintf(stderr, "kevra: unknown option %s (see kevra --help)\n", args[at].c_str());
            return exit_usage;
        }
        at += args[at] == "--max-pixels" ? 2 : 1; // the one global option with a value
    }
    if (at >= args.size()) {
        std::fprintf(stderr, "kevra: a command is required (%s; see kevra --help)\n", command_list(app).c_str());
        return exit_usage;
    }
    const std::string & name = args[at];
    if (name == "help") {
        if (at + 1 >= args.size()) {
            std::cout << app.help();
            return 0;
        }
        const CLI::App * c = find_command(app, args[at + 1]);
        if (c == nullptr || args[at + 1] == "help") {
            std::fprintf(stderr, "kevra: unknown command '%s' (commands: %s)\n", args[at + 1].c_str(),
                         command_list(app).c_str());
            return exit_usage;
        }
        std::cout << c->help();
        return 0;
    }
    const CLI::App * command = find_command(app, name);
    if (command == nullptr) {
        std::fprintf(stderr, "kevra: unknown command '%s' (commands: %s)\n", name.c_str(), command_list(app).c_str());
        return exit_usage;
    }
    for (std::size_t i = at + 1; i < args.size(); ++i) {
        const std::string & a = args[i];
        if (a == "--")
            break;
        const bool long_option = a.size() > 2 && a[0] == '-' && a[1] == '-';
        const bool short_option = a.size() == 2 && a[0] == '-' && std::isalpha(static_cast<unsigned char>(a[1]));
        if ((long_option || short_option) && !known_option(app, *command, a.substr(0, a.find('=')))) {
            std::fprintf(stderr, "kevra: unknown option %s for kevra %s (see kevra %s --help)\n", a.c_str(),
                         name.c_str(), name.c_str());
            return exit_usage;
        }
    }
    return -1;
}

} // namespace

int main(int argc, char ** argv)
{
    install_cleanup_handlers();

    CLI::App app{"kevra: dental image processing with the Kevra library (8/16-bit grey and 24-bit colour images; "
                 "BMP, PNG, TIFF, JPEG and DICOM files)",
                 "kevra"};
    app.require_subcommand(1);
    app.fallthrough();
    app.footer("Run `kevra help COMMAND` or `kevra COMMAND --help` for the options of a command.\n"
               "Files: BMP, PNG and TIFF are read and written (the output's extension, or --format, chooses);\n"
               "JPEG and DICOM are read. - stands for standard input or output.");
    bool quiet_flag = false;
    uint64_t max = max_pixels();
    app.add_flag("-q,--quiet", quiet_flag, "No notes, and no summary line after a batch that went well");
    app.add_option("--max-pixels", max, "Refuse inputs (and results) of more pixels than this (default 2^28)")
        ->check(CLI::Range(uint64_t(1), uint64_t(1) << 40))
        ->type_name("N");
    app.add_flag("-V,--version", "The versions of kevra and of the library, and the formats available");
    std::vector<Command> commands = {
        add_process_command(app), add_info_command(app),    add_histogram_command(app),
        add_lut_command(app),     add_convert_command(app), add_palette_command(app),
        add_demo_command(app),
    };
    app.add_subcommand("help", "The help of kevra or of one command: kevra help [COMMAND]");

    const std::vector<std::string> args(argv + 1, argv + argc);
    const int early = pre_parse(app, args);
    if (early >= 0)
        return early;

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp & e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp & e) {
        return app.exit(e);
    } catch (const CLI::ParseError & e) {
        std::string where = "kevra";
        for (const CLI::App * c : app.get_subcommands({}))
            if (c->parsed())
                where += " " + c->get_name();
        std::fprintf(stderr, "kevra: %s (see %s --help)\n", e.what(), where.c_str());
        return exit_usage;
    }
    set_quiet(quiet_flag);
    set_max_pixels(max);

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
