#include <tools/lumaro/SiteGround.h>

#include <algorithm>
#include <cmath>

namespace Tool {

namespace {

constexpr double HALF_STREET = 3.6;
constexpr double PAVEMENT = 5.4;
constexpr double POND_X = 27.0;
constexpr double POND_Y = 128.0;
constexpr double POND_LEVEL = 5.2;

/// 1 at the rim of the pond, less inside.
double pondReach(double x, double y) {
    const double dx = (x - POND_X) / 15.0;
    const double dy = (y - POND_Y) / 9.0;
    const double ripple = 0.3 * (valueNoise(x / 6.0, y / 6.0, 31) - 0.5);
    return std::sqrt(dx * dx + dy * dy) + ripple;
}

double mainStreetDistance(double x, double y) {
    const double ahead = (SiteGround::streetY(x + 1.0) - SiteGround::streetY(x - 1.0)) / 2.0;
    return (y - SiteGround::streetY(x)) / std::sqrt(1.0 + ahead * ahead);
}

double sideStreetX(double y) {
    return 96.0 + 0.12 * (y - 78.0);
}

/// Metres from the centre of the side street, which leaves the main one northwards.
double sideStreetDistance(double x, double y) {
    const double south = std::max(SiteGround::streetY(x) - y, 0.0);
    const double across = (x - sideStreetX(y)) * 0.993;
    return south > 0.0 ? std::sqrt(across * across + south * south) : across;
}

/// Metres along the main street, near enough for its markings.
double alongMainStreet(double x, double y) {
    return x * 1.03 + (y - SiteGround::streetY(x)) * 0.25;
}

double fraction(double x) {
    return x - std::floor(x);
}

Surface asphalt(double x, double y, Random& random) {
    const double patch = valueNoise(x / 4.0, y / 4.0, 41);
    const double grain = random.uniform();
    const double tone = 0.062 + 0.035 * patch + 0.02 * grain;
    return {Vec3(tone, tone, tone * 1.05), 0.1 + 0.05 * grain, GroundClass::Road};
}

const Surface PAINT{Vec3(0.75, 0.75, 0.72), 0.8, GroundClass::Road};

Surface mainStreet(double x, double y, Random& random) {
    const double across = mainStreetDistance(x, y);
    const double along = alongMainStreet(x, y);
    const bool nearJunction = std::abs(x - sideStreetX(y)) < 8.0;
    const bool crossing = std::abs(along - 79.0) < 1.8 && fraction(across / 1.2) < 0.5;
    const bool centre = !nearJunction && std::abs(across) < 0.16 && fraction(along / 6.0) < 0.5;
    const bool edge = !nearJunction && std::abs(std::abs(across) - 3.2) < 0.12;
    return crossing || centre || edge ? PAINT : asphalt(x, y, random);
}

Surface paving(double x, double y, double shade, Random& random) {
    const double slab = latticeNoise(static_cast<int64_t>(std::floor(x / 0.8)),
                                     static_cast<int64_t>(std::floor(y / 0.8)), 43);
    const double tone = shade * (0.85 + 0.2 * slab + 0.08 * random.uniform());
    return {Vec3(tone, tone * 0.95, tone * 0.87), 0.35, GroundClass::Ground};
}

Surface field(double x, double y, Random& random) {
    const double row = fraction((x * 0.6 + y * 0.8) / 2.4);
    const double crop = smoothStep(0.25, 0.45, row) * smoothStep(0.95, 0.75, row);
    const double tone = 0.8 + 0.4 * random.uniform();
    const Vec3 soil(0.2, 0.13, 0.07);
    const Vec3 green(0.2, 0.27, 0.05);
    return {(soil + (green - soil) * crop) * tone, 0.3 + 0.3 * crop,
            crop > 0.5 ? GroundClass::LowVegetation : GroundClass::Ground};
}

Surface grass(double x, double y, Random& random) {
    const double patch = 0.6 * valueNoise(x / 14.0, y / 14.0, 51) + 0.4 * valueNoise(x / 3.0, y / 3.0, 52);
    const Vec3 lush(0.075, 0.16, 0.03);
    const Vec3 dry(0.27, 0.25, 0.09);
    const double tone = 0.75 + 0.45 * random.uniform();
    return {(lush + (dry - lush) * smoothStep(0.3, 0.85, patch)) * tone, 0.5 + 0.1 * random.uniform(),
            GroundClass::Ground};
}

}  // namespace

double Footprint::distance(double px, double py) const {
    const double dx = px - x;
    const double dy = py - y;
    const double along = std::max(std::abs(dx * cosine + dy * sine) - halfLength, 0.0);
    const double across = std::max(std::abs(dy * cosine - dx * sine) - halfWidth, 0.0);
    return std::sqrt(along * along + across * across);
}

double SiteGround::streetY(double x) {
    const double t = std::clamp(x / SIZE, 0.0, 1.0);
    return 58.0 + 32.0 * t * t * (3.0 - 2.0 * t);
}

Footprint SiteGround::plaza() {
    return {68.0, 93.0, 17.0, 21.0};
}

Footprint SiteGround::carPark() {
    return {137.0, 125.0, 8.0, 12.0};
}

double SiteGround::addBuilding(const Footprint& footprint) {
    const double level = height(footprint.x, footprint.y);
    mPads.push_back({footprint, level});
    return level;
}

double SiteGround::relief(double x, double y) const {
    const double hill =
        9.0 * smoothStep(60.0, 170.0, std::sqrt((x - 20.0) * (x - 20.0) + (y - 150.0) * (y - 150.0)));
    return 2.0 + hill + 5.0 * valueNoise(x / 55.0, y / 55.0, 3) + 1.0 * valueNoise(x / 18.0, y / 18.0, 4);
}

double SiteGround::height(double x, double y) const {
    double z = relief(x, y) + 0.12 * valueNoise(x / 1.7, y / 1.7, 7);
    // A street lies as the land does along its centre, without cross fall.
    const double main = std::abs(mainStreetDistance(x, y));
    const double side = std::abs(sideStreetDistance(x, y));
    z += (relief(sideStreetX(y), y) - z) * smoothStep(14.0, PAVEMENT, side);
    z += (relief(x, streetY(x)) - z) * smoothStep(14.0, PAVEMENT, main);
    for (const Pad& pad : mPads) {
        z += (pad.level - z) * smoothStep(7.0, 1.5, pad.footprint.distance(x, y));
    }
    const double pond = pondReach(x, y);
    return pond < 1.0 ? POND_LEVEL : z + (POND_LEVEL + 0.1 - z) * smoothStep(1.8, 1.0, pond);
}

Surface SiteGround::surface(double x, double y, Random& random, double& raise) const {
    const double main = std::abs(mainStreetDistance(x, y));
    const double side = std::abs(sideStreetDistance(x, y));
    if (main < HALF_STREET) {
        return mainStreet(x, y, random);
    }
    if (side < HALF_STREET - 0.6) {
        return asphalt(x, y, random);
    }
    if (carPark().distance(x, y) == 0.0) {
        const bool line = fraction((y - carPark().y) / 2.8) < 0.06 && std::abs(x - carPark().x) > 2.5;
        return line ? PAINT : asphalt(x, y, random);
    }
    if (main < PAVEMENT || side < PAVEMENT - 0.9) {
        raise = 0.12;
        return paving(x, y, 0.36, random);
    }
    if (plaza().distance(x, y) == 0.0) {
        return paving(x, y, 0.42, random);
    }
    const double pond = pondReach(x, y);
    if (pond < 1.0) {
        const double depth = 0.6 + 0.4 * pond;
        return {Vec3(0.03, 0.075, 0.085) * depth, 0.03, GroundClass::Water};
    }
    if (pond < 1.12) {
        return {Vec3(0.33, 0.29, 0.2) * (0.8 + 0.4 * random.uniform()), 0.4, GroundClass::Ground};
    }
    if (x < 62.0 && y < 40.0 && x + y > 12.0) {
        return field(x, y, random);
    }
    return grass(x, y, random);
}

std::optional<SurfacePoint> SiteGround::draw(const Draw& draw) const {
    const double x = draw.u * SIZE;
    const double y = draw.v * SIZE;
    double nearest = SIZE;
    for (const Pad& pad : mPads) {
        nearest = std::min(nearest, pad.footprint.distance(x, y));
    }
    if (nearest == 0.0) {
        return std::nullopt;
    }
    SurfacePoint point;
    double raise = 0.0;
    point.surface = surface(x, y, draw.random, raise);
    if (point.surface.classification == GroundClass::Water && draw.random.uniform() < 0.5) {
        return std::nullopt;  // water swallows much of a laser's light
    }
    // Less of the sky is seen at the foot of a wall.
    point.surface.albedo *= 0.6 + 0.4 * smoothStep(0.0, 2.0, nearest);
    constexpr double STEP = 0.4;
    const Vec3 slope(height(x - STEP, y) - height(x + STEP, y), height(x, y - STEP) - height(x, y + STEP),
                     2.0 * STEP);
    point.normal = slope / slope.length();
    point.position = Vec3(x, y, height(x, y) + raise);
    return point;
}

}  // namespace Tool
