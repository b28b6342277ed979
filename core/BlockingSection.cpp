#include <core/BlockingSection.h>

#include <core/LoadingWorkers.h>

namespace Core {

BlockingSection::BlockingSection() noexcept {
    LoadingWorkers::enterBlockingSection();
}

BlockingSection::~BlockingSection() {
    LoadingWorkers::leaveBlockingSection();
}

}  // namespace Core
