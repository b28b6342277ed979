#include <tools/lumaro/NumberText.h>
#include <tools/lumaro/Ticks.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace Tool {

std::vector<Tick> roundTicks(double low, double high, size_t most) {
    constexpr std::array<int, 3> STEPS{1, 2, 5};
    constexpr double HAIR = 1e-9;  // Of a step: ends that are round themselves count.
    std::vector<Tick> ticks;
    // At most a tenth of the step that fits: too many ticks for sure.
    const int first = static_cast<int>(std::floor(
                          std::log10((high - low) / static_cast<double>(std::max<size_t>(most, 1))))) -
                      1;
    for (int power = first; ticks.empty() && power < first + 4; ++power) {
        for (const int digit : STEPS) {
            // A power of ten below one is no exact number, its inverse is.
            const double unit = std::pow(10.0, std::abs(power));
            const double step = power < 0 ? digit / unit : digit * unit;
            const double from = std::ceil(low / step - HAIR);
            const double to = std::floor(high / step + HAIR);
            if (to - from + 1.0 > static_cast<double>(most)) {
                continue;
            }
            const auto count = static_cast<size_t>(std::max(to - from + 1.0, 0.0));
            for (size_t k = 0; k < count; ++k) {
                const double i = from + static_cast<double>(k);
                // Adding zero turns -0 into 0.
                const double value = (power < 0 ? i * digit / unit : i * step) + 0.0;
                ticks.push_back({value, fixedText(value, std::max(-power, 0))});
            }
            return ticks;
        }
    }
    return ticks;
}

}  // namespace Tool
