#include <tools/lumaro/SitePlan.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace Tool {

namespace {

struct Roof {
    Surface surface;
    double height = 0.0;  ///< of the ridge above the eaves; 0 is a flat roof
    bool solar = false;
};

/// A box of facets standing on its footprint; the local axes run along its length, its width and up.
class Block {
public:
    Block(const Footprint& footprint, double floor)
        : mAlong(footprint.cosine, footprint.sine, 0.0),
          mAcross(-footprint.sine, footprint.cosine, 0.0),
          mCenter(footprint.x, footprint.y, floor),
          mHalfLength(footprint.halfLength),
          mHalfWidth(footprint.halfWidth) {}

    Vec3 at(double along, double across, double up) const {
        return mCenter + mAlong * along + mAcross * across + Vec3(0.0, 0.0, up);
    }

    void quad(const Vec3& corner, const Vec3& u, const Vec3& v, const Surface& surface, Texture texture) {
        mObject.shapes.emplace_back(Facet{corner, u, v, surface, texture, false});
    }
    void triangle(const Vec3& a, const Vec3& b, const Vec3& c, const Surface& surface, Texture texture) {
        mObject.shapes.emplace_back(Facet{a, b - a, c - a, surface, texture, true});
    }

    void walls(double bottom, double top, const Surface& surface, Texture texture) {
        const double l = mHalfLength;
        const double w = mHalfWidth;
        const std::array<std::pair<double, double>, 4> corners{{{-l, -w}, {l, -w}, {l, w}, {-l, w}}};
        for (size_t i = 0; i < 4; ++i) {
            const auto [a, b] = corners[i];
            const auto [c, d] = corners[(i + 1) % 4];
            quad(at(a, b, bottom), at(c, d, 0.0) - at(a, b, 0.0), Vec3(0.0, 0.0, top - bottom), surface,
                 texture);
        }
    }

    void flatTop(double up, const Surface& surface, Texture texture) {
        quad(at(-mHalfLength, -mHalfWidth, up), mAlong * (2.0 * mHalfLength), mAcross * (2.0 * mHalfWidth),
             surface, texture);
    }

    /// A ridge along the length, with overhanging eaves and gables closed by the wall's surface.
    void gableRoof(double eaves, const Roof& roof, const Surface& gable, double overhang) {
        const double l = mHalfLength + overhang;
        const double drop = roof.height / mHalfWidth * overhang;
        const double w = mHalfWidth + overhang;
        const Vec3 up(0.0, 0.0, roof.height + drop);
        quad(at(-l, -w, eaves - drop), mAlong * (2.0 * l), mAcross * w + up, roof.surface,
             roof.solar ? Texture::SolarPanels : Texture::Tiles);
        quad(at(l, w, eaves - drop), mAlong * (-2.0 * l), mAcross * -w + up, roof.surface, Texture::Tiles);
        const Vec3 top(0.0, 0.0, roof.height);
        for (const double side : {-1.0, 1.0}) {
            const Vec3 a = at(side * mHalfLength, -side * mHalfWidth, eaves);
            const Vec3 b = at(side * mHalfLength, side * mHalfWidth, eaves);
            triangle(a, b, (a + b) * 0.5 + top, gable, Texture::Plain);
        }
    }

    void spire(double bottom, double height, const Surface& surface) {
        const Vec3 tip = at(0.0, 0.0, bottom + height);
        const double l = mHalfLength + 0.3;
        const double w = mHalfWidth + 0.3;
        const std::array<Vec3, 4> base{at(-l, -w, bottom), at(l, -w, bottom), at(l, w, bottom),
                                       at(-l, w, bottom)};
        for (size_t i = 0; i < 4; ++i) {
            triangle(base[i], base[(i + 1) % 4], tip, surface, Texture::Tiles);
        }
    }

