#include <tools/lumaro/Commands.h>
#include <tools/lumaro/Console.h>
#include <tools/lumaro/NumberText.h>
#include <tools/lumaro/OutputFile.h>
#include <tools/lumaro/SceneView.h>

#include <memory>
#include <string>
#include <vector>

namespace Tool {

namespace {

struct Options {
    ViewOptions view;
    std::string output;
};

void putLine(std::ostream& stream, const Math::Point<double, 3>& place, int decimals,
             const Math::Color& color) {
    std::string line;
    for (const double coordinate : place.values) {
        line += fixedText(coordinate, decimals) + ' ';
    }
    for (const unsigned channel : {color.r(), color.g(), color.b()}) {
        line += std::to_string(channel) + ' ';
    }
    stream << line + std::to_string(unsigned{color.a()}) + '\n';
}

bool writeScreenPoints(const Options& options, const std::stop_token& stop) {
    OutputFile file(pathFromUtf8(options.output));
    Progress progress;
    SceneView view(options.view, stop);
    if (!view.draw(stop, progress)) {
        return false;
    }
    file.stream() << "X Y Z Red Green Blue Alpha\n";
    std::vector<Render::VertexPosColor> chunk(size_t{1} << 15);
    size_t written = 0;
    while (const size_t count = view.renderer().getNextPointChunk(chunk.data(), chunk.size())) {
        for (size_t i = 0; i < count; ++i) {
            putLine(file.stream(), view.absolute(chunk[i].position), view.decimals(), chunk[i].color);
        }
        written += count;
        progress.show("writing, " + grouped(written) + " points");
        if (stop.stop_requested()) {
            return false;
        }
    }
    file.moveIntoPlace();
    progress.finish(grouped(written) + " points written to " + options.output);
    return true;
}

}  // namespace

void addScreenPointsCommand(CLI::App& app, Job& job) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("screen-points",
                                                 "Draw the same picture as render, then write its pixels as "
                                                 "points: a text file of absolute coordinates "
                                                 "and colours.");
    addViewOptions(*command, options->view);
    command->add_option("-o,--output", options->output, "File to write")->required()->type_name("FILE");
    command->callback([options, command, &job] {
        completeViewOptions(*command, options->view);
        job = [options](const std::stop_token& stop) { return writeScreenPoints(*options, stop); };
    });
}

}  // namespace Tool
