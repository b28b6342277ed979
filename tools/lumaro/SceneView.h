#pragma once

#include <math/Point.h>
#include <octree/Octree.h>
#include <render/core/Renderer.h>
#include <render/renderables/MeshRenderable.h>
#include <render/renderables/PanoRenderable.h>
#include <tools/lumaro/CameraOptions.h>
#include <tools/lumaro/Console.h>
#include <tools/lumaro/DisplayOptions.h>
#include <tools/lumaro/Inputs.h>

#include <CLI/CLI.hpp>

#include <cstddef>
#include <memory>
#include <stop_token>
#include <vector>

namespace Tool {

/// What commands that draw have in common.
struct ViewOptions {
    std::vector<Input> inputs;
    CameraOptions camera;
    DisplayOptions display;
    size_t budget = 10'000'000;
    size_t maxLevel = 21;
};

void addViewOptions(CLI::App& command, ViewOptions& options);

/// To be called when the command line is parsed: takes the inputs from it. Throws CLI::ValidationError when
/// options do not fit together.
void completeViewOptions(const CLI::App& command, ViewOptions& options);

/// Stores, meshes and panoramas in one scene, drawn as the options want them. Throws when one of them cannot
/// be read, and when stopped.
class SceneView {
public:
    SceneView(const ViewOptions& options, const std::stop_token& stop);

    /// Loads everything that the view asks for, then draws. False when stopped.
    bool draw(const std::stop_token& stop, Progress& progress);

    size_t pointsShown() const;
    size_t trianglesShown() const;
    Render::Renderer& renderer() { return mRenderer; }
    /// Of the scene's coordinates, in absolute ones.
    const Math::Point<double, 3>& origin() const { return mOrigin; }
    Math::Point<double, 3> absolute(const Math::Point<float, 3>& point) const {
        return origin() + point.cast<double>();
    }
    /// How many digits behind the point absolute coordinates have: those of the stores' grids, but at least
    /// four where something is drawn that no grid holds.
    int decimals() const { return mDecimals; }
    /// The mesh that distances are measured to, in the scene's coordinates; null when there is none.
    const DistanceMesh& mesh() const { return mMesh; }

private:
    /// One for each input; null for those that are no stores.
    using Stores = std::vector<std::shared_ptr<Octree::Octree>>;

    SceneView(const ViewOptions& options, const Stores& stores, const std::stop_token& stop);
    static Stores openStores(const std::vector<Input>& inputs, const std::stop_token& stop);
    static Math::Point<double, 3> originOf(const std::vector<Input>& inputs, const Stores& stores);
    static int decimalsOf(const std::vector<Input>& inputs, const Stores& stores);
    static bool wantsColors(const Stores& stores);
    bool load(const std::stop_token& stop, Progress& progress);
    bool loadClouds(const std::stop_token& stop, Progress& progress);

    ViewOptions mOptions;
    Math::Point<double, 3> mOrigin;
    int mDecimals;
    std::vector<Cloud> mClouds;
    std::vector<std::shared_ptr<Render::MeshRenderable>> mMeshes;
    std::vector<std::shared_ptr<Render::PanoRenderable>> mPanoramas;
    DistanceMesh mMesh;
    Render::Renderer mRenderer;
};

}  // namespace Tool
