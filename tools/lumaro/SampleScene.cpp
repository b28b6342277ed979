#include <tools/lumaro/SampleScene.h>

#include <tools/lumaro/SitePlan.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace Tool {

namespace {

constexpr double STEPS_PER_METRE = 1000.0;
constexpr double MARGIN = 1.0;  ///< metres between the cube's borders and the site

/// Two additive sequences of 2^32 steps, whose points fill the unit square evenly at any count.
class EvenSequence {
public:
    explicit EvenSequence(Random& random)
        : mU(static_cast<uint32_t>(random.next())), mV(static_cast<uint32_t>(random.next())) {}

    Draw next(Random& random) {
        mU += 3242174889U;
        mV += 2447445414U;
        return {mU * 0x1p-32, mV * 0x1p-32, random};
    }

private:
    uint32_t mU;
    uint32_t mV;
};

/// Shares `count` among the areas: proportional, whole, and exact in sum.
std::vector<size_t> share(size_t count, const std::vector<double>& areas) {
    double total = 0.0;
    for (const double area : areas) {
        total += area;
    }
    std::vector<size_t> shares;
    double sum = 0.0;
    size_t given = 0;
    for (const double area : areas) {
        sum += area;
        const auto upTo = static_cast<size_t>(std::floor(static_cast<double>(count) * (sum / total)));
        shares.push_back(std::min(upTo, count) - given);
        given += shares.back();
    }
    shares.back() += count - given;
    return shares;
}

class Scanner {
public:
    explicit Scanner(const SitePlan& plan) : mPlan(plan) {
        const Vec3 sun(0.62, -0.46, 0.62);
        mSun = sun / sun.length();
    }

    StorePoint scan(SurfacePoint point, Random& random) const {
        StorePoint result;
        for (int axis = 0; axis < 3; ++axis) {
            const double metres = point.position[axis] + random.spread(0.012) + MARGIN;
            result.position[static_cast<size_t>(axis)] =
                std::max(static_cast<int32_t>(std::floor(metres * STEPS_PER_METRE)), 0);
        }
        setColor(result, point);
        const double facing = 0.55 + 0.45 * std::abs(point.normal.z());
        const double echo = point.surface.reflectance * facing * (0.9 + 0.2 * random.uniform());
        result.intensity = static_cast<uint16_t>(std::clamp(echo * 60000.0, 0.0, 65535.0));
        result.classification = static_cast<uint8_t>(point.surface.classification);
        if (point.surface.classification == GroundClass::HighVegetation) {
            result.numberOfReturns = static_cast<uint8_t>(1 + random.below(3));
            result.returnNumber = static_cast<uint8_t>(1 + random.below(result.numberOfReturns));
        }
        result.scanAngle = static_cast<int8_t>(std::floor((point.position.x() - 80.0) / 4.0));
        result.sourceId =
            static_cast<uint16_t>(1 + static_cast<int>(std::max(point.position.y(), 0.0) / 40.0));
        return result;
    }

private:
    void setColor(StorePoint& result, const SurfacePoint& point) const {
        const bool leaves = point.surface.classification == GroundClass::HighVegetation;
        double sunlight = std::max(point.normal.dot(mSun), 0.0);
        if (leaves) {
            sunlight = 0.35 * sunlight + 0.65 * std::max(0.3 + 0.7 * point.normal.dot(mSun), 0.0);
        }
        if (sunlight > 0.0 && inShadow(point, leaves)) {
            sunlight *= leaves ? 0.3 : 0.04;
        }
        const double sky = 0.62 + 0.38 * point.normal.z();
        const Vec3 light = Vec3(1.5, 1.38, 1.2) * sunlight + Vec3(0.36, 0.43, 0.54) * sky;
        for (int channel = 0; channel < 3; ++channel) {
            // Square root instead of a display's 2.2: the same digits on every platform.
            const double value =
                std::sqrt(std::clamp(point.surface.albedo[channel] * light[channel], 0.0, 1.0));
            const auto level = static_cast<unsigned>(std::lround(value * 255.0));
            result.color[static_cast<size_t>(channel)] = static_cast<uint16_t>(level * 257);
        }
    }

    bool inShadow(const SurfacePoint& point, bool leaves) const {
        // Leaves cast no shadow on their own ball: they stand inside it.
        const Ray ray{point.position + point.normal * (leaves ? 0.9 : 0.06), mSun};
        return std::any_of(mPlan.objects.begin(), mPlan.objects.end(),
                           [&](const SiteObject& object) { return object.blocks(ray); });
    }

    const SitePlan& mPlan;
    Vec3 mSun;
};

}  // namespace

std::vector<StorePoint> samplePoints(size_t count, std::stop_token stop) {
    const SitePlan plan = SitePlan::build();
    std::vector<const Shape*> shapes;
    std::vector<double> areas{SiteGround::SIZE * SiteGround::SIZE};
    for (const SiteObject& object : plan.objects) {
        for (const Shape& shape : object.shapes) {
            shapes.push_back(&shape);
            areas.push_back(object.density *
                            std::visit([](const auto& concrete) { return concrete.area(); }, shape));
        }
    }
    const std::vector<size_t> shares = share(count, areas);

    Random random(7);
    const Scanner scanner(plan);
    std::vector<StorePoint> points;
    points.reserve(count);
    for (size_t i = 0; i < shares.size(); ++i) {
        EvenSequence sequence(random);
        const size_t end = points.size() + shares[i];
        while (points.size() < end) {
            if (points.size() % 1024 == 0 && stop.stop_requested()) {
                return points;
            }
            const Draw draw = sequence.next(random);
            if (i > 0) {
                points.push_back(scanner.scan(
                    std::visit([&](const auto& concrete) { return concrete.draw(draw); }, *shapes[i - 1]),
                    random));
            } else if (const auto onGround = plan.ground.draw(draw)) {
                points.push_back(scanner.scan(*onGround, random));
            }
        }
    }
    return points;
}

StoreDescription sampleDescription() {
    return {"Sample village", "Generated sample scene", {432500.0, 5412300.0, 180.0}, 1.0 / STEPS_PER_METRE};
}

bool writeSampleStore(const std::filesystem::path& folder, size_t count, const StoreWriteOptions& options) {
    std::vector<StorePoint> points = samplePoints(count, options.stop);
    return points.size() == count &&
           writePotreeStore(folder, sampleDescription(), std::move(points), options);
}

}  // namespace Tool
