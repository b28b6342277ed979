#include <render/pointcloud/BrightnessAndContrast.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace Render {

namespace {

// By the sum of red, green and blue.
using Histogram = std::array<std::size_t, 3 * 255 + 1>;

// The first value, counted from one end, up to and including which more than `allowed` points lie.
template <class Iterator>
std::size_t clipped(Iterator begin, Iterator end, std::size_t allowed) {
    std::size_t sum = 0;
    for (Iterator value = begin; value != end; ++value) {
        sum += *value;
        if (sum > allowed) {
            return static_cast<std::size_t>(value - begin);
        }
    }
    return static_cast<std::size_t>(end - begin);
}

}  // namespace

BrightnessAndContrast stretchColors(const std::vector<std::shared_ptr<const NodeVertices>>& nodes,
                                    float darkest, float brightest) {
    Histogram histogram{};
    std::size_t count = 0;
    for (const auto& node : nodes) {
        count += node->vertices.size();
        for (std::size_t i = 0; i < node->vertices.size(); ++i) {
            const Math::Color color = node->vertices.data()[i].color;
            ++histogram[std::size_t{color.r()} + color.g() + color.b()];
        }
    }
    const auto allowed = [count](float share) {
        const double points = double{std::clamp(share, 0.0f, 1.0f)} * static_cast<double>(count);
        return static_cast<std::size_t>(std::llround(points));
    };
    const std::size_t last = histogram.size() - 1;
    const std::size_t low = clipped(histogram.begin(), histogram.end(), allowed(darkest));
    const std::size_t fromTop = clipped(histogram.rbegin(), histogram.rend(), allowed(brightest));
    if (fromTop > last || low >= last - fromTop) {
        return {};
    }
    const float least = static_cast<float>(low) / static_cast<float>(last);
    const float greatest = static_cast<float>(last - fromTop) / static_cast<float>(last);
    return {.brightness = 0.5f - (least + greatest) / 2.0f, .contrast = 1.0f / (greatest - least)};
}

}  // namespace Render
