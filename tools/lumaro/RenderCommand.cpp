#include <graphics/ColorImage.h>
#include <graphics/DepthImage.h>
#include <tools/lumaro/Commands.h>
#include <tools/lumaro/Console.h>
#include <tools/lumaro/OutputFile.h>
#include <tools/lumaro/SceneView.h>

#include <memory>

namespace Tool {

namespace {

struct Options {
    ViewOptions view;
    std::string output;
    std::string depth;
};

bool renderScene(const Options& options, const std::stop_token& stop) {
    const std::filesystem::path output = pathFromUtf8(options.output);
    const std::filesystem::path depth = pathFromUtf8(options.depth);
    requireFolderOf(output);
    requireFolderOf(depth);
    Progress progress;
    SceneView view(options.view, stop);
    if (!view.draw(stop, progress)) {
        return false;
    }
    Graphics::ColorImage image;
    view.renderer().getColorImage(image);
    image.writePng(output, stop);
    if (!depth.empty()) {
        Graphics::DepthImage depthImage;
        view.renderer().getDepthImage(depthImage);
        depthImage.writePng(depth);
    }
    std::string drawn = grouped(view.pointsShown()) + " points";
    if (const size_t triangles = view.trianglesShown()) {
        drawn += " and " + grouped(triangles) + " triangles";
    }
    progress.finish(drawn + " drawn to " + options.output);
    return true;
}

}  // namespace

void addRenderCommand(CLI::App& app, Job& job) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("render",
                                                 "Draw stores, meshes and panoramas in one picture, a PNG "
                                                 "file, with every node loaded that the view asks for.");
    addViewOptions(*command, options->view);
    command->add_option("-o,--output", options->output, "File to write")->required()->type_name("FILE");
    command
        ->add_option("--depth", options->depth,
                     "Also write the depth buffer as a 16-bit grey PNG file: 65535 nearest, 0 farthest and "
                     "where nothing is drawn")
        ->type_name("FILE");
    command->callback([options, command, &job] {
        completeViewOptions(*command, options->view);
        job = [options](const std::stop_token& stop) { return renderScene(*options, stop); };
    });
}

}  // namespace Tool
