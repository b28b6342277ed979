#pragma once

#include <tools/lumaro/Arguments.h>

#include <CLI/CLI.hpp>

#include <functional>
#include <stop_token>
#include <string>
#include <utility>

namespace Tool {

/// What the command line asked for. Returns false when it was stopped; throws when it failed.
using Job = std::function<bool(std::stop_token)>;

// Each adds its subcommand, which stores its work in `job` when it is the one that was given.
void addThumbnailCommand(CLI::App& app, Job& job);
void addRenderCommand(CLI::App& app, Job& job);
void addPickCommand(CLI::App& app, Job& job);
void addScreenPointsCommand(CLI::App& app, Job& job);
void addQueryCommand(CLI::App& app, Job& job);
void addLegendCommand(CLI::App& app, Job& job);
void addInfoCommand(CLI::App& app, Job& job);
void addMakeSampleCommand(CLI::App& app, Job& job);

/// An option whose text goes through `parse` into `target`.
template <class Target, class Parse>
CLI::Option* addParsed(CLI::App& app, const std::string& name, Target& target, Parse parse,
                       const std::string& typeName, const std::string& description) {
    return app
        .add_option_function<std::string>(
            name,
            [&target, parse, name](const std::string& text) {
                try {
                    target = parse(text);
                } catch (const UsageError& error) {
                    throw CLI::ValidationError(name, error.what());
                }
            },
            description)
        ->type_name(typeName);
}

/// "--memory-limit".
void addMemoryLimitOption(CLI::App& command);

}  // namespace Tool
