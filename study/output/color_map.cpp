#include "study/output/color_map.h"

#include "study/support/numbers.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace insolate::study {

namespace {

/// CIE 15:2004, eq. 8.3 to 8.11 backwards, to linear sRGB by the matrix of IEC 61966-2-1; not
/// clipped, so that it also shows whether the colour can be shown.
Color linearOf(double lightness, double chroma, double hue) {
    const double angle = hue * radiansPerDegree;
    const double fy = (lightness + 16.0) / 116.0;
    const double fx = fy + chroma * std::cos(angle) / 500.0;
    const double fz = fy - chroma * std::sin(angle) / 200.0;
    const auto inverse = [](double f) {
        constexpr double delta = 6.0 / 29.0;
        return f > delta ? f * f * f : 3.0 * delta * delta * (f - 4.0 / 29.0);
    };
    const double x = 0.95047 * inverse(fx);
    const double y = inverse(fy);
    const double z = 1.08883 * inverse(fz);
    return {3.2404542 * x - 1.5371385 * y - 0.4985314 * z,
            -0.9692660 * x + 1.8760108 * y + 0.0415560 * z,
            0.0556434 * x - 0.2040259 * y + 1.0572252 * z};
}

bool canBeShown(const Color& c) {
    const auto inside = [](double v) { return v >= 0.0 && v <= 1.0; };
    return inside(c.red) && inside(c.green) && inside(c.blue);
}

double largestChroma(double lightness, double hue) {
    double low = 0.0;
    double high = 150.0;
    for (int step = 0; step < 40; ++step) {
        const double middle = 0.5 * (low + high);
        (canBeShown(linearOf(lightness, middle, hue)) ? low : high) = middle;
    }
    return low;
}

} // namespace

Color colorOfLightnessChromaHue(double lightness, double chroma, double hue) {
    const auto encode = [](double v) {
        v = std::clamp(v, 0.0, 1.0);
        return v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1.0 / 2.4) - 0.055;
    };
    const Color linear = linearOf(lightness, chroma, hue);
    return {encode(linear.red), encode(linear.green), encode(linear.blue)};
}

ColorMap::ColorMap(ColorScheme scheme) : m_colors() {
    const bool diverging = scheme == ColorScheme::diverging;
    const auto placeOf = [](int i) { return i / (count - 1.0); };
    const auto lightnessAt = [&](double t) {
        return diverging ? 95.0 - 110.0 * std::abs(t - 0.5) : 14.0 + 80.0 * t;
    };
    const auto hueAt = [&](double t) {
        if (diverging) {
            return t < 0.5 ? 270.0 : 55.0; // blue, orange
        }
        return 288.0 + 168.0 * t; // blue, violet, red, yellow
    };
    std::array<double, count> rim = {};
    for (int i = 0; i < count; ++i) {
        const double t = placeOf(i);
        const double own = std::min(0.94 * largestChroma(lightnessAt(t), hueAt(t)), 76.0);
        // The middle of a diverging scale is grey, so that its two hues meet.
        rim[static_cast<std::size_t>(i)] =
            diverging ? std::min(own, 160.0 * std::abs(t - 0.5)) : own;
    }
    for (int i = 0; i < count; ++i) {
        // The gamut's rim has corners, which would be seen as bands; a running mean takes them off.
        const int reach = diverging ? 4 : 20;
        double chroma = 0.0;
        for (int k = i - reach; k <= i + reach; ++k) {
            chroma += rim[static_cast<std::size_t>(std::clamp(k, 0, count - 1))] / (2 * reach + 1);
        }
        const double t = placeOf(i);
        m_colors[static_cast<std::size_t>(i)] =
            colorOfLightnessChromaHue(lightnessAt(t), chroma, hueAt(t));
    }
}

const Color& ColorMap::operator()(double value) const {
    if (std::isnan(value)) {
        return m_noData;
    }
    const double place = std::clamp(value, 0.0, 1.0) * (count - 1);
    return m_colors[static_cast<std::size_t>(std::lround(place))];
}

} // namespace insolate::study
