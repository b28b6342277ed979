#include <render/gpu/ColorMap.h>

namespace Render {

Math::Spectrum::SpectrumNames spectrumName(const ColorMap& map) {
    using Math::Spectrum;
    switch (map) {
        case ColorMap::Turbo:
            return Spectrum::Turbo;
        case ColorMap::Inferno:
            return Spectrum::Inferno;
        case ColorMap::Magma:
            return Spectrum::Magma;
        case ColorMap::Viridis:
            return Spectrum::Viridis;
        case ColorMap::Plasma:
            return Spectrum::Plasma;
        case ColorMap::Gray:
            return Spectrum::Gray;
        case ColorMap::Bone:
            return Spectrum::Bone;
        case ColorMap::RedWhiteBlue:
            return Spectrum::RedWhiteBlue;
        case ColorMap::LevelOfAccuracy:
            return Spectrum::LevelOfAccuracy;
        case ColorMap::PassFail:
            return Spectrum::PassFail;
        case ColorMap::TrafficLight:
            return Spectrum::TrafficLight;
        case ColorMap::CoolWarm:
            return Spectrum::CoolWarm;
        case ColorMap::LevelOfAccuracyImperial:
            return Spectrum::LevelOfAccuracyImperial;
    }
    return Spectrum::Turbo;
}

}  // namespace Render
