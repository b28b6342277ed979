#include <tools/lumaro/Commands.h>
#include <tools/lumaro/Console.h>
#include <tools/lumaro/SampleScene.h>

#include <memory>

namespace Tool {

namespace {

StoreEncoding parseEncoding(const std::string& text) {
    if (text == "brotli") {
        return StoreEncoding::Brotli;
    }
    if (text == "uncompressed") {
        return StoreEncoding::Uncompressed;
    }
    throw UsageError("\"" + text + "\" is neither brotli nor uncompressed");
}

}  // namespace

void addMakeSampleCommand(CLI::App& app, Job& job) {
    struct Options {
        std::string folder;
        size_t points = DEFAULT_SAMPLE_POINTS;
        StoreEncoding encoding = StoreEncoding::Brotli;
    };
    constexpr uint64_t MOST = 100'000'000;
    const auto options = std::make_shared<Options>();
    CLI::App* const command =
        app.add_subcommand("make-sample",
                           "Write a made-up scan of a village as a Potree store, the same on every machine. "
                           "An existing store in "
                           "that folder is replaced; any other folder that is not empty is left alone.");
    command->add_option("folder", options->folder, "Folder to write")->required()->type_name("DIR");
    addParsed(
        *command, "--points", options->points,
        [](const std::string& text) { return static_cast<size_t>(parseCount(text, 1, MOST)); }, "N",
        "Number of points (default 1000000)");
    addParsed(*command, "--encoding", options->encoding, parseEncoding, "NAME",
              "How the points are held: brotli (default) or uncompressed");
    command->callback([options, &job] {
        job = [options](const std::stop_token& stop) {
            Progress progress;
            progress.show("making points");
            StoreWriteOptions writing;
            writing.encoding = options->encoding;
            writing.stop = stop;
            writing.onProgress = [&progress](double share) {
                progress.show("writing " + std::to_string(static_cast<int>(share * 100.0)) + " %");
            };
            if (!writeSampleStore(pathFromUtf8(options->folder), options->points, writing)) {
                return false;
            }
            progress.finish(grouped(options->points) + " points written to " + options->folder);
            return true;
        };
    });
}

}  // namespace Tool
