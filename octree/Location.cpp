#include <octree/Location.h>

namespace Octree {

bool Location::exists() const {
    return potree() != nullptr && potree()->exists();
}

std::string Location::toString() const {
    return potree() != nullptr ? potree()->toString() : std::string();
}

}  // namespace Octree
