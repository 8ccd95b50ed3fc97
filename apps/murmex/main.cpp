// murmex: the command-line host of the noise-reduction library.
#include <cstdio>
#include <exception>
#include <map>
#include <new>

#include <CLI/CLI.hpp>

#include "cli_commands.h"
#include "progress.h"

using namespace murmex_app;

int main(int argc, char** argv)
{
    CLI::App app{"murmex: photographic noise reduction with measured noise profiles", "murmex"};
    app.require_subcommand(1);
    app.footer("Run murmex COMMAND --help for a command's options.");
    std::map<CLI::App*, CommandRunner> runners;
    for (auto add : {addDenoiseCommand, addProfileCommand, addInfoCommand, addSetCommand, addDemoCommand}) {
        CommandRunner run = add(app);
        runners[app.get_subcommands({}).back()] = std::move(run);
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
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
        return ExitInterrupted;
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
