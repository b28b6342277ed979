#pragma once

#include <math/Point.h>
#include <render/core/Renderer.h>
#include <tools/lumaro/CameraOptions.h>
#include <tools/lumaro/Console.h>
#include <tools/lumaro/DisplayOptions.h>

#include <CLI/CLI.hpp>

#include <cstddef>
#include <stop_token>
#include <string>
#include <vector>

namespace Tool {

/// What commands that draw have in common.
struct ViewOptions {
    std::vector<std::string> stores;
    CameraOptions camera;
    DisplayOptions display;
    size_t budget = 10'000'000;
    size_t maxLevel = 21;
};

void addViewOptions(CLI::App& command, ViewOptions& options);

/// One or more stores, drawn as the options want them. Throws when a store or the mesh cannot be read.
class StoreView {
public:
    explicit StoreView(const ViewOptions& options);

    /// Loads every node that the view asks for, then draws. False when stopped.
    bool draw(const std::stop_token& stop, Progress& progress);

    size_t pointsShown() const;
    Render::Renderer& renderer() { return mRenderer; }
    /// Of the scene's coordinates, in absolute ones.
    Math::Point<double, 3> origin() const { return mClouds.front()->referencePosition(); }
    Math::Point<double, 3> absolute(const Math::Point<float, 3>& point) const {
        return origin() + point.cast<double>();
    }
    /// In the scene's coordinates; null when there is none.
    const DistanceMesh& mesh() const { return mMesh; }

private:
    bool load(const std::stop_token& stop, Progress& progress);

    ViewOptions mOptions;
    std::vector<Cloud> mClouds;
    DistanceMesh mMesh;
    Render::Renderer mRenderer;
};

}  // namespace Tool
