#include <octree/Location.h>
#include <render/renderables/Thumbnail.h>
#include <tools/lumaro/Commands.h>
#include <tools/lumaro/Console.h>
#include <tools/lumaro/LoadingText.h>
#include <tools/lumaro/MemoryLimit.h>
#include <tools/lumaro/PartialPath.h>
#include <tools/lumaro/StoreInfo.h>

#include <memory>
#include <optional>

namespace Tool {

namespace {

namespace fs = std::filesystem;

struct Options {
    std::string store;
    std::string output;
    PictureSize size{512, 512};
    std::optional<Math::Color> background;
    size_t maxLevel = 21;
};

/// A folder beside the target that takes the picture until it is complete.
class UnfinishedPicture {
public:
    explicit UnfinishedPicture(fs::path target) : mTarget(std::move(target)) {
        fs::path folder;
        int number = 0;
        do {
            folder = mTarget;
            folder += ".partial" + std::to_string(++number);
        } while (!fs::create_directory(folder));
        mFolder.emplace(std::move(folder));
    }

    fs::path file() const { return mFolder->path() / "picture.png"; }
    void moveIntoPlace() { fs::rename(file(), mTarget); }

private:
    fs::path mTarget;
    std::optional<PartialPath> mFolder;
};

std::filesystem::path defaultPicture(const Octree::Location& location) {
    return location.copc() != nullptr ? location.path().replace_extension(".png")
                                      : location.folder() / "thumbnail.png";
}

bool makeThumbnail(const Options& options, const std::stop_token& stop) {
    const Octree::Location location = Octree::Location::fromPath(pathFromUtf8(options.store));
    // Points without colours are white.
    const Math::Color background = options.background.value_or(
        hasColors(location, stop) ? Math::Color::white() : Math::Color(32, 32, 32));
    UnfinishedPicture picture(options.output.empty() ? defaultPicture(location)
                                                     : pathFromUtf8(options.output));
    Progress progress;
    const auto report = [&](const Render::LoadingProgress& loading) { progress.show(loadingText(loading)); };
    if (!Render::createThumbnail(location, picture.file(), options.size.width, options.size.height,
                                 background, options.maxLevel, report, stop, storeLimits())) {
        return false;
    }
    picture.moveIntoPlace();
    return true;
}

}  // namespace

void addThumbnailCommand(CLI::App& app, Job& job) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand(
        "thumbnail", "Draw a preview of a store, seen obliquely from above, as a PNG file.");
    addMemoryLimitOption(*command);
    command
        ->add_option("store", options->store,
                     "Folder of the store, its metadata.json or ept.json, or a COPC file")
        ->required()
        ->type_name("STORE");
    command
        ->add_option("-o,--output", options->output,
                     "File to write (default: thumbnail.png in the store, NAME.png beside NAME.laz)")
        ->type_name("FILE");
    addParsed(*command, "--size", options->size, parseSize, "WxH",
              "Picture size in pixels (default 512x512)");
    addParsed(*command, "--background", options->background, parseColor, "RRGGBB",
              "Background colour (default FFFFFF; 202020 for a store without colours)");
    addParsed(
        *command, "--max-level", options->maxLevel,
        [](const std::string& text) { return static_cast<size_t>(parseCount(text, 0, 21)); }, "N",
        "Deepest octree level to load; 0 is the root alone (default: all)");
    command->callback([options, &job] {
        job = [options](const std::stop_token& stop) { return makeThumbnail(*options, stop); };
    });
}

}  // namespace Tool
