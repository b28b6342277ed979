#include <tools/lumaro/ColorMaps.h>
#include <tools/lumaro/Commands.h>
#include <tools/lumaro/Console.h>
#include <tools/lumaro/LegendDrawing.h>
#include <tools/lumaro/OutputFile.h>

#include <memory>

namespace Tool {

namespace {

using Range = std::pair<double, double>;

struct Options {
    Render::ColorMap colorMap = Render::ColorMap::Turbo;
    Range range;
    Range passFail{-0.5, 0.5};
    Range warn{-0.25, 0.25};
    PictureSize size{160, 480};
    Math::Color background = Math::Color::white();
    std::string output;
};

PictureSize parseLegendSize(const std::string& text) {
    constexpr size_t LEAST = 64;
    const PictureSize size = parseSize(text);
    if (size.width < LEAST || size.height < LEAST) {
        throw UsageError("'" + text + "' is too small to write on: at least 64x64");
    }
    return size;
}

bool writeLegend(const Options& options) {
    const std::filesystem::path output = pathFromUtf8(options.output);
    requireFolderOf(output);
    Legend legend;
    legend.spectrum = Render::spectrumName(options.colorMap);
    legend.low = options.range.first;
    legend.high = options.range.second;
    legend.limits = {static_cast<float>(options.passFail.first), static_cast<float>(options.passFail.second),
                     static_cast<float>(options.warn.first), static_cast<float>(options.warn.second)};
    legend.size = options.size;
    legend.background = options.background;
    drawLegend(legend).writePng(output);
    return true;
}

}  // namespace

void addLegendCommand(CLI::App& app, Job& job) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand(
        "legend", "Draw a colour map with its numbers as a PNG file, to be put beside a picture.");
    addParsed(*command, "--color-map", options->colorMap, parseColorMap, "NAME",
              "As for render (default turbo)");
    addParsed(*command, "--range", options->range, parseRange, "A,B", "Numbers at the two ends")->required();
    addParsed(*command, "--pass-fail", options->passFail, parseRange, "A,B",
              "As for render (default -0.5,0.5)");
    addParsed(*command, "--warn", options->warn, parseRange, "A,B", "As for render (default -0.25,0.25)");
    addParsed(*command, "--size", options->size, parseLegendSize, "WxH",
              "Picture size in pixels (default 160x480)");
    addParsed(*command, "--background", options->background, parseColor, "RRGGBB",
              "Background colour (default FFFFFF)");
    command->add_option("-o,--output", options->output, "File to write")->required()->type_name("FILE");
    command->callback(
        [options, &job] { job = [options](const std::stop_token&) { return writeLegend(*options); }; });
}

}  // namespace Tool
