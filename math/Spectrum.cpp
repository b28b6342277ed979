#include <math/Spectrum.h>

#include <algorithm>
#include <cmath>

// Each formula is kept in the form and order the shader has it, so that both agree to the last few bits.

namespace Math {

namespace {

using Rgba = Spectrum::Rgba;
using Rgb = std::array<float, 3>;

constexpr Rgba RED = {1.0f, 0.0f, 0.0f, 1.0f};
constexpr Rgba ORANGE = {1.0f, 0.5f, 0.0f, 1.0f};
constexpr Rgba YELLOW = {1.0f, 1.0f, 0.0f, 1.0f};
constexpr Rgba GREEN = {0.0f, 1.0f, 0.0f, 1.0f};
constexpr Rgba DARK_GREEN = {0.0f, 0.5f, 0.0f, 1.0f};

constexpr float PI = 3.14159265f;

/// NaN becomes 0, as in HLSL.
float saturate(float x) {
    return x > 0.0f ? std::min(x, 1.0f) : 0.0f;
}

float lerp(float a, float b, float t) {
    return a + t * (b - a);
}

Rgba jet(float x) {
    float r = 0.0f;
    float g = 0.0f;
    float b = 0.0f;
    if (x >= 3.0f / 8.0f && x < 5.0f / 8.0f) {
        r = 4.0f * x - 1.5f;
    } else if (x >= 5.0f / 8.0f && x < 7.0f / 8.0f) {
        r = 1.0f;
    } else if (x >= 7.0f / 8.0f) {
        r = -4.0f * x + 4.5f;
    }
    if (x >= 1.0f / 8.0f && x < 3.0f / 8.0f) {
        g = 4.0f * x - 0.5f;
    } else if (x >= 3.0f / 8.0f && x < 5.0f / 8.0f) {
        g = 1.0f;
    } else if (x >= 5.0f / 8.0f && x < 7.0f / 8.0f) {
        g = -4.0f * x + 3.5f;
    }
    if (x < 1.0f / 8.0f) {
        b = 4.0f * x + 0.5f;
    } else if (x < 3.0f / 8.0f) {
        b = 1.0f;
    } else if (x < 5.0f / 8.0f) {
        b = -4.0f * x + 2.5f;
    }
    return {r, g, b, 1.0f};
}

Rgba blueGreenRed(float x) {
    return x >= 0.5f ? Rgba{2.0f * x - 1.0f, 2.0f - 2.0f * x, 0.0f, 1.0f}
                     : Rgba{0.0f, 2.0f * x, 1.0f - 2.0f * x, 1.0f};
}

Rgba bone(float x) {
    const float r = x < 0.75f ? 7.0f / 8.0f * x : 11.0f / 8.0f * x - 3.0f / 8.0f;
    float g = 7.0f / 8.0f * x;
    if (x >= 0.75f) {
        g += 1.0f / 8.0f;
    } else if (x >= 3.0f / 8.0f) {
        g = 29.0f / 24.0f * x - 1.0f / 8.0f;
    }
    const float b = x < 3.0f / 8.0f ? 29.0f / 24.0f * x : 7.0f / 8.0f * x + 1.0f / 8.0f;
    return {r, g, b, 1.0f};
}

Rgba hot(float x) {
    const float r = x <= 1.0f / 3.0f ? 3.0f * x : 1.0f;
    float g = 0.0f;
    if (x >= 2.0f / 3.0f) {
        g = 1.0f;
    } else if (x > 1.0f / 3.0f) {
        g = 3.0f * x - 1.0f;
    }
    const float b = x >= 2.0f / 3.0f ? 3.0f * x - 2.0f : 0.0f;
    return {r, g, b, 1.0f};
}

float thermoRed(float x) {
    if (x <= 1.0f / 7.0f) {
        return 7.0f * x;
    }
    if (x <= 2.0f / 7.0f) {
        return -7.0f * x + 2.0f;
    }
    if (x <= 4.0f / 7.0f) {
        return 0.0f;
    }
    return x <= 5.0f / 7.0f ? 7.0f * x - 4.0f : 1.0f;
}

float thermoGreen(float x) {
    if (x < 2.0f / 7.0f) {
        return 0.0f;
    }
    if (x <= 3.0f / 7.0f) {
        return 7.0f * x - 2.0f;
    }
    if (x <= 5.0f / 7.0f) {
        return 1.0f;
    }
    return x <= 6.0f / 7.0f ? -7.0f * x + 6.0f : 7.0f * x - 6.0f;
}

float thermoBlue(float x) {
    if (x <= 1.0f / 7.0f) {
        return 7.0f * x;
    }
    if (x <= 3.0f / 7.0f) {
        return 1.0f;
    }
    if (x <= 4.0f / 7.0f) {
        return -7.0f * x + 4.0f;
    }
    return x > 6.0f / 7.0f ? 7.0f * x - 6.0f : 0.0f;
}

float hsvRed(float x) {
    if (x <= 1.0f / 5.0f) {
        return 1.0f;
    }
    if (x <= 2.0f / 5.0f) {
        return -5.0f * x + 2.0f;
    }
    return x > 4.0f / 5.0f ? 5.0f * x - 4.0f : 0.0f;
}

float hsvGreen(float x) {
    if (x <= 1.0f / 5.0f) {
        return 5.0f * x;
    }
    if (x <= 3.0f / 5.0f) {
        return 1.0f;
    }
    return x <= 4.0f / 5.0f ? -5.0f * x + 4.0f : 0.0f;
}

float hsvBlue(float x) {
    if (x <= 2.0f / 5.0f) {
        return 0.0f;
    }
    if (x <= 3.0f / 5.0f) {
        return 5.0f * x - 2.0f;
    }
    return x <= 4.0f / 5.0f ? 1.0f : -5.0f * x + 5.0f;
}

Rgba redWhiteBlue(float x) {
    return x >= 0.5f ? Rgba{2.0f - 2.0f * x, 2.0f - 2.0f * x, 1.0f, 1.0f}
                     : Rgba{1.0f, 2.0f * x, 2.0f * x, 1.0f};
}

/// Upper ends of the four finer accuracy classes; each end belongs to the next class.
Rgba accuracySteps(float x, const std::array<float, 4>& ends) {
    constexpr std::array<Rgba, 5> COLORS = {DARK_GREEN, GREEN, YELLOW, ORANGE, RED};
    size_t step = 0;
    while (step < ends.size() && x >= ends[step]) {
        ++step;
    }
    return COLORS[step];
}

Rgba passFail(float x, const Spectrum::Limits& limits) {
    return x < limits.minPassFail || x > limits.maxPassFail ? RED : DARK_GREEN;
}

Rgba trafficLight(float x, const Spectrum::Limits& limits) {
    if (x < limits.minPassFail || x > limits.maxPassFail) {
        return RED;
    }
    return x < limits.minWarn || x > limits.maxWarn ? YELLOW : DARK_GREEN;
}

// The last row repeats the one before, for the pair at x = 1.
constexpr std::array<Rgb, 34> COOL_WARM = {
    {{0.2314f, 0.2980f, 0.7529f}, {0.2667f, 0.3529f, 0.8000f}, {0.3020f, 0.4078f, 0.8431f},
     {0.3412f, 0.4588f, 0.8824f}, {0.3843f, 0.5098f, 0.9176f}, {0.4235f, 0.5569f, 0.9451f},
     {0.4667f, 0.6039f, 0.9686f}, {0.5098f, 0.6471f, 0.9843f}, {0.5529f, 0.6902f, 0.9961f},
     {0.5961f, 0.7255f, 1.0000f}, {0.6392f, 0.7608f, 1.0000f}, {0.6824f, 0.7882f, 0.9922f},
     {0.7216f, 0.8157f, 0.9765f}, {0.7608f, 0.8353f, 0.9569f}, {0.8000f, 0.8510f, 0.9333f},
     {0.8353f, 0.8588f, 0.9020f}, {0.8667f, 0.8667f, 0.8667f}, {0.8980f, 0.8471f, 0.8196f},
     {0.9255f, 0.8275f, 0.7725f}, {0.9451f, 0.8000f, 0.7255f}, {0.9608f, 0.7686f, 0.6784f},
     {0.9686f, 0.7333f, 0.6275f}, {0.9686f, 0.6941f, 0.5804f}, {0.9686f, 0.6510f, 0.5294f},
     {0.9569f, 0.6039f, 0.4824f}, {0.9451f, 0.5529f, 0.4353f}, {0.9255f, 0.4980f, 0.3882f},
     {0.8980f, 0.4392f, 0.3451f}, {0.8706f, 0.3765f, 0.3020f}, {0.8353f, 0.3137f, 0.2588f},
     {0.7961f, 0.2431f, 0.2196f}, {0.7529f, 0.1569f, 0.1882f}, {0.7059f, 0.0000f, 0.1490f},
     {0.7059f, 0.0000f, 0.1490f}}};

Rgba coolWarm(float x) {
    const float t = 32.0f * x;
    const float whole = std::floor(t);
    const float f = t - whole;
    const auto i = static_cast<size_t>(whole);
    const Rgb& a = COOL_WARM[i];
    const Rgb& b = COOL_WARM[i + 1];
    return {lerp(a[0], b[0], f), lerp(a[1], b[1], f), lerp(a[2], b[2], f), 1.0f};
}

Rgba cubeHelix(float angle, float saturation, float lightness) {
    const float a = saturation * lightness * (1.0f - lightness);
    const float h = angle + PI / 2.0f;
    const float cosH = std::cos(h);
    const float sinH = std::sin(h);
    return {lightness + a * (1.78277f * sinH - 0.14861f * cosH),
            lightness - a * (0.29227f * cosH + 0.90649f * sinH), lightness + a * (1.97294f * cosH), 1.0f};
}

Rgba cubeHelixDefault(float x) {
    return cubeHelix(lerp(300.0f / 180.0f * PI, -240.0f / 180.0f * PI, x), 0.5f, x);
}

Rgba cubeHelixRainbow(float x) {
    const float xs = std::abs(x - 0.5f);
    return cubeHelix((360.0f * x - 100.0f) / 180.0f * PI, 1.5f - 1.5f * xs, 0.8f - 0.9f * xs);
}

Rgba turbo(float x) {
    // Coefficients of 1, x, … x⁵.
    constexpr std::array<std::array<float, 6>, 3> CHANNELS = {
        {{0.13572138f, 4.61539260f, -42.66032258f, 132.13108234f, -152.94239396f, 59.28637943f},
         {0.09140261f, 2.19418839f, 4.84296658f, -14.18503333f, 4.27729857f, 2.82956604f},
         {0.10667330f, 12.64194608f, -60.58204836f, 110.36276771f, -89.90310912f, 27.34824973f}}};
    const float x2 = x * x;
    const float x3 = x2 * x;
    const float x4 = x2 * x2;
    const float x5 = x3 * x2;
    Rgba result = {0.0f, 0.0f, 0.0f, 1.0f};
    for (size_t i = 0; i < CHANNELS.size(); ++i) {
        const auto& c = CHANNELS[i];
        result[i] = (c[0] + x * c[1] + x2 * c[2] + x3 * c[3]) + (x4 * c[4] + x5 * c[5]);
    }
    return result;
}

/// Coefficients of 1, x, … x⁶.
using Polynomial = std::array<Rgb, 7>;

constexpr Polynomial INFERNO = {{{0.0002189403691192265f, 0.001651004631001012f, -0.01948089843709184f},
                                 {0.1065134194856116f, 0.5639564367884091f, 3.932712388889277f},
                                 {11.60249308247187f, -3.972853965665698f, -15.9423941062914f},
                                 {-41.70399613139459f, 17.43639888205313f, 44.35414519872813f},
                                 {77.162935699427f, -33.40235894210092f, -81.80730925738993f},
                                 {-71.31942824499214f, 32.62606426397723f, 73.20951985803202f},
                                 {25.13112622477341f, -12.24266895238567f, -23.07032500287172f}}};

constexpr Polynomial MAGMA = {{{-0.002136485053939582f, -0.000749655052795221f, -0.005386127855323933f},
                               {0.2516605407371642f, 0.6775232436837668f, 2.494026599312351f},
                               {8.353717279216625f, -3.577719514958484f, 0.3144679030132573f},
                               {-27.66873308576866f, 14.26473078096533f, -13.64921318813922f},
                               {52.17613981234068f, -27.94360607168351f, 12.94416944238394f},
                               {-50.76852536473588f, 29.04658282127291f, 4.23415299384598f},
                               {18.65570506591883f, -11.48977351997711f, -5.601961508734096f}}};

constexpr Polynomial VIRIDIS = {{{0.2777273272234177f, 0.005407344544966578f, 0.3340998053353061f},
                                 {0.1050930431085774f, 1.404613529898575f, 1.384590162594685f},
                                 {-0.3308618287255563f, 0.214847559468213f, 0.09509516302823659f},
                                 {-4.634230498983486f, -5.799100973351585f, -19.33244095627987f},
                                 {6.228269936347081f, 14.17993336680509f, 56.69055260068105f},
                                 {4.776384997670288f, -13.74514537774601f, -65.35303263337234f},
                                 {-5.435455855934631f, 4.645852612178535f, 26.3124352495832f}}};

constexpr Polynomial PLASMA = {{{0.05873234392399702f, 0.02333670892565664f, 0.5433401826748754f},
                                {2.176514634195958f, 0.2383834171260182f, 0.7539604599784036f},
                                {-2.689460476458034f, -7.455851135738909f, 3.110799939717086f},
                                {6.130348345893603f, 42.3461881477227f, -28.51885465332158f},
                                {-11.10743619062271f, -82.66631109428045f, 60.13984767418263f},
                                {10.02306557647065f, 71.41361770095349f, -54.07218655560067f},
                                {-3.658713842777788f, -22.93153465461149f, 18.19190778539828f}}};

Rgba evaluatePolynomial(const Polynomial& c, float x) {
    Rgba result = {0.0f, 0.0f, 0.0f, 1.0f};
    for (size_t i = 0; i < 3; ++i) {
        result[i] =
            c[0][i] +
            x * (c[1][i] + x * (c[2][i] + x * (c[3][i] + x * (c[4][i] + x * (c[5][i] + x * c[6][i])))));
    }
    return result;
}

}  // namespace

Rgba Spectrum::evaluate(SpectrumNames name, float value, const Limits& limits) {
    const float x = saturate(value);
    switch (name) {
        case Gray:
            return {value, value, value, 1.0f};
        case Jet:
            return jet(x);
        case Bone:
            return bone(x);
        case Hot:
            return hot(x);
        case Thermo:
            return {thermoRed(x), thermoGreen(x), thermoBlue(x), 1.0f};
        case Hsv:
            return {hsvRed(x), hsvGreen(x), hsvBlue(x), 1.0f};
        case CubeHelixDefault:
            return cubeHelixDefault(x);
        case BlueGreenRed:
            return blueGreenRed(x);
        case Inferno:
            return evaluatePolynomial(INFERNO, x);
        case Plasma:
            return evaluatePolynomial(PLASMA, x);
        case Magma:
            return evaluatePolynomial(MAGMA, x);
        case Viridis:
            return evaluatePolynomial(VIRIDIS, x);
        case RedWhiteBlue:
            return redWhiteBlue(x);
        case LevelOfAccuracy:
            return accuracySteps(x, {1.0f / 150.0f, 5.0f / 150.0f, 15.0f / 150.0f, 50.0f / 150.0f});
        case PassFail:
            return passFail(x, limits);
        case TrafficLight:
            return trafficLight(x, limits);
        case CoolWarm:
            return coolWarm(x);
        case LevelOfAccuracyImperial:
            return accuracySteps(x, {1.0f / 96.0f, 4.0f / 96.0f, 10.0f / 96.0f, 32.0f / 96.0f});
        case CubeHelixRainbow:
            return cubeHelixRainbow(x);
        case Turbo:
            break;
    }
    return turbo(x);
}

Rgba Spectrum::evaluate(SpectrumNames name, float value) {
    return evaluate(name, value, Limits());
}

Rgba Spectrum::colorizeByDistance(float distance, float minDistance, float maxDistance, SpectrumNames name,
                                  const Limits& limits) {
    const auto normalized = [=](float value) { return normalizeInRange(value, minDistance, maxDistance); };
    return evaluate(name, normalized(distance),
                    Limits{normalized(limits.minPassFail), normalized(limits.maxPassFail),
                           normalized(limits.minWarn), normalized(limits.maxWarn)});
}

Rgba Spectrum::colorizeByNormal(const Point<float, 3>& normal) {
    return {0.5f + 0.5f * normal[0], 0.5f + 0.5f * normal[1], 0.5f + 0.5f * normal[2], 1.0f};
}

Rgba Spectrum::adjustBrightnessContrast(const Rgba& color, float brightness, float contrast) {
    Rgba result = color;
    for (size_t i = 0; i < 3; ++i) {
        result[i] = saturate(contrast * (color[i] + brightness - 0.5f) + 0.5f);
    }
    return result;
}

float Spectrum::planeDistance(const Point<float, 3>& position, const NPlane<float, 3>& plane) {
    return plane.signedDistance(position);
}

float Spectrum::normalizeInRange(float value, float min, float max) {
    return (value - min) / (max - min);
}

}  // namespace Math
