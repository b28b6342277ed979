#pragma once

#include <octree/NodePointData.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>
#include <string>

namespace Support {

/// What the truth files say of a node or of a whole store, taken from decoded points.
struct TruthSummary {
    explicit TruthSummary(const Math::Point<double, 3>& storeReference) : reference(storeReference) {}

    void add(const Octree::NodePointData& data) {
        using Octree::Attribute;
        for (std::size_t i = 0; i < data.size(); ++i) {
            box.extend(data.position(i) + reference);
            if (data.has(Attribute::Color)) {
                const Math::Color color = data.color(i);
                colorSum += Math::Point<double, 3>(color.r(), color.g(), color.b());
            }
            if (data.has(Attribute::Intensity)) {
                intensitySum += data.intensity(i);
            }
            if (data.has(Attribute::Classification)) {
                ++classes[std::to_string(data.classification(i))];
            }
        }
        count += data.size();
    }

    /// The truth's colours are this many times as large.
    void expectSame(const nlohmann::json& truth, double colorUnit,
                    const Math::Point<double, 3>& tolerance) const {
        ASSERT_EQ(count, truth.value("numPoints", truth.value("points", std::size_t{0})));
        if (count == 0) {
            return;
        }
        const double divisor = static_cast<double>(count);
        for (int axis = 0; axis < 3; ++axis) {
            const auto i = static_cast<std::size_t>(axis);
            EXPECT_NEAR(box.min[axis], truth["min"][i].get<double>(), tolerance[axis]);
            EXPECT_NEAR(box.max[axis], truth["max"][i].get<double>(), tolerance[axis]);
            if (!truth["meanRGB"].is_null()) {
                EXPECT_NEAR(colorSum[axis] / divisor, truth["meanRGB"][i].get<double>() / colorUnit, 1e-6);
            }
        }
        EXPECT_EQ(colorSum == (Math::Point<double, 3>()), truth["meanRGB"].is_null());
        const double meanIntensity =
            truth["meanIntensity"].is_null() ? 0.0 : truth["meanIntensity"].get<double>();
        EXPECT_NEAR(intensitySum / divisor, meanIntensity, 1e-6);
        using Classes = decltype(classes);
        EXPECT_EQ(classes,
                  truth["classification"].is_null() ? Classes() : truth["classification"].get<Classes>());
    }

    Math::Point<double, 3> reference;
    Math::NBoundingBox<double, 3> box;
    Math::Point<double, 3> colorSum;
    double intensitySum = 0.0;
    std::map<std::string, std::size_t> classes;
    std::size_t count = 0;
};

}  // namespace Support
