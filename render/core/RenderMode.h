#pragma once

namespace Render {

/// What decides a point's colour. The shaders compare against these numbers.
enum class RenderMode : int {
    Default = 0,            ///< the cloud's own colour, or its intensity
    TomographicDark = 1,    ///< tomographic view with dark contours
    TomographicBright = 2,  ///< tomographic view with bright contours
    Normal = 3,             ///< surface normal
    PlaneDistance = 4,      ///< distance to the colorization plane
    Intensity = 5,          ///< intensity
    UniformColor = 6,       ///< one colour for the whole cloud
    MeshDistance = 7        ///< distance to the colorization mesh
};

}  // namespace Render
