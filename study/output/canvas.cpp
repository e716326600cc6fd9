#include "study/output/canvas.h"

#include "study/output/summary.h"
#include "study/output/text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <new>
#include <vector>

namespace insolate::study {

namespace {

constexpr Color ink = {0.13, 0.14, 0.16};
constexpr Color paleInk = {0.38, 0.40, 0.43};

std::string withSuperscript(std::string unit) {
    for (std::size_t at = unit.find("m2"); at != std::string::npos; at = unit.find("m2", at)) {
        unit.replace(at, 2, "m²");
    }
    return unit;
}

/// 1, 2 or 5 times a power of ten, so that about `count` steps fill the range.
double roundStep(double range, int count) {
    const double raw = range / count;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    const double lead = raw / power;
    return power * (lead < 1.5 ? 1.0 : lead < 3.5 ? 2.0 : lead < 7.5 ? 5.0 : 10.0);
}

/// The value with as many decimals as a step of this size needs, and thousands set apart.
std::string numberText(double value, double step) {
    const int decimals = std::clamp(static_cast<int>(std::ceil(-std::log10(step) - 1.0e-9)), 0, 9);
    char digits[64];
    std::snprintf(digits, sizeof digits, "%.*f", decimals, value);
    std::string text = digits;
    if (text.find_first_not_of("-0.") == std::string::npos && text.front() == '-') {
        text.erase(0, 1); // minus zero
    }
    const std::size_t point = std::min(text.find('.'), text.size());
    const std::size_t start = text.front() == '-' ? 1 : 0;
    for (std::size_t at = point; at > start + 3; at -= 3) {
        text.insert(at - 3, "\u2009"); // thin space
    }
    return text;
}

std::vector<std::string> wordsOf(const std::string& text) {
    std::vector<std::string> words(1);
    for (const char c : text) {
        if (c == ' ' || c == '\n' || c == '\t') {
            words.emplace_back();
        } else {
            words.back() += c;
        }
    }
    std::erase(words, std::string());
    return words;
}

/// Without the last character, however many bytes that has.
void removeLastCharacter(std::string& text) {
    while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0U) == 0x80U) {
        text.pop_back();
    }
    if (!text.empty()) {
        text.pop_back();
    }
}

/// Exceptions must not pass through the C library, so one is kept until the call has returned.
struct PngSink {
    OutputFile& out;
    std::exception_ptr failure;
};

cairo_status_t writePart(void* closure, const unsigned char* data, unsigned int size) {
    auto& sink = *static_cast<PngSink*>(closure);
    try {
        sink.out.write(data, size);
        return CAIRO_STATUS_SUCCESS;
    } catch (...) {
        sink.failure = std::current_exception();
        return CAIRO_STATUS_WRITE_ERROR;
    }
}

} // namespace

ColorScale scaleOf(const ResultColumn& column, std::optional<double> lowest,
                   std::optional<double> highest, std::span<const float> weights) {
    const ColumnRange range = rangeOf(column.values, weights);
    ColorScale scale;
    scale.hasValues = range.count > 0;
    const double low = lowest.value_or(range.lowest);
    const double high = highest.value_or(range.highest);
    std::string unit = column.unit;
    if (unit.starts_with("Wh")) {
        const double size = std::max(std::abs(low), std::abs(high));
        if (size >= 1.0e7) {
            scale.factor = 1.0e-6;
            unit.insert(0, "M");
        } else if (size >= 1.0e4) {
            scale.factor = 1.0e-3;
            unit.insert(0, "k");
        }
    }
    scale.unit = withSuperscript(unit);
    scale.lowest = low * scale.factor;
    scale.highest = high * scale.factor;
    scale.mean = range.mean * scale.factor;
    const double least = std::max(std::abs(scale.lowest) * 1.0e-6, 1.0e-12);
    if (!(scale.highest - scale.lowest > least)) {
        // One value everywhere: shown in the middle of a scale of some width.
        const double margin = std::max(std::abs(scale.lowest) * 0.05, 0.5);
        scale.lowest -= margin;
        scale.highest = scale.lowest + 2.0 * margin;
    }
    return scale;
}

