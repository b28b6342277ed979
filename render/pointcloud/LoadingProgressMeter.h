#pragma once

#include <render/pointcloud/LoadingProgress.h>
#include <render/pointcloud/NodePrioritizer.h>

#include <atomic>
#include <cstddef>

namespace Render {

/// Counts the nodes that a walk knows to be worth loading, for who asks on another thread.
///
/// What a walk that was cut short had reported stands until the next one reports: its first nodes are
/// resident ones, and a bar that goes to its end and back with each move of the camera tells nothing.
class LoadingProgressMeter {
public:
    /// Any thread. The numbers may be of two moments.
    LoadingProgress read() const;

    // Of the walk that is under way.
    void beginWalk();
    void add(std::size_t points);
    void remove(std::size_t points);
    std::size_t points() const { return mPoints; }
    /// True before the walk's first report, and then about sixty times in the time that it would take to load
    /// what is wanted now.
    bool isReportDue() const;
    void report(const NodePrioritizer::Outlook& outlook);

    // Any thread.
    void setResident(const NodePrioritizer::Counts& counts);
    void clearWanted();
    /// What was resident is wanted again.
    void startOver();

private:
    std::size_t mNodes = 0;
    std::size_t mPoints = 0;
    std::size_t mRemoved = 0;  ///< Since the last report.
    bool mHasReported = false;

    std::atomic<std::size_t> mResidentNodes{0};
    std::atomic<std::size_t> mResidentPoints{0};
    std::atomic<std::size_t> mWantedNodes{0};
    std::atomic<std::size_t> mWantedPoints{0};
};

}  // namespace Render
