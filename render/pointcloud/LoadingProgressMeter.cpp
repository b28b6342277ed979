#include <render/pointcloud/LoadingProgressMeter.h>

#include <algorithm>
#include <cmath>

namespace Render {

namespace {

constexpr std::size_t reportsForAll = 64;

}  // namespace

LoadingProgress LoadingProgressMeter::read() const {
    return {.residentNodes = mResidentNodes,
            .residentPoints = mResidentPoints,
            .wantedNodes = mWantedNodes,
            .wantedPoints = mWantedPoints};
}

void LoadingProgressMeter::beginWalk() {
    mNodes = 0;
    mPoints = 0;
    mRemoved = 0;
    mHasReported = false;
}

void LoadingProgressMeter::add(std::size_t points) {
    ++mNodes;
    mPoints += points;
}

void LoadingProgressMeter::remove(std::size_t points) {
    --mNodes;
    mPoints -= points;
    ++mRemoved;
}

bool LoadingProgressMeter::isReportDue() const {
    return !mHasReported || mRemoved > mNodes / reportsForAll;
}

// Each of the nodes finds room, but perhaps not all of them together: then fewer are told of.
void LoadingProgressMeter::report(const NodePrioritizer::Outlook& outlook) {
    const double part =
        mPoints > 0 ? static_cast<double>(outlook.attainablePoints) / static_cast<double>(mPoints) : 1.0;
    setResident(outlook.resident);
    mWantedNodes = static_cast<std::size_t>(std::ceil(part * static_cast<double>(mNodes)));
    mWantedPoints = (std::min)(mPoints, outlook.attainablePoints);
    mRemoved = 0;
    mHasReported = true;
}

void LoadingProgressMeter::setResident(const NodePrioritizer::Counts& counts) {
    mResidentNodes = counts.nodes;
    mResidentPoints = counts.points;
}

void LoadingProgressMeter::clearWanted() {
    mWantedNodes = 0;
    mWantedPoints = 0;
}

void LoadingProgressMeter::startOver() {
    mWantedNodes += mResidentNodes.exchange(0);
    mWantedPoints += mResidentPoints.exchange(0);
}

}  // namespace Render
