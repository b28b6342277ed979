#include <tools/lumaro/Placement.h>

#include <Eigen/LU>
#include <cmath>
#include <fstream>
#include <locale>
#include <sstream>
#include <string>

namespace Tool {

using Place = Math::Point<double, 3>;

Eigen::Matrix4f sceneMatrix(const Eigen::Matrix4d& placement, const Place& ownOrigin,
                            const Place& sceneOrigin) {
    Eigen::Matrix4d matrix = placement;
    const Place moved = Math::transformPoint<double>(placement, ownOrigin) - sceneOrigin;
    matrix.topRightCorner<3, 1>() = moved.vector();
    return matrix.cast<float>();
}

Place unplaced(const Eigen::Matrix4d& placement, const Place& absolute) {
    return Math::transformPoint<double>(placement.inverse(), absolute);
}

Place firstVertex(const std::filesystem::path& objFile) {
    std::string beginning(size_t{1} << 20, '\0');
    std::ifstream file(objFile, std::ios::binary);
    file.read(beginning.data(), static_cast<std::streamsize>(beginning.size()));
    beginning.resize(static_cast<size_t>(file.gcount()));
    std::istringstream lines(beginning);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        words.imbue(std::locale::classic());
        std::string kind;
        Place place;
        if (words >> kind >> place[0] >> place[1] >> place[2] && kind == "v" &&
            std::isfinite(place.squaredLength())) {
            return place;
        }
    }
    return {0.0, 0.0, 0.0};
}

}  // namespace Tool
