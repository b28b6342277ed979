#pragma once

#include <math/Point.h>

#include <cmath>
#include <cstddef>
#include <functional>
#include <string>

/// OBJ files of one large face.
namespace Support::Hostile {

using Corner = Math::Point<float, 2>;

/// In a tilted plane, of corners given around the origin.
inline std::string faceFile(std::size_t corners, const std::function<Corner(std::size_t)>& at) {
    std::string text;
    std::string face = "f";
    for (std::size_t i = 0; i < corners; ++i) {
        const Corner place = at(i);
        text += "v " + std::to_string(place.x()) + ' ' + std::to_string(place.y()) + ' ' +
                std::to_string(2 * place.x() - place.y()) + '\n';
        face += ' ' + std::to_string(i + 1);
    }
    return text + "o large\n" + face + '\n';
}

inline Corner onCircle(double turns, double radius) {
    const double angle = turns * 2 * 3.14159265358979;
    return {static_cast<float>(radius * std::cos(angle)), static_cast<float>(radius * std::sin(angle))};
}

/// Outwards on one side of its wall and back on the other.
inline Corner onSpiral(std::size_t i, std::size_t corners) {
    const double way = static_cast<double>(i < corners / 2 ? i : corners - 1 - i);
    return onCircle(way / 100, way + (i < corners / 2 ? 5 : 45));
}

/// Crosses itself everywhere.
inline Corner onStar(std::size_t i, std::size_t corners) {
    return onCircle(static_cast<double>(i * 7919 % corners) / static_cast<double>(corners), 100);
}

/// A face that names one vertex again and again.
inline std::string faceOfOneCorner(std::size_t times) {
    std::string face = "f";
    for (std::size_t i = 0; i < times; ++i) {
        face += " 1";
    }
    return "v 0 0 0\nv 1 0 0\nv 0 1 0\n" + face + "\n";
}

}  // namespace Support::Hostile
