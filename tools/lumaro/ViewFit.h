#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>

namespace Tool {

/// Where a camera stands that looks along `forward` with its head towards `up` (both unit length and
/// perpendicular), so that the whole box fits into the picture with a small margin, in its middle and as
/// large as it can be. `tanHalfFov` belongs to the vertical angle, `aspect` is width by height. At least 1e-3
/// before the box's centre.
Math::Point<double, 3> fittedEye(const Math::NBoundingBox<double, 3>& box,
                                 const Math::Point<double, 3>& forward, const Math::Point<double, 3>& up,
                                 double tanHalfFov, double aspect);

/// The height of an orthographic picture that shows the whole box from its centre, likewise.
double fittedHeight(const Math::NBoundingBox<double, 3>& box, const Math::Point<double, 3>& forward,
                    const Math::Point<double, 3>& up, double aspect);

}  // namespace Tool
