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
    std::erase_if(mLine, [](const Waiting& each) { return !each.hasReported; });
    for (Waiting& each : mLine) {
        each.hasReported = false;
    }
}

UploadAllowance::Share UploadAllowance::share(std::size_t user) const {
    const bool comesAfterAnother = !mLine.empty() && mLine.front().user != user && !mLine.front().hasReported;
    const std::size_t kept = comesAfterAnother ? (std::min)(mLine.front().left, mRemaining) : 0;
    return {mRemaining - kept, !comesAfterAnother && !mHasSent};
}

// Who could send nothing keeps its place in the line.
void UploadAllowance::report(std::size_t user, std::size_t sent, std::size_t left) {
    mRemaining -= (std::min)(sent, mRemaining);
    mHasSent = mHasSent || sent > 0;
    auto place =
        std::find_if(mLine.begin(), mLine.end(), [user](const Waiting& each) { return each.user == user; });
    if (place != mLine.end() && (sent > 0 || left == 0)) {
        mLine.erase(place);
        place = mLine.end();
    }
    if (left == 0) {
        return;
    }
    if (place == mLine.end()) {
        place = mLine.insert(place, Waiting{user});
    }
    place->left = left;
    place->hasReported = true;
}

}  // namespace Render
