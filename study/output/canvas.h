/// What the pictures have in common: text, colour bar, and the way into a PNG file.
#pragma once

#include "study/files/output_folder.h"
#include "study/output/color_map.h"
#include "study/results/result_column.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <numbers>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <cairo.h>

namespace insolate::study {

inline constexpr double radiansPerDegree = std::numbers::pi / 180.0;

/// How a column's values are shown: in which unit, and between which ends the colours run.
struct ColorScale {
    double factor = 1.0; ///< shown value / value of the column
    std::string unit;    ///< with typographic signs: "kWh/m²"
    double lowest = 0.0; ///< in the shown unit, below `highest`
    double highest = 1.0;
    double mean = 0.0;
    bool hasValues = false;

    /// The place of a column's value on the scale, 0..1 between its ends.
    [[nodiscard]] double placeOf(double value) const {
        return (value * factor - lowest) / (highest - lowest);
    }
};
/// Ends that are not given are the column's own; large Wh become kWh or MWh.
/// @param weights of the mean, one for each value; empty: all alike
ColorScale scaleOf(const ResultColumn& column, std::optional<double> lowest = {},
                   std::optional<double> highest = {}, std::span<const float> weights = {});

enum class Align { left, center, right };

struct Rectangle {
    double x = 0.0;
    double y = 0.0;
    double width = 0.0;
    double height = 0.0;
};

class Canvas {
public:
    Canvas(int width, int height);

    [[nodiscard]] cairo_t* context() const { return m_context.get(); }
    [[nodiscard]] int width() const { return m_width; }
    [[nodiscard]] int height() const { return m_height; }
    /// Sizes in the pictures are multiples of this: 1 at 1600 x 1000 pixels.
    [[nodiscard]] double unit() const { return m_unit; }

    void setColor(const Color& color, double opacity = 1.0) const;
    /// One line with its baseline at y; shrunk, then cut with an ellipsis, to `maxWidth` pixels.
    void text(double x, double y, std::string_view text, double size, Align align = Align::left,
              bool bold = false, double maxWidth = 1.0e9) const;
    /// White, with a dark outline that makes it readable on any colour.
    void outlinedText(double x, double y, std::string_view text, double size,
                      Align align = Align::left) const;
    [[nodiscard]] double textWidth(std::string_view text, double size, bool bold = false) const;

    /// Title and, below it, the subtitle broken into at most three lines.
    /// @return y below the last line
    double heading(const std::string& title, const std::string& subtitle) const;

    /// Upright bar with its ends, round numbers between them, the unit above and the mean's mark.
    void colorBar(const Rectangle& place, const ColorScale& scale, const ColorMap& colors) const;

    /// Lets `fill` write the pixels of a rectangle: (pixels, row length in pixels).
    void pixels(int x, int y, int height,
                const std::function<void(std::span<std::uint32_t>, std::size_t)>& fill) const;

    void writePng(OutputFile& out) const;

private:
    struct Release {
        void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
        void operator()(cairo_t* context) const { cairo_destroy(context); }
    };
    void selectFont(double size, bool bold) const;

    int m_width;
    int m_height;
    double m_unit;
    std::unique_ptr<cairo_surface_t, Release> m_surface;
    std::unique_ptr<cairo_t, Release> m_context;
};

} // namespace insolate::study