    SiteObject finish(double top, double density) {
        mObject.center = at(0.0, 0.0, top / 2.0);
        const double reach = mHalfLength + mHalfWidth + 1.0;  // more than the half diagonal
        mObject.radius = std::sqrt(reach * reach + top * top / 4.0);
        mObject.density = density;
        return std::move(mObject);
    }

private:
    Vec3 mAlong;
    Vec3 mAcross;
    Vec3 mCenter;
    double mHalfLength;
    double mHalfWidth;
    SiteObject mObject;
};

Surface building(double r, double g, double b, double reflectance = 0.4) {
    return {Vec3(r, g, b), reflectance, GroundClass::Building};
}

const Surface RED_TILES = building(0.34, 0.1, 0.055, 0.3);
const Surface BROWN_TILES = building(0.22, 0.11, 0.07, 0.25);
const Surface SLATE = building(0.085, 0.095, 0.12, 0.2);
const Surface SHEET_METAL = building(0.4, 0.43, 0.45, 0.6);
const Surface STONE = building(0.5, 0.44, 0.34, 0.45);

void addHouse(SitePlan& plan, const Footprint& footprint, const Surface& wall, const Roof& roof,
              double eaves) {
    Block house(footprint, plan.ground.addBuilding(footprint));
    house.walls(-0.3, eaves, wall, Texture::Wall);
    house.gableRoof(eaves, roof, wall, 0.5);
    plan.objects.push_back(house.finish(eaves + roof.height, 1.3));

    Footprint stack = footprint;
    const double along = footprint.halfLength * 0.45;
    const double across = footprint.halfWidth * 0.3;
    stack.x += along * footprint.cosine - across * footprint.sine;
    stack.y += along * footprint.sine + across * footprint.cosine;
    stack.halfLength = 0.35;
    stack.halfWidth = 0.35;
    Block chimney(stack, plan.ground.height(footprint.x, footprint.y));
    chimney.walls(eaves, eaves + roof.height + 0.9, BROWN_TILES, Texture::Plain);
    chimney.flatTop(eaves + roof.height + 0.9, SLATE, Texture::Plain);
    plan.objects.push_back(chimney.finish(eaves + roof.height + 0.9, 1.5));
}

void addHouses(SitePlan& plan) {
    const Surface white = building(0.72, 0.7, 0.66, 0.6);
    const Surface cream = building(0.66, 0.56, 0.38, 0.55);
    const Surface ochre = building(0.58, 0.36, 0.14, 0.5);
    const Surface rose = building(0.6, 0.33, 0.27, 0.5);
    const Surface blue = building(0.3, 0.4, 0.52, 0.5);
    addHouse(plan, {20.0, 74.0, 6.0, 4.5, 0.96, 0.28}, white, {RED_TILES, 3.6, true}, 5.9);
    addHouse(plan, {41.0, 78.0, 5.5, 4.5, 0.96, 0.28}, ochre, {BROWN_TILES, 3.8}, 5.9);
    addHouse(plan, {16.0, 45.5, 6.0, 5.0, 0.96, 0.28}, rose, {RED_TILES, 4.0}, 5.9);
    addHouse(plan, {38.0, 50.0, 5.0, 4.5, 0.28, -0.96}, cream, {RED_TILES, 3.6}, 5.9);
    addHouse(plan, {60.0, 56.0, 6.5, 4.8, 0.96, 0.28}, white, {SLATE, 4.2}, 5.9);
    addHouse(plan, {82.0, 60.5, 5.5, 4.6, 0.96, 0.28}, blue, {RED_TILES, 3.7}, 5.9);
    addHouse(plan, {106.0, 68.0, 6.0, 4.8, 0.96, 0.28}, cream, {BROWN_TILES, 4.0, true}, 5.9);
    addHouse(plan, {130.0, 73.0, 5.5, 5.0, 0.28, -0.96}, white, {RED_TILES, 4.2}, 5.9);
    addHouse(plan, {149.0, 77.0, 5.0, 4.5, 1.0, 0.0}, ochre, {RED_TILES, 3.6}, 5.9);
    addHouse(plan, {89.0, 121.0, 4.8, 5.2, 1.0, 0.0}, rose, {SLATE, 4.0}, 5.9);
    addHouse(plan, {86.0, 143.0, 6.0, 4.8, 0.8, 0.6}, white, {RED_TILES, 3.8}, 5.9);
    addHouse(plan, {118.0, 144.0, 6.0, 4.8, 0.96, 0.28}, cream, {RED_TILES, 3.8, true}, 5.9);

    const Footprint barn{34.0, 20.0, 11.0, 6.5, 0.8, -0.6};
    Block hall(barn, plan.ground.addBuilding(barn));
    hall.walls(-0.3, 5.5, building(0.3, 0.17, 0.09, 0.4), Texture::Plain);
    hall.gableRoof(5.5, {SHEET_METAL, 2.6}, building(0.3, 0.17, 0.09, 0.4), 0.7);
    plan.objects.push_back(hall.finish(8.1, 1.2));
}

void addChurch(SitePlan& plan) {
    const Footprint nave{68.0, 96.0, 11.0, 5.5, 0.0, 1.0};
    const double floor = plan.ground.addBuilding(nave);
    Block body(nave, floor);
    body.walls(-0.3, 9.0, STONE, Texture::Plain);
    body.gableRoof(9.0, {RED_TILES, 6.5}, STONE, 0.4);
    plan.objects.push_back(body.finish(15.5, 1.3));

    const Footprint towerBase{68.0, 110.0, 3.4, 3.4};
    plan.ground.addBuilding(towerBase);
    Block tower(towerBase, floor);
    tower.walls(-0.5, 21.0, STONE, Texture::Plain);
    tower.spire(21.0, 15.0, building(0.12, 0.26, 0.2, 0.3));
    plan.objects.push_back(tower.finish(36.0, 1.6));
    // Tall windows and the clock stand a hand's breadth in front of the stone.
    Block panes({68.0, 96.0, 11.0, 5.62, 0.0, 1.0}, floor);
    for (int i = -2; i <= 2; ++i) {
        for (const double side : {-1.0, 1.0}) {
            panes.quad(panes.at(4.0 * i + 0.6 * side, -5.62 * side, 2.5),
                       panes.at(-1.2 * side, 0.0, 0.0) - panes.at(0.0, 0.0, 0.0), Vec3(0.0, 0.0, 4.5),
                       building(0.05, 0.06, 0.1, 0.1), Texture::Plain);
        }
    }
    plan.objects.push_back(panes.finish(8.0, 1.5));
    Block clock({68.0, 110.0, 3.5, 3.5}, floor);
    clock.quad(clock.at(-1.2, 3.5, 17.0), Vec3(2.4, 0.0, 0.0), Vec3(0.0, 0.0, 2.4),
               building(0.85, 0.83, 0.7, 0.7), Texture::Plain);
    clock.quad(clock.at(3.5, -1.2, 17.0), Vec3(0.0, 2.4, 0.0), Vec3(0.0, 0.0, 2.4),
               building(0.85, 0.83, 0.7, 0.7), Texture::Plain);
    plan.objects.push_back(clock.finish(20.0, 2.5));
}

void addOffice(SitePlan& plan) {
    const Footprint footprint{117.0, 112.0, 9.0, 13.0};
    const double floor = plan.ground.addBuilding(footprint);
    const Surface concrete = building(0.5, 0.5, 0.48, 0.45);
    Block office(footprint, floor);
    office.walls(-0.4, 14.4, concrete, Texture::OfficeWall);
    office.flatTop(13.7, building(0.3, 0.29, 0.27, 0.35), Texture::FlatRoof);
    plan.objects.push_back(office.finish(14.4, 1.2));
    const std::array<Footprint, 3> units{
        {{113.0, 106.0, 2.2, 1.6}, {120.0, 118.0, 1.4, 3.0}, {112.0, 119.0, 1.2, 1.2}}};
    for (const Footprint& unit : units) {
        Block box(unit, floor + 13.7);
        box.walls(0.0, 1.8, SHEET_METAL, Texture::Plain);
        box.flatTop(1.8, SHEET_METAL, Texture::Plain);
        plan.objects.push_back(box.finish(1.8, 1.5));
    }
}

void addCar(SitePlan& plan, double x, double y, double cosine, double sine, const Vec3& paint) {
    const Surface body{paint, 0.5, GroundClass::Unclassified};
    const Surface glass{Vec3(0.03, 0.035, 0.045), 0.05, GroundClass::Unclassified};
    const double floor = plan.ground.height(x, y);
    Block lower({x, y, 2.15, 0.9, cosine, sine}, floor);
    lower.walls(0.3, 0.95, body, Texture::Plain);
    lower.flatTop(0.95, body, Texture::Plain);
    plan.objects.push_back(lower.finish(0.95, 6.0));
    Block cabin({x - 0.3 * cosine, y - 0.3 * sine, 1.2, 0.78, cosine, sine}, floor);
    cabin.walls(0.95, 1.42, glass, Texture::Plain);
    cabin.flatTop(1.45, body, Texture::Plain);
    plan.objects.push_back(cabin.finish(1.5, 6.0));
}

void addCars(SitePlan& plan) {
    const std::array<Vec3, 6> paints{Vec3(0.5, 0.03, 0.03),   Vec3(0.75, 0.75, 0.75), Vec3(0.04, 0.09, 0.3),
                                     Vec3(0.05, 0.05, 0.055), Vec3(0.33, 0.34, 0.36), Vec3(0.6, 0.42, 0.05)};
    const Footprint park = SiteGround::carPark();
    for (int i = 0; i < 7; ++i) {
        if (i == 2) {
            continue;
        }
        const double y = park.y - 9.7 + 2.8 * i;
        addCar(plan, park.x + 5.2, y, i % 2 == 0 ? 1.0 : -1.0, 0.0, paints[static_cast<size_t>(i) % 6]);
    }
    const std::array<double, 5> parked{26.0, 33.0, 54.0, 118.0, 141.0};
    for (size_t i = 0; i < parked.size(); ++i) {
        const double x = parked[i];
        addCar(plan, x, SiteGround::streetY(x) + (i % 2 == 0 ? 2.3 : -2.3), 0.96, 0.28, paints[(i + 2) % 6]);
    }
}

void addLamps(SitePlan& plan) {
    const Surface steel{Vec3(0.2, 0.21, 0.22), 0.4, GroundClass::Unclassified};
    for (int i = 0; i < 7; ++i) {
        const double x = 10.0 + 23.5 * i;
        const double y = SiteGround::streetY(x) + 4.4;
        const double z = plan.ground.height(x, y);
        SiteObject lamp;
        lamp.shapes.emplace_back(Pole{Vec3(x, y, z), 0.08, 6.2, steel});
        lamp.shapes.emplace_back(
            Facet{Vec3(x - 0.15, y - 1.8, z + 6.2), Vec3(0.3, 0.0, 0.0), Vec3(0.0, 1.8, 0.0), steel});
        lamp.center = Vec3(x, y - 0.9, z + 6.2);
        lamp.radius = 1.2;
        lamp.density = 4.0;
        plan.objects.push_back(std::move(lamp));
    }
}

SiteObject broadleaf(const Vec3& foot, double size, Random& random) {
    const double trunk = size * 0.9;
    const Vec3 crown = foot + Vec3(0.0, 0.0, trunk + size * 0.75);
    const double autumn = random.uniform();
    const Vec3 tint = autumn < 0.12 ? Vec3(0.3, 0.17, 0.03)
                                    : Vec3(0.05 + 0.1 * random.uniform(), 0.14 + 0.06 * autumn, 0.03);
    SiteObject tree;
    tree.shapes.emplace_back(Pole{
        foot, 0.06 * size, trunk + 0.4 * size, {Vec3(0.12, 0.08, 0.05), 0.3, GroundClass::HighVegetation}});
    for (int i = 0; i < 9; ++i) {
        const Vec3 direction = randomDirection(random);
        const double reach = size * (i == 0 ? 0.0 : 0.62);
        const double radius = size * (0.42 + 0.16 * random.uniform());
        const Vec3 center =
            crown + Vec3(direction.x() * reach, direction.y() * reach, direction.z() * reach * 0.75);
        const Vec3 color = tint * (0.8 + 0.45 * random.uniform());
        tree.shapes.emplace_back(Foliage{center, radius, crown, {color, 0.72, GroundClass::HighVegetation}});
    }
    tree.center = crown;
    tree.radius = size * 1.3;
    tree.density = 0.5;
    return tree;
}

SiteObject conifer(const Vec3& foot, double height, Random& random) {
    SiteObject tree;
    const Surface bark{Vec3(0.1, 0.065, 0.045), 0.3, GroundClass::HighVegetation};
    const double tone = 0.7 + 0.5 * random.uniform();
    tree.shapes.emplace_back(Pole{foot, 0.16, height * 0.3, bark});
    tree.shapes.emplace_back(Conifer{foot + Vec3(0.0, 0.0, height * 0.1),
                                     height * 0.22,
                                     height * 0.9,
                                     {Vec3(0.045, 0.13, 0.045) * tone, 0.6, GroundClass::HighVegetation}});
    tree.center = foot + Vec3(0.0, 0.0, height * 0.5);
    tree.radius = height * 0.55;
    tree.density = 1.1;
    return tree;
}

/// Places for trees that keep their distance from each other.
class TreePlaces {
public:
    bool take(double x, double y, double apart) {
        for (const auto& [otherX, otherY] : mTaken) {
            if ((x - otherX) * (x - otherX) + (y - otherY) * (y - otherY) < apart * apart) {
                return false;
            }
        }
        mTaken.emplace_back(x, y);
        return true;
    }

private:
    std::vector<std::pair<double, double>> mTaken;
};

void addTrees(SitePlan& plan) {
    Random random(2024);
    TreePlaces places;
    const auto foot = [&](double x, double y) { return Vec3(x, y, plan.ground.height(x, y) - 0.1); };
    const auto plantBroadleaf = [&](double x, double y, double size) {
        plan.objects.push_back(broadleaf(foot(x, y), size, random));
    };
    for (int i = 0; i < 700; ++i) {
        const double x = random.uniform(3.0, 58.0);
        const double y = random.uniform(92.0, 157.0);
        const double dx = (x - 27.0) / 19.0;
        const double dy = (y - 128.0) / 13.0;
        if (dx * dx + dy * dy > 1.0 && SiteGround::plaza().distance(x, y) > 4.0 && places.take(x, y, 8.5)) {
            plantBroadleaf(x, y, random.uniform(2.6, 4.4));
        }
    }
    for (int i = 0; i < 900; ++i) {
        const double x = random.uniform(74.0, 157.0);
        const double y = random.uniform(3.0, 46.0);
        if (x - 74.0 > y * 0.7 && places.take(x, y, 5.2)) {
            plan.objects.push_back(conifer(foot(x, y), random.uniform(9.0, 17.0), random));
        }
    }
    for (const double x : {8.0, 29.0, 51.0, 73.0, 119.0, 140.0, 156.0}) {
        plantBroadleaf(x, SiteGround::streetY(x) - 7.2, 2.3);
    }
    const std::array<std::pair<double, double>, 12> gardens{{{29.0, 84.0},
                                                             {11.0, 84.0},
                                                             {50.0, 45.0},
                                                             {71.0, 48.0},
                                                             {95.0, 56.0},
                                                             {118.0, 60.0},
                                                             {140.0, 63.0},
                                                             {58.0, 112.0},
                                                             {79.0, 111.0},
                                                             {80.0, 131.0},
                                                             {132.0, 146.0},
                                                             {151.0, 112.0}}};
    for (const auto& [x, y] : gardens) {
        plantBroadleaf(x, y, random.uniform(2.0, 3.2));
    }
    for (const auto& [x, y] : {std::pair{104.0, 135.0}, {152.0, 140.0}, {147.0, 150.0}, {152.0, 101.0}}) {
        plan.objects.push_back(conifer(foot(x, y), random.uniform(8.0, 12.0), random));
    }
}

}  // namespace

SitePlan SitePlan::build() {
    SitePlan plan;
    addHouses(plan);
    addChurch(plan);
    addOffice(plan);
    addCars(plan);
    addLamps(plan);
    addTrees(plan);
    return plan;
}

}  // namespace Tool
