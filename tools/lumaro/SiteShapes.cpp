#include <tools/lumaro/SiteShapes.h>

#include <algorithm>
#include <cmath>

// Nothing here calls sin, pow and the like, which differ between C libraries in the last bit; square roots
// and the four basic operations do not.

namespace Tool {

namespace {

constexpr double PI = 3.14159265358979323846;

/// Distance along the ray to the ball's far side is positive and the ray passes through it.
bool hitsBall(const Ray& ray, const Vec3& center, double radius) {
    const Vec3 toCenter = center - ray.origin;
    const double along = toCenter.dot(ray.direction);
    const double outside = toCenter.squaredLength() - radius * radius;
    return (outside < 0.0 || along > 0.0) && along * along >= outside;
}

Vec3 scaled(const Vec3& color, double factor) {
    return color * factor;
}

struct Look {
    Surface surface;
    double recess = 0.0;  ///< metres behind the facet's plane
};

double fraction(double x) {
    return x - std::floor(x);
}

Look windowedWall(const Surface& wall, double x, double z, double width, double height, const Draw& draw) {
    constexpr double FLOOR = 2.8;
    Look look{wall};
    const double columns = std::max(std::floor(width / 2.6), 1.0);
    const double inColumn = fraction(x / width * columns) * width / columns - width / columns / 2.0;
    const double inFloor = fraction(z / FLOOR) * FLOOR;
    const double top = (std::floor(z / FLOOR) + 1.0) * FLOOR;
    if (z < 0.5) {
        look.surface.albedo = Vec3(0.28, 0.27, 0.26);
    } else if (top <= height + 0.3 && inFloor > 0.75 && inFloor < 2.35 && std::abs(inColumn) < 0.7) {
        const bool frame =
            inFloor < 0.87 || inFloor > 2.23 || std::abs(inColumn) > 0.58 || std::abs(inColumn) < 0.05;
        look.surface.albedo = frame ? Vec3(0.78, 0.77, 0.74) : Vec3(0.03, 0.045, 0.07);
        look.surface.reflectance = frame ? 0.5 : 0.06;
        look.recess = frame ? 0.03 : 0.12;
    }
    look.surface.albedo = scaled(look.surface.albedo, 0.94 + 0.12 * draw.random.uniform());
    return look;
}

Look officeWall(const Surface& wall, double x, double z, double height) {
    constexpr double FLOOR = 3.4;
    Look look{wall};
    const double inFloor = fraction(z / FLOOR) * FLOOR;
    if (inFloor > 0.9 && inFloor < 2.9 && z < height - 0.6) {
        const bool post = fraction(x / 1.5) * 1.5 < 0.18;
        const double pane = latticeNoise(static_cast<int64_t>(std::floor(x / 1.5)),
                                         static_cast<int64_t>(std::floor(z / FLOOR)), 91);
        look.surface.albedo = post ? Vec3(0.3, 0.31, 0.33) : Vec3(0.03, 0.07, 0.11) * (0.7 + 1.6 * pane);
        look.surface.reflectance = post ? 0.35 : 0.05;
        look.recess = post ? 0.0 : 0.15;
    }
    return look;
}

Look tiles(const Surface& roof, double x, double down) {
    Look look{roof};
    const double row = fraction(down / 0.45);
    const double tone = latticeNoise(static_cast<int64_t>(std::floor(x / 0.6)),
                                     static_cast<int64_t>(std::floor(down / 0.45)), 17);
    look.surface.albedo = scaled(roof.albedo, (0.72 + 0.4 * tone) * (0.75 + 0.35 * row));
    look.recess = -0.03 * row;
    return look;
}

Look solarPanels(const Surface& roof, double x, double down, double width, double length) {
    const bool onPanels =
        x > 0.12 * width && x < 0.88 * width && down > 0.15 * length && down < 0.85 * length;
    if (!onPanels) {
        return tiles(roof, x, down);
    }
    Look look{roof};
    const bool seam = fraction(x / 1.1) * 1.1 < 0.1 || fraction(down / 1.7) * 1.7 < 0.1;
    look.surface.albedo = seam ? Vec3(0.35, 0.37, 0.4) : Vec3(0.012, 0.025, 0.09);
    look.surface.reflectance = seam ? 0.4 : 0.05;
    look.recess = -0.12;
    return look;
}

Look flatRoof(const Surface& roof, double x, double y) {
    Look look{roof};
    look.surface.albedo = scaled(roof.albedo, 0.8 + 0.35 * valueNoise(x / 2.5, y / 2.5, 5));
    return look;
}

}  // namespace

double smoothStep(double low, double high, double x) {
    const double t = std::clamp((x - low) / (high - low), 0.0, 1.0);
    return t * t * (3.0 - 2.0 * t);
}

double latticeNoise(int64_t x, int64_t y, uint64_t seed) {
    return Random(static_cast<uint64_t>(x) * 0x8cb92ba72f3d8dd7U ^
                  static_cast<uint64_t>(y) * 0xd6e8feb86659fd93U ^ seed * 0xa0761d6478bd642fU)
        .uniform();
}

double valueNoise(double x, double y, uint64_t seed) {
    const double cellX = std::floor(x);
    const double cellY = std::floor(y);
    const auto ix = static_cast<int64_t>(cellX);
    const auto iy = static_cast<int64_t>(cellY);
    const double tx = smoothStep(0.0, 1.0, x - cellX);
    const double ty = smoothStep(0.0, 1.0, y - cellY);
    const auto between = [](double a, double b, double t) { return a + (b - a) * t; };
    return between(between(latticeNoise(ix, iy, seed), latticeNoise(ix + 1, iy, seed), tx),
                   between(latticeNoise(ix, iy + 1, seed), latticeNoise(ix + 1, iy + 1, seed), tx), ty);
}

Vec3 randomDirection(Random& random) {
    for (;;) {
        Vec3 v;
        for (double& coordinate : v.values) {
            coordinate = random.uniform(-1.0, 1.0);
        }
        const double squared = v.squaredLength();
        if (squared > 0.01 && squared <= 1.0) {
            return v / std::sqrt(squared);
        }
    }
}

double Facet::area() const {
    return edgeU.cross(edgeV).length() * (triangle ? 0.5 : 1.0);
}

SurfacePoint Facet::draw(const Draw& draw) const {
    double u = draw.u;
    double v = draw.v;
    if (triangle && u + v > 1.0) {
        u = 1.0 - u;
        v = 1.0 - v;
    }
    const double width = edgeU.length();
    const double height = edgeV.length();
    const double x = u * width;
    const double y = v * height;
    Look look{surface};
    switch (texture) {
        case Texture::Plain:
            break;
        case Texture::Wall:
            look = windowedWall(surface, x, y, width, height, draw);
            break;
        case Texture::OfficeWall:
            look = officeWall(surface, x, y, height);
            break;
        case Texture::Tiles:
            look = tiles(surface, x, height - y);
            break;
        case Texture::FlatRoof:
            look = flatRoof(surface, x, y);
            break;
        case Texture::SolarPanels:
            look = solarPanels(surface, x, height - y, width, height);
            break;
    }
    const Vec3 cross = edgeU.cross(edgeV);
    const Vec3 normal = cross / cross.length();
    return {corner + edgeU * u + edgeV * v - normal * look.recess, normal, look.surface};
}

bool Facet::blocks(const Ray& ray) const {
    const Vec3 p = ray.direction.cross(edgeV);
    const double determinant = edgeU.dot(p);
    if (std::abs(determinant) < 1e-9) {
        return false;
    }
    const Vec3 t = ray.origin - corner;
    const double u = t.dot(p) / determinant;
    const Vec3 q = t.cross(edgeU);
    const double v = ray.direction.dot(q) / determinant;
    const bool inside = u >= 0.0 && v >= 0.0 && (triangle ? u + v <= 1.0 : u <= 1.0 && v <= 1.0);
    return inside && edgeV.dot(q) / determinant > 0.05;
}

double Foliage::area() const {
    return 4.0 * PI * radius * radius;
}

SurfacePoint Foliage::draw(const Draw& draw) const {
    const Vec3 direction = randomDirection(draw.random);
    const double depth = draw.random.uniform();
    const Vec3 position = center + direction * (radius * (1.08 - 0.3 * depth * depth));
    const Vec3 outward = position - crownCenter;
    const Vec3 normal = direction * 0.5 + outward / std::max(outward.length(), 1e-3);
    Surface leaf = surface;
    leaf.albedo *= 0.55 + 0.6 * draw.random.uniform();
    leaf.albedo *= 0.75 + 0.25 * direction.z();
    return {position, normal / std::max(normal.length(), 1e-3), leaf};
}

bool Foliage::blocks(const Ray& ray) const {
    return hitsBall(ray, center, radius * 0.85);
}

double Conifer::area() const {
    return PI * radius * std::sqrt(radius * radius + height * height);
}

SurfacePoint Conifer::draw(const Draw& draw) const {
    Vec3 outward = randomDirection(draw.random);
    outward.z() = 0.0;
    outward /= std::max(outward.length(), 1e-3);
    const double t = 1.0 - std::sqrt(draw.u);  // as much of the cone lies at each height
    const double layer = fraction(t * height / 1.1);
    const double reach = radius * (1.0 - t) * (1.05 - 0.45 * layer) * (0.8 + 0.25 * draw.random.uniform());
    Surface needles = surface;
    needles.albedo *= (0.5 + 0.5 * draw.random.uniform()) * (1.1 - 0.5 * layer);
    const Vec3 normal = outward + Vec3(0.0, 0.0, 0.5);
    return {base + outward * reach + Vec3(0.0, 0.0, t * height), normal / normal.length(), needles};
}

bool Conifer::blocks(const Ray& ray) const {
    for (const double t : {0.2, 0.45, 0.7}) {
        if (hitsBall(ray, base + Vec3(0.0, 0.0, t * height), radius * (1.0 - t) * 0.85)) {
            return true;
        }
    }
    return false;
}

double Pole::area() const {
    return 2.0 * PI * radius * height;
}

SurfacePoint Pole::draw(const Draw& draw) const {
    Vec3 outward = randomDirection(draw.random);
    outward.z() = 0.0;
    outward /= std::max(outward.length(), 1e-3);
    return {base + outward * radius + Vec3(0.0, 0.0, draw.v * height), outward, surface};
}

bool SiteObject::blocks(const Ray& ray) const {
    if (!hitsBall(ray, center, radius)) {
        return false;
    }
    return std::any_of(shapes.begin(), shapes.end(), [&](const Shape& shape) {
        return std::visit([&](const auto& concrete) { return concrete.blocks(ray); }, shape);
    });
}

}  // namespace Tool
