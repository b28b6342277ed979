#include <octree/Location.h>
#include <tools/lumaro/Commands.h>
#include <tools/lumaro/Console.h>
#include <tools/lumaro/StoreInfo.h>

#include <memory>

namespace Tool {

void addInfoCommand(CLI::App& app, Job& job) {
    struct Options {
        std::string store;
        bool json = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand(
        "info",
        "Print a store's kind, bounds, points, attributes, levels and spacing; coordinates are absolute.");
    addMemoryLimitOption(*command);
    command
        ->add_option("store", options->store,
                     "Folder of the store, its metadata.json or ept.json, or a COPC file")
        ->required()
        ->type_name("STORE");
    command->add_flag("--json", options->json, "Print one JSON object instead of text");
    command->callback([options, &job] {
        job = [options](const std::stop_token& stop) {
            const StoreInfo info =
                readStoreInfo(Octree::Location::fromPath(pathFromUtf8(options->store)), stop);
            if (stop.stop_requested()) {
                return false;
            }
            writeOutput(options->json ? infoJson(info) : infoText(info));
            return true;
        };
    });
}

}  // namespace Tool
