#pragma once

#include <cstddef>
#include <limits>
#include <memory>
#include <vector>

namespace Render {

/// What the renderables of one renderer may send to the GPU in a frame, all together, so that a frame with
/// much news is not a long one.
///
/// Those that have something left after a frame wait in a line. What the first of them needs is kept for it
/// in the next frame, whoever is drawn before it; the others share the rest. So each comes to its turn.
///
/// Render thread only.
class UploadAllowance {
public:
    static constexpr std::size_t noLimit = (std::numeric_limits<std::size_t>::max)();

    struct Share {
        std::size_t bytes = 0;
        bool isOneAllowed = false;  ///< One piece may be larger: nothing else is sent in this frame.
    };

    /// The allowance of a renderer. Without limit until the renderer begins a frame.
    static std::shared_ptr<UploadAllowance> shared(std::size_t rendererId);

    /// Only for the renderer, once a frame. Whoever did not report in the last one leaves the line.
    void beginFrame(std::size_t bytes);

    /// What a user may send now.
    Share share(std::size_t user) const;
    /// To be told after that: what it sent and what it has left to send, in bytes.
    void report(std::size_t user, std::size_t sent, std::size_t left);

private:
    struct Waiting {
        std::size_t user = 0;
        std::size_t left = 0;
        // In this frame:
        bool hasReported = false;
        bool hasSent = false;
    };

    std::size_t mRemaining = noLimit;  ///< For this frame, in bytes.
    bool mHasSent = false;
    std::vector<Waiting> mLine;
};

}  // namespace Render
