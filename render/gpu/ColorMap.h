#pragma once

#include <core/Export.h>
#include <math/Spectrum.h>

#include <cstdint>

namespace Render {

/// The colour maps that a distance can be shown in. The values are the shaders' map numbers.
enum class ColorMap : int32_t {
    Turbo = 0,
    Inferno = 1,
    Magma = 2,
    Viridis = 3,
    Plasma = 4,
    Gray = 5,
    Bone = 6,
    RedWhiteBlue = 7,
    LevelOfAccuracy = 8,
    PassFail = 9,
    TrafficLight = 10,
    CoolWarm = 11,
    LevelOfAccuracyImperial = 12,
};

/// The CPU-side spectrum of the same map, whose numbering is another; Turbo for a value that is no map.
LUMARO_API Math::Spectrum::SpectrumNames spectrumName(const ColorMap& map);

}  // namespace Render
