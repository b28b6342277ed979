#include <render/pointcloud/LocationPalette.h>

namespace Render {

LocationPalette& LocationPalette::instance() {
    static LocationPalette palette;
    return palette;
}

Math::Color LocationPalette::color(const Octree::Location& location) {
    const std::lock_guard lock(mMutex);
    const auto found = mColors.find(location);
    if (found != mColors.end()) {
        return found->second;
    }
    const Math::Color color = Math::Color::fromHslUv(nextHue(), 1.0, 0.6, 1.0);
    mColors.emplace(location, color);
    return color;
}

double LocationPalette::nextHue() {
    if (mIntervals.empty()) {
        mIntervals.emplace_back(0.0, 360.0);
        return 0.0;
    }
    const auto [from, to] = mIntervals.front();
    mIntervals.pop_front();
    const double middle = (from + to) / 2.0;
    mIntervals.emplace_back(from, middle);
    mIntervals.emplace_back(middle, to);
    return middle;
}

}  // namespace Render
