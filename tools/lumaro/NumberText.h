#pragma once

#include <string>

namespace Tool {

// Numbers as text, with a point and without grouping whatever the locale is.

/// As few digits as it takes to read back the same number; with an exponent only where there would be many
/// zeros.
std::string shortText(double value);
std::string fixedText(double value, int decimals);

/// The number that fixedText() shows.
double rounded(double value, int decimals);
/// The double with the same shortest text: 0.1 for 0.1f.
double widened(float value);

}  // namespace Tool
