#pragma once

#include <tools/lumaro/SiteShapes.h>

#include <optional>
#include <vector>

namespace Tool {

/// A rectangle on the map, turned by the angle whose cosine and sine are given.
struct Footprint {
    double x;
    double y;
    double halfLength;
    double halfWidth;
    double cosine = 1.0;
    double sine = 0.0;

    /// Metres from the rectangle, 0 inside.
    double distance(double px, double py) const;
};

/// The ground of the sample site, SIZE metres square, with its streets, plaza, pond and field.
class SiteGround {
public:
    static constexpr double SIZE = 160.0;

    /// Levels the ground around a building and leaves out what lies under it. Returns the level.
    double addBuilding(const Footprint& footprint);

    /// Metres above the site's lowest level.
    double height(double x, double y) const;

    /// The centre line of the main street.
    static double streetY(double x);

    static Footprint plaza();
    static Footprint carPark();

    /// What stands at a place of the map, or nothing under a building.
    std::optional<SurfacePoint> draw(const Draw& draw) const;

private:
    struct Pad {
        Footprint footprint;
        double level;
    };

    double relief(double x, double y) const;
    Surface surface(double x, double y, Random& random, double& raise) const;

    std::vector<Pad> mPads;
};

}  // namespace Tool