Canvas::Canvas(int width, int height)
    : m_width(width), m_height(height), m_unit(std::min(width / 1600.0, height / 1000.0)),
      m_surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height)),
      m_context(cairo_create(m_surface.get())) {
    if (cairo_status(m_context.get()) != CAIRO_STATUS_SUCCESS) {
        throw std::bad_alloc();
    }
    setColor({1.0, 1.0, 1.0});
    cairo_paint(context());
    // The same bytes on every machine with the same fonts, whatever its screen.
    cairo_font_options_t* const options = cairo_font_options_create();
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    cairo_set_font_options(context(), options);
    cairo_font_options_destroy(options);
}

void Canvas::setColor(const Color& color, double opacity) const {
    cairo_set_source_rgba(context(), color.red, color.green, color.blue, opacity);
}

void Canvas::selectFont(double size, bool bold) const {
    cairo_select_font_face(context(), "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(context(), size);
}

double Canvas::textWidth(std::string_view text, double size, bool bold) const {
    selectFont(size, bold);
    cairo_text_extents_t extents;
    cairo_text_extents(context(), validText(text).c_str(), &extents);
    return extents.x_advance;
}

void Canvas::text(double x, double y, std::string_view text, double size, Align align, bool bold,
                  double maxWidth) const {
    std::string shown = validText(text);
    double width = textWidth(shown, size, bold);
    if (width > maxWidth) {
        size *= std::max(0.7, maxWidth / width);
        width = textWidth(shown, size, bold);
    }
    if (width > maxWidth) {
        std::string cut = shown;
        while (!cut.empty() && width > maxWidth) {
            removeLastCharacter(cut);
            shown = cut + "…";
            width = textWidth(shown, size, bold);
        }
    }
    selectFont(size, bold);
    const double shift = align == Align::left ? 0.0 : align == Align::center ? 0.5 : 1.0;
    cairo_move_to(context(), x - shift * width, y);
    cairo_show_text(context(), shown.c_str());
    cairo_new_path(context()); // the text leaves a current point that a later line would start from
}

void Canvas::outlinedText(double x, double y, std::string_view text, double size,
                          Align align) const {
    const double width = textWidth(text, size);
    const double shift = align == Align::left ? 0.0 : align == Align::center ? 0.5 : 1.0;
    cairo_move_to(context(), x - shift * width, y);
    cairo_text_path(context(), validText(text).c_str());
    setColor(ink, 0.85);
    cairo_set_line_width(context(), 0.24 * size);
    cairo_set_line_join(context(), CAIRO_LINE_JOIN_ROUND);
    cairo_stroke_preserve(context());
    cairo_set_line_join(context(), CAIRO_LINE_JOIN_MITER);
    setColor({1.0, 1.0, 1.0});
    cairo_fill(context());
}

double Canvas::heading(const std::string& title, const std::string& subtitle) const {
    const double margin = 40.0 * m_unit;
    const double available = m_width - 2.0 * margin;
    double y = 62.0 * m_unit;
    setColor(ink);
    text(margin, y, title, 34.0 * m_unit, Align::left, true, available);

    const double size = 19.0 * m_unit;
    std::vector<std::string> lines;
    for (const std::string& word : wordsOf(validText(subtitle))) {
        const bool fits = !lines.empty() && textWidth(lines.back() + " " + word, size) <= available;
        if (lines.empty() || (!fits && lines.size() < 3)) {
            lines.push_back(word);
        } else {
            lines.back() += " " + word; // the third line is cut where it is drawn
        }
    }
    setColor(paleInk);
    for (const std::string& line : lines) {
        y += 30.0 * m_unit;
        text(margin, y, line, size, Align::left, false, available);
    }
    return y + 18.0 * m_unit;
}

void Canvas::colorBar(const Rectangle& place, const ColorScale& scale,
                      const ColorMap& colors) const {
    // On whole pixels, for the rows of colour to meet without seams.
    const Rectangle bar{std::round(place.x), std::round(place.y), std::round(place.width),
                        std::round(place.height)};
    const double size = 18.0 * m_unit;
    cairo_t* const cr = context();
    setColor(ink);
    text(bar.x, bar.y - 16.0 * m_unit, scale.unit, 20.0 * m_unit, Align::left, true,
         m_width - bar.x);
    if (!scale.hasValues) {
        setColor(colors(std::nan("")));
        cairo_rectangle(cr, bar.x, bar.y, bar.width, bar.height);
        cairo_fill(cr);
        setColor(ink);
        text(bar.x, bar.y + bar.height + 24.0 * m_unit, "no values", size);
        return;
    }
    const int rows = static_cast<int>(bar.height);
    for (int row = 0; row < rows; ++row) {
        setColor(colors(1.0 - (row + 0.5) / rows));
        cairo_rectangle(cr, bar.x, bar.y + row, bar.width, 1.0);
        cairo_fill(cr);
    }
    setColor(ink);
    cairo_set_line_width(cr, std::max(1.0, 1.2 * m_unit));
    cairo_rectangle(cr, bar.x, bar.y, bar.width, bar.height);
    cairo_stroke(cr);

    const double range = scale.highest - scale.lowest;
    const double step = roundStep(range, 6);
    const auto heightOf = [&](double value) {
        return bar.y + bar.height * (scale.highest - value) / range;
    };
    const auto tick = [&](double value, double fineness, bool bold) {
        const double y = heightOf(value);
        cairo_move_to(cr, bar.x + bar.width, y);
        cairo_rel_line_to(cr, 7.0 * m_unit, 0.0);
        cairo_stroke(cr);
        text(bar.x + bar.width + 12.0 * m_unit, y + 0.36 * size, numberText(value, fineness), size,
             Align::left, bold);
    };
    // The ends are what people quote, so they are given more exactly than the round numbers.
    tick(scale.lowest, step * 0.1, true);
    tick(scale.highest, step * 0.1, true);
    for (double k = std::ceil(scale.lowest / step); k * step < scale.highest; k += 1.0) {
        const double y = heightOf(k * step);
        if (y > bar.y + 1.3 * size && y < bar.y + bar.height - 1.3 * size) {
            tick(k * step, step, false);
        }
    }
    if (scale.mean > scale.lowest && scale.mean < scale.highest) {
        const double y = heightOf(scale.mean);
        cairo_move_to(cr, bar.x - 2.0 * m_unit, y);
        cairo_rel_line_to(cr, -11.0 * m_unit, -6.0 * m_unit);
        cairo_rel_line_to(cr, 0.0, 12.0 * m_unit);
        cairo_close_path(cr);
        cairo_fill(cr);
        text(bar.x - 18.0 * m_unit, y + 0.36 * size, "mean", 16.0 * m_unit, Align::right);
    }
}

void Canvas::pixels(int x, int y, int height,
                    const std::function<void(std::span<std::uint32_t>, std::size_t)>& fill) const {
    cairo_surface_flush(m_surface.get());
    const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(m_surface.get())) /
                        sizeof(std::uint32_t);
    // Rows of a 32-bit surface are aligned for their pixels.
    auto* const first = static_cast<std::uint32_t*>(
        static_cast<void*>(cairo_image_surface_get_data(m_surface.get())));
    const std::size_t start = static_cast<std::size_t>(y) * stride + static_cast<std::size_t>(x);
    const std::size_t end = static_cast<std::size_t>(y + height) * stride;
    fill(std::span<std::uint32_t>(first + start, end - start), stride);
    cairo_surface_mark_dirty(m_surface.get());
}

void Canvas::writePng(OutputFile& out) const {
    PngSink sink{out, nullptr};
    const cairo_status_t status =
        cairo_surface_write_to_png_stream(m_surface.get(), writePart, &sink);
    if (sink.failure) {
        std::rethrow_exception(sink.failure);
    }
    if (status != CAIRO_STATUS_SUCCESS || cairo_status(context()) != CAIRO_STATUS_SUCCESS) {
        throw OutputError(out.shownName() +
                          ": the picture could not be drawn: " + cairo_status_to_string(status));
    }
}

} // namespace insolate::study
