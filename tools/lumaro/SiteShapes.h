#pragma once

#include <math/Point.h>
#include <tools/lumaro/Random.h>

#include <cstdint>
#include <variant>
#include <vector>

namespace Tool {

using Vec3 = Math::Point<double, 3>;

/// Classes as LAS numbers them.
enum class GroundClass : uint8_t {
    Unclassified = 1,
    Ground = 2,
    LowVegetation = 3,
    HighVegetation = 5,
    Building = 6,
    Water = 9,
    Road = 11
};

/// What a laser and a camera see of a surface: linear colour 0 to 1, share of near infrared reflected 0 to 1.
struct Surface {
    Vec3 albedo;
    double reflectance = 0.3;
    GroundClass classification = GroundClass::Unclassified;
};

struct SurfacePoint {
    Vec3 position;
    Vec3 normal;
    Surface surface;
};

/// One drawing of a point on a shape: u and v in [0, 1) are evenly spread over the shape's drawings, the
/// generator is for everything irregular.
struct Draw {
    double u;
    double v;
    Random& random;
};

struct Ray {
    Vec3 origin;
    Vec3 direction;  ///< unit length
};

enum class Texture : uint8_t { Plain, Wall, OfficeWall, Tiles, FlatRoof, SolarPanels };

/// A parallelogram, or half of it.
struct Facet {
    Vec3 corner;
    Vec3 edgeU;
    Vec3 edgeV;
    Surface surface;
    Texture texture = Texture::Plain;
    bool triangle = false;

    double area() const;
    SurfacePoint draw(const Draw& draw) const;
    bool blocks(const Ray& ray) const;
};

/// A ball of leaves with a ragged surface.
struct Foliage {
    Vec3 center;
    double radius;
    Vec3 crownCenter;
    Surface surface;

    double area() const;
    SurfacePoint draw(const Draw& draw) const;
    bool blocks(const Ray& ray) const;
};

/// A conifer's cone in drooping layers.
struct Conifer {
    Vec3 base;
    double radius;
    double height;
    Surface surface;

    double area() const;
    SurfacePoint draw(const Draw& draw) const;
    bool blocks(const Ray& ray) const;
};

/// A thin upright cylinder: trunk or post. Too thin to cast a shadow.
struct Pole {
    Vec3 base;
    double radius;
    double height;
    Surface surface;

    double area() const;
    SurfacePoint draw(const Draw& draw) const;
    bool blocks(const Ray&) const { return false; }
};

using Shape = std::variant<Facet, Foliage, Conifer, Pole>;

/// Shapes that are looked at together, with a ball around them for quick misses.
struct SiteObject {
    std::vector<Shape> shapes;
    Vec3 center;
    double radius = 0.0;
    double density = 1.0;  ///< points per area, relative to the ground

    bool blocks(const Ray& ray) const;
};

/// Straight smooth step from 0 at `low` to 1 at `high`.
double smoothStep(double low, double high, double x);

/// Even noise in [0, 1) of a lattice point.
double latticeNoise(int64_t x, int64_t y, uint64_t seed);

/// Smooth noise in [0, 1) with features about one unit wide.
double valueNoise(double x, double y, uint64_t seed);

/// Evenly over the unit sphere.
Vec3 randomDirection(Random& random);

}  // namespace Tool
