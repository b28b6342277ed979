#pragma once

#include <render/gpu/ColorMap.h>
#include <tools/lumaro/Arguments.h>

#include <array>
#include <string>

namespace Tool {

struct NamedColorMap {
    const char* name;
    Render::ColorMap map;
};

constexpr std::array<NamedColorMap, 13> COLOR_MAPS{
    {{"turbo", Render::ColorMap::Turbo},
     {"inferno", Render::ColorMap::Inferno},
     {"magma", Render::ColorMap::Magma},
     {"viridis", Render::ColorMap::Viridis},
     {"plasma", Render::ColorMap::Plasma},
     {"gray", Render::ColorMap::Gray},
     {"bone", Render::ColorMap::Bone},
     {"red-white-blue", Render::ColorMap::RedWhiteBlue},
     {"cool-warm", Render::ColorMap::CoolWarm},
     {"level-of-accuracy", Render::ColorMap::LevelOfAccuracy},
     {"level-of-accuracy-imperial", Render::ColorMap::LevelOfAccuracyImperial},
     {"pass-fail", Render::ColorMap::PassFail},
     {"traffic-light", Render::ColorMap::TrafficLight}}};

/// The entry of a table whose entries have a `name`; throws UsageError that lists them all.
template <class Table>
const auto& parseName(const std::string& text, const Table& table) {
    std::string known;
    for (const auto& entry : table) {
        if (text == entry.name) {
            return entry;
        }
        known += known.empty() ? entry.name : std::string(", ") + entry.name;
    }
    throw UsageError("'" + text + "' is not one of " + known);
}

inline Render::ColorMap parseColorMap(const std::string& text) {
    return parseName(text, COLOR_MAPS).map;
}

}  // namespace Tool
