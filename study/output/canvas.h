/// What the pictures have in common: text, colour bar, and the way into a PNG, SVG or PDF file.
#pragma once

#include "study/files/output_folder.h"
#include "study/output/color_map.h"
#include "study/output/picture_format.h"
#include "study/results/result_column.h"
#include "study/support/numbers.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>

#include <cairo.h>

namespace insolate::study {

/// How a column's values are shown: in which unit, and between which ends the colours run.
struct ColorScale {
    double factor = 1.0; ///< shown value / value of the column
    std::string unit;    ///< with typographic signs: "kWh/m²"
    double lowest = 0.0; ///< in the shown unit, below `highest`
    double highest = 1.0;
    double mean = 0.0; ///< in the shown unit
    bool hasValues = false;
    ColorScheme scheme = ColorScheme::sequential;

    /// The place of a shown value on the colour map: 0..1 between the ends or, of differences, with
    /// zero at 0.5.
    [[nodiscard]] double placeOfShown(double value) const;
    /// The same of a value of the column.
    [[nodiscard]] double placeOf(double value) const { return placeOfShown(value * factor); }
};

struct ColorScaleOptions {
    /// Ends in the column's unit; absent: the column's own, of differences the same to both sides.
    std::optional<double> lowest = {};
    std::optional<double> highest = {};
    std::span<const float> weights = {}; ///< of the mean, one for each value; empty: all alike
    ColorScheme scheme = ColorScheme::sequential;
};
/// Large Wh become kWh or MWh.
ColorScale scaleOf(const ResultColumn& column, const ColorScaleOptions& options = {});

enum class Align { left, center, right };

struct Rectangle {
    double x = 0.0;
    double y = 0.0;
    double width = 0.0;
    double height = 0.0;
};

/// A sheet that becomes a file. Every file says within that insolate made it, for isOurPicture().
class Canvas {
public:
    /// @param width, height in pixels; an SVG has as many of its own, a PDF as many half points, so
    ///        that 1600 x 1000 fit on a page of A4
    /// @param stop is asked while the file is written
    Canvas(OutputFile& out, PictureFormat format, int width, int height,
           const std::stop_token& stop = {});
    ~Canvas();
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

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

    /// Upright bar with its ends, round numbers between them, the unit above, the mean's mark
    /// beside it and its number below.
    void colorBar(const Rectangle& place, const ColorScale& scale, const ColorMap& colors) const;

    /// Fills whole pixels of the sheet with an image of `detail` x `detail` pixels for each of
    /// them.
    /// @param fill receives the image's pixels and its row length in pixels
    void image(int x, int y, int width, int height, int detail,
               const std::function<void(std::span<std::uint32_t>, std::size_t)>& fill) const;
    /// Pixels of an image that show as one pixel of the sheet: more where the sheet can be
    /// enlarged.
    [[nodiscard]] int imageDetail() const { return m_format == PictureFormat::png ? 1 : 2; }

    /// Writes the file.
    /// @throws OutputError, Stopped
    void finish();

private:
    struct Release {
        void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
        void operator()(cairo_t* context) const { cairo_destroy(context); }
    };
    struct Sink;
    static cairo_status_t writePart(void* sink, const unsigned char* data, unsigned int size);
    void selectFont(double size, bool bold) const;

    std::unique_ptr<Sink> m_sink; // before the surface, which writes into it
    PictureFormat m_format;
    int m_width;
    int m_height;
    double m_unit;
    std::unique_ptr<cairo_surface_t, Release> m_surface;
    std::unique_ptr<cairo_t, Release> m_context;
};

} // namespace insolate::study
