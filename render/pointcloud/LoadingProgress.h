#pragma once

#include <cstddef>

namespace Render {

/// How far the loading of a point cloud has come, or of several whose numbers are added up.
struct LoadingProgress {
    // Loaded, and of use in this view.
    std::size_t residentNodes = 0;
    std::size_t residentPoints = 0;
    // Known to be worth loading, with room for them in the budget. More becomes known as loading goes on.
    // Points are those that the hierarchy tells of before more of it is read.
    std::size_t wantedNodes = 0;
    std::size_t wantedPoints = 0;

    LoadingProgress& operator+=(const LoadingProgress& other) {
        residentNodes += other.residentNodes;
        residentPoints += other.residentPoints;
        wantedNodes += other.wantedNodes;
        wantedPoints += other.wantedPoints;
        return *this;
    }

    /// From 0 to 1, for a progress bar; 1 when nothing is wanted.
    double share() const {
        const auto of = [](std::size_t resident, std::size_t wanted) {
            return static_cast<double>(resident) /
                   (static_cast<double>(resident) + static_cast<double>(wanted));
        };
        if (wantedNodes == 0) {
            return 1.0;
        }
        return wantedPoints > 0 ? of(residentPoints, wantedPoints) : of(residentNodes, wantedNodes);
    }
};

}  // namespace Render
