#pragma once

#include <tools/lumaro/SiteGround.h>
#include <tools/lumaro/SiteShapes.h>

#include <vector>

namespace Tool {

/// The sample site: a village street with a church, houses, an office, a park with a pond, a wood and a
/// field.
struct SitePlan {
    SiteGround ground;
    std::vector<SiteObject> objects;

    /// Always the same site.
    static SitePlan build();
};

}  // namespace Tool
