#pragma once

#include <core/Export.h>

#include <functional>
#include <string_view>

namespace Core {

/// Where failures are reported that no caller is there to hear of. From any thread.
class LUMARO_API Log {
public:
    /// Hands one message, without a line end, to the sink. What the sink throws is dropped.
    static void error(std::string_view message) noexcept;

    /// Replaces the sink; an empty one restores the default, which writes a line to stderr. The sink is
    /// called in the thread that reports, perhaps by several at once, and for a moment perhaps still after
    /// being replaced.
    static void setSink(std::function<void(std::string_view)> sink);
};

}  // namespace Core
