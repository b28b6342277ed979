#include <math/Color.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace Math {

namespace {

// Rows give linear red, green and blue of sRGB from X, Y, Z.
constexpr double RGB_FROM_XYZ[3][3] = {{3.240969941904521, -1.537383177570093, -0.498610760293},
                                       {-0.96924363628087, 1.87596750150772, 0.041555057407175},
                                       {0.055630079696993, -0.20397695888897, 1.056971514242878}};

// u' and v' of the white point D65.
constexpr double WHITE_U = 0.19783000664283;
constexpr double WHITE_V = 0.46831999493879;

/// Relative luminance of a CIE lightness, both 0 … 1.
double luminance(double lightness) {
    const double l = lightness * 100.0;
    constexpr double KAPPA = 903.2962962962963;  // 29³ / 27
    return l > 8.0 ? std::pow((l + 16.0) / 116.0, 3.0) : l / KAPPA;
}

/**
 * The largest CIE LUV chroma that sRGB can show at a lightness and hue.
 *
 * With u' = WHITE_U + chroma·du and v' = WHITE_V + chroma·dv, X = Y·9u'/4v' and Z = Y·(12 − 3u' − 20v')/4v',
 * a channel m·(X, Y, Z) reaches a limit t (0 or 1) where a·u' + b·v' + c = 0 with the coefficients below:
 * linear in the chroma. The nearest limit of all channels counts.
 */
double maxChroma(double lightness, double hue) {
    const double y = luminance(lightness);
    const double du = std::cos(hue) / (1300.0 * lightness);
    const double dv = std::sin(hue) / (1300.0 * lightness);
    double chroma = std::numeric_limits<double>::max();
    for (const auto& m : RGB_FROM_XYZ) {
        for (const double limit : {0.0, 1.0}) {
            const double a = y * (9.0 * m[0] - 3.0 * m[2]);
            const double b = y * (4.0 * m[1] - 20.0 * m[2]) - 4.0 * limit;
            const double c = y * 12.0 * m[2];
            const double reached = -(a * WHITE_U + b * WHITE_V + c) / (a * du + b * dv);
            if (reached > 0.0) {
                chroma = std::min(chroma, reached);
            }
        }
    }
    return chroma;
}

/// NaN becomes 0.
uint8_t toByte(double value) {
    return value > 0.0 ? static_cast<uint8_t>(std::lround(std::min(value, 1.0) * 255.0)) : uint8_t{0};
}

uint8_t gammaEncoded(double linear) {
    return toByte(linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1.0 / 2.4) - 0.055);
}

}  // namespace

Color Color::fromHslUv(double hueDegrees, double saturation, double lightness, double alpha) {
    constexpr double NEARLY = 1e-9;
    const uint8_t a = toByte(alpha);
    if (!(lightness > NEARLY)) {
        return black(a);
    }
    if (lightness > 1.0 - NEARLY) {
        return white(a);
    }
    const double hue = hueDegrees * std::numbers::pi / 180.0;
    const double chroma = maxChroma(lightness, hue) * std::clamp(saturation, 0.0, 1.0);
    const double u = WHITE_U + chroma * std::cos(hue) / (1300.0 * lightness);
    const double v = WHITE_V + chroma * std::sin(hue) / (1300.0 * lightness);
    const double y = luminance(lightness);
    const double xyz[3] = {y * 9.0 * u / (4.0 * v), y, y * (12.0 - 3.0 * u - 20.0 * v) / (4.0 * v)};

    uint8_t rgb[3];
    for (int i = 0; i < 3; ++i) {
        const auto& m = RGB_FROM_XYZ[i];
        rgb[i] = gammaEncoded(m[0] * xyz[0] + m[1] * xyz[1] + m[2] * xyz[2]);
    }
    return Color(rgb[0], rgb[1], rgb[2], a);
}

}  // namespace Math
