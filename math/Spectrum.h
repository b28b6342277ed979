#pragma once

#include <core/Export.h>
#include <math/NPlane.h>
#include <math/Point.h>

#include <array>

namespace Math {

/**
 * The colour scales on the CPU: the same formulas in float as the colour-processing shader, for legends and
 * checks. Colours are red, green, blue, alpha with alpha 1; the polynomial scales may leave 0 … 1 slightly.
 */
class LUMARO_API Spectrum {
public:
    using Rgba = std::array<float, 4>;

    enum SpectrumNames : int {
        Gray = 0,
        Jet = 1,
        Bone = 2,
        Hot = 3,
        Thermo = 4,
        Hsv = 5,
        CubeHelixDefault = 6,
        BlueGreenRed = 7,
        Turbo = 8,
        Inferno = 9,
        Plasma = 10,
        Magma = 11,
        Viridis = 12,
        RedWhiteBlue = 13,
        LevelOfAccuracy = 14,  ///< Steps of the accuracy classes 50 … 10 over 0 … 150 mm.
        PassFail = 15,         ///< Dark green within the pass limits, else red.
        TrafficLight = 16,     ///< As PassFail, and yellow outside the warn limits.
        CoolWarm = 17,
        LevelOfAccuracyImperial = 18,  ///< Steps of the accuracy classes over 0 … 6 inches.
        CubeHelixRainbow = 19
    };

    /// Tolerance bands, on the scale of the value they are compared with. Only PassFail and TrafficLight use
    /// them.
    struct Limits {
        float minPassFail = 0;
        float maxPassFail = 0;
        float minWarn = 0;
        float maxWarn = 0;
    };

    /// The colour at value, which every scale but Gray clamps to 0 … 1; an unknown name gives Turbo.
    static Rgba evaluate(SpectrumNames name, float value, const Limits& limits);
    static Rgba evaluate(SpectrumNames name, float value);

    /// The colour of a distance on a scale that spans minDistance … maxDistance; the limits are distances as
    /// well.
    static Rgba colorizeByDistance(float distance, float minDistance, float maxDistance, SpectrumNames name,
                                   const Limits& limits);

    /// Components −1 … 1 become 0 … 1.
    static Rgba colorizeByNormal(const Point<float, 3>& normal);

    /// Contrast scales around middle grey after brightness is added; clamps to 0 … 1; alpha stays.
    static Rgba adjustBrightnessContrast(const Rgba& color, float brightness, float contrast);

    /// Signed and in units of the normal's length.
    static float planeDistance(const Point<float, 3>& position, const NPlane<float, 3>& plane);

    /// 0 at min, 1 at max; not finite when they are equal.
    static float normalizeInRange(float value, float min, float max);
};

}  // namespace Math
