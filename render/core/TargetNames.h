#pragma once

#include <string>

/// Internal: the names of a renderer's targets in its passes, as strings, so that no frame makes any.
namespace Render::TargetNames {

inline const std::string color = "color";
inline const std::string worldPosition = "worldPosition";
inline const std::string exactWorldPosition = "exactWorldPosition";

}  // namespace Render::TargetNames
