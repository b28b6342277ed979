#pragma once

#include <math/Color.h>
#include <octree/Location.h>

#include <deque>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace Render {

/// Gives each location a colour of its own and keeps it. Hues halve the circle again and again: 0, 180, 90,
/// 270, 45, 135, 225, 315 and so on. Every member may be called from any thread.
class LocationPalette {
public:
    /// The palette of the process.
    static LocationPalette& instance();

    Math::Color color(const Octree::Location& location);

private:
    double nextHue();

    std::mutex mMutex;  ///< Guards all below.
    std::unordered_map<Octree::Location, Math::Color> mColors;
    std::deque<std::pair<double, double>> mIntervals;  ///< Of hues, the next to be halved in front.
};

}  // namespace Render
