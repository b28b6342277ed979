#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Tool {

struct Tick {
    double value = 0.0;
    std::string label;
};

/// Round numbers from `low` to `high`, steps of 1, 2 or 5 times a power of ten; as many as there can be, but
/// no more than `most`, and all labels with the same decimals. `low` is below `high`.
std::vector<Tick> roundTicks(double low, double high, size_t most);

}  // namespace Tool
