#include <core/File.h>
#include <tools/lumaro/PositionGrid.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace Tool {

namespace {

using Json = nlohmann::json;
using Place = Math::Point<double, 3>;

constexpr double LOWEST = std::numeric_limits<int32_t>::min();
constexpr double HIGHEST = std::numeric_limits<int32_t>::max();

PositionGrid potreeGrid(const Json& metadata) {
    PositionGrid grid;
    for (int axis = 0; axis < 3; ++axis) {
        const auto i = static_cast<size_t>(axis);
        grid.scale[axis] = metadata.at("scale").at(i).get<double>();
        grid.offset[axis] = metadata.at("offset").at(i).get<double>();
    }
    return grid;
}

/// LAZ tiles have grids of their own when the store states none.
std::optional<PositionGrid> entwineGrid(const Json& ept) {
    const bool isLaz = ept.value("dataType", "") == "laszip";
    PositionGrid grid;
    int found = 0;
    for (const Json& dimension : ept.at("schema")) {
        const auto name = dimension.at("name").get<std::string>();
        const size_t axis = std::string("XYZ").find(name);
        if (name.size() != 1 || axis == std::string::npos) {
            continue;
        }
        if (dimension.at("type") == "float" || (isLaz && !dimension.contains("scale"))) {
            return std::nullopt;
        }
        grid.scale[static_cast<int>(axis)] = dimension.value("scale", 1.0);
        grid.offset[static_cast<int>(axis)] = dimension.value("offset", 0.0);
        ++found;
    }
    return found == 3 ? std::optional(grid) : std::nullopt;
}

bool isUsable(const PositionGrid& grid) {
    for (int axis = 0; axis < 3; ++axis) {
        if (!(grid.scale[axis] > 0.0) || !std::isfinite(grid.scale[axis]) ||
            !std::isfinite(grid.offset[axis])) {
            return false;
        }
    }
    return true;
}

double finestDecimal(double length) {
    return std::pow(10.0, std::clamp(std::ceil(std::log10(length / HIGHEST)), -12.0, 300.0));
}

}  // namespace

int64_t PositionGrid::steps(double coordinate, int axis) const {
    constexpr double FARTHEST = 9e18;
    return std::llround(std::clamp((coordinate - offset[axis]) / scale[axis], -FARTHEST, FARTHEST));
}

Place PositionGrid::snapped(const Place& position) const {
    constexpr double NEAR_ENOUGH = 1e-3;  // of a step; rounding in double is far below
    Place result;
    for (int axis = 0; axis < 3; ++axis) {
        result[axis] = coordinate(steps(position[axis], axis), axis);
        if (!(std::abs(result[axis] - position[axis]) <= NEAR_ENOUGH * scale[axis])) {
            return position;
        }
    }
    return result;
}

std::optional<PositionGrid> gridOfStore(const Octree::Location& location) {
    const bool isPotree = location.potree() != nullptr;
    const std::filesystem::path file = location.folder() / (isPotree ? "metadata.json" : "ept.json");
    try {
        const Json json = Json::parse(Core::readLocalFile(file));
        const std::optional<PositionGrid> grid = isPotree ? potreeGrid(json) : entwineGrid(json);
        return grid && isUsable(*grid) ? grid : std::nullopt;
    } catch (const Json::exception& error) {
        throw std::runtime_error(Core::pathToUtf8(file) + ": " + error.what());
    }
}

PositionGrid gridFor32Bits(const std::optional<PositionGrid>& grid,
                           const Math::NBoundingBox<double, 3>& box) {
    PositionGrid result = grid.value_or(PositionGrid());
    for (int axis = 0; axis < 3 && !box.isEmpty(); ++axis) {
        double& scale = result.scale[axis];
        double& offset = result.offset[axis];
        const double middle = (box.min[axis] + box.max[axis]) * 0.5;
        // A little more than the box, for points just outside it.
        const double needed = box.size()[axis] * 1.01;
        if (!grid) {
            scale = finestDecimal(std::max(needed, 1e-3));
            offset = std::round(middle);
        }
        if ((box.min[axis] - offset) / scale >= LOWEST && (box.max[axis] - offset) / scale <= HIGHEST) {
            continue;
        }
        while (needed * 0.5 / scale > HIGHEST) {
            scale *= 10.0;
        }
        offset += std::round((middle - offset) / scale) * scale;
    }
    return result;
}

}  // namespace Tool
