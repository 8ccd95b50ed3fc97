// murmex: the command-line host of the noise-reduction library.
#include <malloc.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <map>
#include <new>

#include <CLI/CLI.hpp>

#include "cli_commands.h"
#include "interrupt.h"

using namespace murmex_app;

namespace {

CLI::App* findCommand(CLI::App& app, const std::string& name)
{
    for (CLI::App* s : app.get_subcommands({}))
        if (s->get_name() == name)
            return s;
    return nullptr;
}

// murmex help [COMMAND]: the program's help, or a command's.
CommandRunner addHelpCommand(CLI::App& app)
{
    auto command = std::make_shared<std::string>();
    CLI::App* sub = app.add_subcommand("help", "show this help, or a command's (murmex help COMMAND)");
    sub->add_option("command", *command, "the command to describe")->type_name("COMMAND");
    return [&app, command] {
        if (command->empty()) {
            // app.help() would describe the selected subcommand: this one.
            std::cout << app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal);
            return;
        }
        const CLI::App* described = findCommand(app, *command);
        if (!described)
            throw UsageError("unknown command '" + *command + "' (see murmex --help)");
        std::cout << described->help(app.get_name());
    };
}

}  // namespace

int main(int argc, char** argv)
{
    // One malloc arena for every thread. The library's workers, the reader
    // and the writer each got an arena of their own, and the memory one of
    // them freed stayed in it, out of the others' reach: a 24-megapixel TIFF
    // peaked about 8 MB higher. The library keeps its rows in pools of its
    // own, so the shared arena costs no measurable time.
    mallopt(M_ARENA_MAX, 1);

    CLI::App app{"murmex: photographic noise reduction with measured noise profiles", "murmex"};
    app.require_subcommand(1);
    app.set_version_flag("--version", "murmex " MURMEX_VERSION, "show the program's version and exit");
    app.footer("Run murmex COMMAND --help (or murmex help COMMAND) for a command's options.");
    std::map<CLI::App*, CommandRunner> runners;
    for (auto add : {addDenoiseCommand, addProfileCommand, addInfoCommand, addSetCommand, addDemoCommand, addHelpCommand}) {
        CommandRunner run = add(app);
        runners[app.get_subcommands({}).back()] = std::move(run);
    }

    // A first word that is neither an option nor a command is a mistyped
    // command, which CLI11 would only call unexpected.
    if (argc > 1 && argv[1][0] != '-' && !findCommand(app, argv[1])) {
        printError(std::string("unknown command '") + argv[1] + "' (see murmex --help)");
        return ExitUsage;
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        printError(std::string(e.what()) + " (see murmex --help)");
        return ExitUsage;
    }

    installInterruptHandler();
    try {
        runners.at(app.get_subcommands().front())();
        return ExitOk;
    } catch (const Interrupted&) {
        printError("interrupted");
        return interruptedExitStatus();
    } catch (const UsageError& e) {
        printError(e.what());
        return ExitUsage;
    } catch (const ReportedFailure&) {
        return ExitFailure;
    } catch (const AppError& e) {
        printError(e.what());
        return ExitFailure;
    } catch (const std::bad_alloc&) {
        printError("out of memory");
        return ExitFailure;
    } catch (const std::exception& e) {
        printError(e.what());
        return ExitFailure;
    }
}
