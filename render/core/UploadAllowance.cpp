#include <render/core/UploadAllowance.h>

#include <core/SharedResources.h>

#include <algorithm>

namespace Render {

std::shared_ptr<UploadAllowance> UploadAllowance::shared(std::size_t rendererId) {
    static Core::SharedResources<std::size_t, UploadAllowance> allowances;
    return allowances.getOrCreate(rendererId, [] { return std::make_shared<UploadAllowance>(); });
}

void UploadAllowance::beginFrame(std::size_t bytes) {
    mRemaining = bytes;
    mHasSent = false;
    std::erase_if(mLine, [](const Waiting& each) { return !each.hasReported || each.left == 0; });
    std::stable_partition(mLine.begin(), mLine.end(), [](const Waiting& each) { return !each.hasSent; });
    for (Waiting& each : mLine) {
        each.hasReported = false;
        each.hasSent = false;
    }
}

UploadAllowance::Share UploadAllowance::share(std::size_t user) const {
    Share share{mRemaining, !mHasSent};
    for (const Waiting& each : mLine) {
        if (each.user == user) {
            break;
        }
        if (!each.hasReported) {
            share.bytes -= (std::min)(each.left, share.bytes);
            share.isOneAllowed = false;
        }
    }
    return share;
}

void UploadAllowance::report(std::size_t user, std::size_t sent, std::size_t left) {
    mRemaining -= (std::min)(sent, mRemaining);
    mHasSent = mHasSent || sent > 0;
    auto place =
        std::find_if(mLine.begin(), mLine.end(), [user](const Waiting& each) { return each.user == user; });
    if (place == mLine.end()) {
        place = mLine.insert(place, Waiting{.user = user});
    }
    place->left = left;
    place->hasReported = true;
    place->hasSent = place->hasSent || sent > 0;
}

}  // namespace Render
