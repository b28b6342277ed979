#pragma once

#include <core/Export.h>

namespace Core {

/**
 * Marks a stretch of code that waits, such as a read from a slow disk, while it is in scope. On a thread of a
 * LoadingPool another task may begin meanwhile; anywhere else it does nothing. Leaving it never waits. May be
 * nested. Destroyed on the thread that made it.
 */
class LUMARO_API BlockingSection {
public:
    BlockingSection() noexcept;
    ~BlockingSection();

    BlockingSection(const BlockingSection&) = delete;
    BlockingSection& operator=(const BlockingSection&) = delete;
};

}  // namespace Core
