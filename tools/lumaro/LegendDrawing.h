#pragma once

#include <graphics/ColorImage.h>
#include <math/Color.h>
#include <math/Spectrum.h>
#include <tools/lumaro/Arguments.h>

namespace Tool {

struct Legend {
    Math::Spectrum::SpectrumNames spectrum = Math::Spectrum::Turbo;
    double low = 0.0;
    double high = 1.0;
    Math::Spectrum::Limits limits;
    PictureSize size{160, 480};
    Math::Color background = Math::Color::white();
};

/// An upright bar of the spectrum's colours, high values on top, with round numbers beside it. Throws
/// std::runtime_error when the system has no font.
Graphics::ColorImage drawLegend(const Legend& legend);

}  // namespace Tool
