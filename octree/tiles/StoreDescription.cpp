#include <octree/tiles/StoreDescription.h>

#include <algorithm>

namespace Tiles {

std::size_t sizeOf(NumberType type) {
    switch (type) {
        case NumberType::Int8:
        case NumberType::Uint8:
            return 1;
        case NumberType::Int16:
        case NumberType::Uint16:
            return 2;
        case NumberType::Int32:
        case NumberType::Uint32:
        case NumberType::Float:
            return 4;
        case NumberType::Int64:
        case NumberType::Uint64:
        case NumberType::Double:
            break;
    }
    return 8;
}

bool isInteger(NumberType type) {
    return type != NumberType::Float && type != NumberType::Double;
}

const Dimension* StoreDescription::find(const std::string& name) const {
    const auto found = std::find_if(schema.begin(), schema.end(),
                                    [&](const Dimension& dimension) { return dimension.name == name; });
    return found == schema.end() ? nullptr : &*found;
}

}  // namespace Tiles
