#include <core/ExceptionChain.h>
#include <tools/lumaro/Commands.h>
#include <tools/lumaro/Console.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr int FAILED = 1;
constexpr int USAGE = 2;

void describe(CLI::App& app) {
    app.name("lumaro");
    app.description(
        "Pictures and facts of very large point clouds (Potree 2.0 and Entwine stores, COPC files).");
    app.footer(
        "Exit codes: 0 done, 1 failed, 2 wrong usage, 130 stopped with Ctrl-C; one more does not wait.\n"
        "'lumaro COMMAND --help' explains a command.");
    app.set_version_flag("--version", "lumaro " LUMARO_VERSION);
    app.require_subcommand(1);
    app.allow_windows_style_options(false);  // A path may begin with a slash.
}

/// Help and version go to standard output with exit code 0, everything else is wrong usage.
int reportParse(const CLI::App& app, const CLI::ParseError& error) {
    // The parser finds a command missing before it looks at the words that it does not know.
    const std::vector<std::string> unknown = app.remaining();
    if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && !unknown.empty()) {
        std::fprintf(stderr, "lumaro: '%s' is no command\nRun with --help for more information.\n",
                     unknown.front().c_str());
        return USAGE;
    }
    std::ostringstream output;
    std::ostringstream errors;
    const int code = app.exit(error, output, errors);
    std::fputs(errors.str().c_str(), stderr);
    Tool::writeOutput(output.str());
    return code == 0 ? 0 : USAGE;
}

/// False when it was stopped: then it does not matter what it met on its way out.
bool finishes(const Tool::Job& job, const std::stop_token& stop) {
    try {
        return job(stop);
    } catch (const std::exception&) {
        if (!stop.stop_requested()) {
            throw;
        }
        return false;
    }
}

int run(int argc, char** argv) {
    CLI::App app;
    describe(app);
    Tool::Job job;
    Tool::addThumbnailCommand(app, job);
    Tool::addRenderCommand(app, job);
    Tool::addPickCommand(app, job);
    Tool::addScreenPointsCommand(app, job);
    Tool::addQueryCommand(app, job);
    Tool::addLegendCommand(app, job);
    Tool::addInfoCommand(app, job);
    Tool::addMakeSampleCommand(app, job);
    try {
        std::vector<std::string> arguments = Tool::commandLine(argc, argv);
        std::reverse(arguments.begin(), arguments.end());
        app.parse(arguments);
    } catch (const CLI::ParseError& error) {
        return reportParse(app, error);
    }

    const Tool::ConsoleSession session;
    if (!finishes(job, session.stopToken())) {
        std::fputs(Tool::STOPPED_MESSAGE, stderr);
        return Tool::STOPPED_EXIT_CODE;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "lumaro: %s\n", Core::exceptionChain(error).c_str());
        return FAILED;
    }
}
