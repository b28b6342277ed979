#include <octree/Location.h>
#include <render/pointcloud/filters/BoxFilter.h>
#include <render/pointcloud/filters/SphereFilter.h>
#include <tools/lumaro/Commands.h>
#include <tools/lumaro/Console.h>
#include <tools/lumaro/LasGrid.h>
#include <tools/lumaro/LasPointWriter.h>
#include <tools/lumaro/MemoryLimit.h>
#include <tools/lumaro/NumberText.h>
#include <tools/lumaro/OutputFile.h>
#include <tools/lumaro/PlyPointWriter.h>
#include <tools/lumaro/PolygonFile.h>
#include <tools/lumaro/QueryExport.h>
#include <tools/lumaro/TextPointWriter.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <memory>
#include <optional>

namespace Tool {

namespace {

using Region = std::shared_ptr<Render::RegionFilter>;

enum class Format { Text, Ply, Las };

struct Options {
    std::string store;
    std::string output;
    Format format = Format::Text;
    Region region;
    std::string polygonFile;
    size_t maxLevel = 21;
    double minSpacing = 0.0;
    LasVersion lasVersion = LasVersion::OneFour;
};

Region parseBox(const std::string& text) {
    const auto [low, high] = parsePlaces(text);
    const Math::NBoundingBox<double, 3> box(low, high);
    if (box.isEmpty()) {
        throw UsageError("'" + text + "' is no box: its second corner is not beyond its first");
    }
    return std::make_shared<Render::BoxFilter>(box);
}

Region parseSphere(const std::string& text) {
    const std::vector<double> n = parseNumbers(text, 4, "a sphere such as 1.5,2,-3,10");
    if (n[3] < 0.0) {
        throw UsageError("'" + text + "' is no sphere: its radius is negative");
    }
    return std::make_shared<Render::SphereFilter>(Math::Point<double, 3>(n[0], n[1], n[2]), n[3]);
}

LasVersion parseLasVersion(const std::string& text) {
    if (text != "1.2" && text != "1.4") {
        throw UsageError("'" + text + "' is neither 1.2 nor 1.4");
    }
    return text == "1.2" ? LasVersion::OneTwo : LasVersion::OneFour;
}

Format formatOf(const std::string& output) {
    std::string ending = utf8FromPath(pathFromUtf8(output).extension());
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (ending == ".txt" || ending == ".xyz") {
        return Format::Text;
    }
    if (ending != ".ply" && ending != ".las") {
        throw CLI::ValidationError("--output", "'" + output + "' does not end in .txt, .xyz, .ply or .las");
    }
    return ending == ".ply" ? Format::Ply : Format::Las;
}

Math::NBoundingBox<double, 3> absoluteBounds(const Octree::Octree& octree) {
    const Math::NBoundingBox<float, 3> box = octree.boundingBox();
    if (box.isEmpty()) {
        return {};
    }
    return {box.min.cast<double>() + octree.referencePosition(),
            box.max.cast<double>() + octree.referencePosition()};
}

std::unique_ptr<PointWriter> makeWriter(const Options& options, std::ostream& stream,
                                        const std::optional<Octree::PositionGrid>& grid,
                                        const Math::NBoundingBox<double, 3>& bounds) {
    switch (options.format) {
        case Format::Text:
            return std::make_unique<TextPointWriter>(stream);
        case Format::Ply:
            return std::make_unique<PlyPointWriter>(stream);
        case Format::Las:
            break;
    }
    return std::make_unique<LasPointWriter>(stream, options.lasVersion, gridFor32Bits(grid, bounds));
}

/// Where a file cannot be as exact as the store.
void reportMove(const PointWriter& writer) {
    const auto* const las = dynamic_cast<const LasPointWriter*>(&writer);
    if (las != nullptr && las->largestMove() > 0.0) {
        std::fprintf(stderr, "lumaro: coordinates were rounded to the file's grid, by up to %s\n",
                     shortText(las->largestMove()).c_str());
    }
}

bool query(const Options& options, const std::stop_token& stop) {
    const Octree::Location location = Octree::Location::fromPath(pathFromUtf8(options.store));
    Region region = options.region;
    if (!options.polygonFile.empty()) {
        region =
            std::make_shared<Render::PolygonPrismFilter>(readPolygonFile(pathFromUtf8(options.polygonFile)));
    }
    OutputFile file(pathFromUtf8(options.output));
    Progress progress;
    const auto octree = std::make_shared<Octree::Octree>(location, 1.0, stop, storeLimits());
    const std::unique_ptr<PointWriter> writer =
        makeWriter(options, file.stream(), octree->positionGrid(), absoluteBounds(*octree));
    const bool isWhole = !region && options.maxLevel == 21 && options.minSpacing == 0.0;
    const uint64_t all = isWhole ? octree->totalPointCount() : 0;
    const auto onChunk = [&](uint64_t written) {
        const std::string share = all >= written && all > 0 ? std::to_string(100 * written / all) + " %" : "";
        progress.show("writing " + share + (share.empty() ? "" : ", ") + grouped(written) + " points");
        return file.stream().good();
    };
    const std::optional<uint64_t> written = exportPoints(
        octree, {region, options.maxLevel, static_cast<float>(options.minSpacing)}, *writer, onChunk, stop);
    if (stop.stop_requested()) {
        return false;
    }
    file.moveIntoPlace();  // says so when the file did not take everything
    progress.finish(grouped(written.value_or(0)) + " points written to " + options.output);
    reportMove(*writer);
    return true;
}

void addRegionOptions(CLI::App& command, Options& options) {
    CLI::Option* const box = addParsed(command, "--box", options.region, parseBox, "X,Y,Z:X,Y,Z",
                                       "Only points in this box, its faces included");
    CLI::Option* const sphere = addParsed(command, "--sphere", options.region, parseSphere, "X,Y,Z,R",
                                          "Only points no farther than R from this place");
    CLI::Option* const polygon =
        command
            .add_option("--polygon", options.polygonFile,
                        "Only points above or below this polygon: a text file of one \"x y\" a line, or of "
                        "well-known text, POLYGON ((x y, ...), ...)")
            ->type_name("FILE");
    box->excludes(sphere, polygon);
    sphere->excludes(polygon);
}

}  // namespace

void addQueryCommand(CLI::App& app, Job& job) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand(
        "query",
        "Write the points of a store, or of a part of it, to a file. Coordinates and regions are absolute.");
    addMemoryLimitOption(*command);
    command
        ->add_option("store", options->store,
                     "Folder of the store, its metadata.json or ept.json, or a COPC file")
        ->required()
        ->type_name("STORE");
    command
        ->add_option("-o,--output", options->output,
                     "File to write; its ending decides the format: .txt or .xyz (a header and one point a "
                     "line), .ply (binary, doubles), .las (on the store's own grid)")
        ->required()
        ->type_name("FILE");
    addRegionOptions(*command, *options);
    addParsed(
        *command, "--max-level", options->maxLevel,
        [](const std::string& text) { return static_cast<size_t>(parseCount(text, 0, 21)); }, "N",
        "Deepest octree level to take points from; 0 is the root alone (default: all)");
    addParsed(
        *command, "--min-spacing", options->minSpacing,
        [](const std::string& text) { return parseNumber(text, 0.0, 1e12); }, "S",
        "Only levels whose points are farther apart than this, in the store's unit (default: all)");
    addParsed(*command, "--las-version", options->lasVersion, parseLasVersion, "V",
              "Version of a .las file: 1.2 (point format 2) or 1.4 (point format 7; default)");
    command->callback([options, &job] {
        options->format = formatOf(options->output);
        job = [options](const std::stop_token& stop) { return query(*options, stop); };
    });
}

}  // namespace Tool
