/// The colours that values are shown in.
#pragma once

#include <array>

namespace insolate::study {

/// Red, green and blue as sRGB, 0..1 each.
struct Color {
    double red = 0.0;
    double green = 0.0;
    double blue = 0.0;
};

/// The sRGB colour of CIE L*, C*ab, hab (degrees), D65 white, clipped to what sRGB can show.
Color colorOfLightnessChromaHue(double lightness, double chroma, double hue);

enum class ColorScheme {
    /// Dark blue over red to light yellow. Equal steps of value are equal steps of lightness L*, so
    /// that the picture reads the same in grey and to a colour-blind eye; hue runs alongside.
    sequential,
    /// For differences: blue below the middle, near white in it, orange above; lightness falls
    /// evenly to both sides. Blue and orange stay apart for every common colour blindness.
    diverging
};

class ColorMap {
public:
    explicit ColorMap(ColorScheme scheme = ColorScheme::sequential);
    /// The colour of a value within 0..1; grey for NaN, the end colours outside.
    [[nodiscard]] const Color& operator()(double value) const;

private:
    static constexpr int count = 256;
    std::array<Color, count> m_colors;
    Color m_noData = {0.62, 0.62, 0.62};
};

} // namespace insolate::study
