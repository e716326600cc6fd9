#include "study/output/canvas.h"

#include "study/output/summary.h"
#include "study/output/text.h"
#include "study/support/errors.h"
#include "study/support/file_name.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <new>
#include <vector>

#include <cairo-pdf.h>
#include <cairo-svg.h>

namespace insolate::study {

using namespace std::string_view_literals;

/// Where cairo's bytes go. Exceptions must not pass through the C library, so one is kept until the
/// call has returned.
struct Canvas::Sink {
    OutputFile& out;
    PictureFormat format;
    std::stop_token stop;
    std::size_t written = 0;
    bool closed = false;
    std::exception_ptr failure = nullptr;

    /// Puts our mark where the format has room for it: behind the first chunk of a PNG, behind the
    /// first line of an SVG. A PDF holds it in its document information.
    void write(std::string_view bytes);
};

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

/// The longest beginning of at most `size` bytes that does not split a character.
std::string_view beginningOf(std::string_view text, std::size_t size) {
    if (text.size() <= size) {
        return text;
    }
    while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0U) == 0x80U) {
        --size;
    }
    return text.substr(0, size);
}

/// More bytes of text than a line of any picture shows; measuring all of a text of megabytes would
/// take minutes.
constexpr std::size_t longestLine = 1000;

constexpr std::string_view pngMark = "Software\0insolate"sv;
constexpr std::string_view svgMark = "<!-- made by insolate -->\n";
constexpr std::string_view pdfMark = "insolate";

std::string bigEndian(std::uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes += static_cast<char>(value >> shift & 0xFFU);
    }
    return bytes;
}

/// A text chunk of PNG (W3C 2003, 11.3.4.3), its CRC after annex D.
std::string pngTextChunk() {
    const std::string content = "tEXt" + std::string(pngMark);
    std::uint32_t crc = 0xFFFFFFFFU;
    for (const char c : content) {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1U) != 0 ? 0xEDB88320U ^ crc >> 1U : crc >> 1U;
        }
    }
    return bigEndian(static_cast<std::uint32_t>(pngMark.size())) + content + bigEndian(~crc);
}

constexpr std::size_t pngHeaderSize = 33; // signature and IHDR chunk

} // namespace

double ColorScale::placeOfShown(double value) const {
    if (scheme == ColorScheme::diverging) {
        return 0.5 + 0.5 * value / std::max(std::abs(lowest), std::abs(highest));
    }
    return (value - lowest) / (highest - lowest);
}

ColorScale scaleOf(const ResultColumn& column, const ColorScaleOptions& options) {
    const ColumnRange range = rangeOf(column.values, options.weights);
    ColorScale scale;
    scale.scheme = options.scheme;
    scale.hasValues = range.count > 0;
    const bool diverging = options.scheme == ColorScheme::diverging;
    const double reach = std::max(std::abs(range.lowest), std::abs(range.highest));
    const double low = options.lowest.value_or(diverging ? -reach : range.lowest);
    const double high = options.highest.value_or(diverging ? reach : range.highest);
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
        const double value = scale.lowest;
        const double margin = std::max(std::abs(value) * 0.05, 0.5);
        // What has no negative values has no scale below zero.
        scale.lowest = value >= 0.0 ? std::max(value - margin, 0.0) : value - margin;
        scale.highest = std::max(value, margin) + margin;
    }
    return scale;
}

PictureFormat pictureFormat(const std::filesystem::path& file) {
    if (hasExtension(file, {".png"})) {
        return PictureFormat::png;
    }
    if (hasExtension(file, {".svg"})) {
        return PictureFormat::svg;
    }
    if (hasExtension(file, {".pdf"})) {
        return PictureFormat::pdf;
    }
    throw UsageError(place(file) +
                     ": no picture has this ending; give a name that ends in .png, .svg or .pdf");
}

void Canvas::Sink::write(std::string_view bytes) {
    std::string_view mark;
    std::size_t before = bytes.size(); // how many of these bytes come before the mark
    std::string chunk;
    if (format == PictureFormat::png && written < pngHeaderSize &&
        written + bytes.size() >= pngHeaderSize) {
        before = pngHeaderSize - written;
        chunk = pngTextChunk();
        mark = chunk;
    } else if (format == PictureFormat::svg && written == 0) {
        before = std::min(bytes.find('\n'), bytes.size() - 1) + 1;
        mark = svgMark;
    }
    out.write(bytes.substr(0, before));
    out.write(mark);
    out.write(bytes.substr(before));
    written += bytes.size();
}

cairo_status_t Canvas::writePart(void* sink, const unsigned char* data, unsigned int size) {
    auto& to = *static_cast<Sink*>(sink);
    if (to.closed || to.failure) {
        return CAIRO_STATUS_WRITE_ERROR;
    }
    try {
        throwIfStopped(to.stop);
        if (size > 0) {
            to.write({reinterpret_cast<const char*>(data), size});
        }
        return CAIRO_STATUS_SUCCESS;
    } catch (...) {
        to.failure = std::current_exception();
        return CAIRO_STATUS_WRITE_ERROR;
    }
}

Canvas::Canvas(OutputFile& out, PictureFormat format, int width, int height,
               const std::stop_token& stop)
    : m_sink(new Sink{.out = out, .format = format, .stop = stop}), m_format(format),
      m_width(width), m_height(height), m_unit(std::min(width / 1600.0, height / 1000.0)) {
    constexpr double pointsPerPixel = 0.5;
    switch (format) {
    case PictureFormat::png:
        m_surface.reset(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height));
        break;
    case PictureFormat::svg:
        m_surface.reset(
            cairo_svg_surface_create_for_stream(writePart, m_sink.get(), width, height));
        cairo_svg_surface_set_document_unit(m_surface.get(), CAIRO_SVG_UNIT_PX);
        break;
    case PictureFormat::pdf:
        m_surface.reset(cairo_pdf_surface_create_for_stream(
            writePart, m_sink.get(), pointsPerPixel * width, pointsPerPixel * height));
        cairo_pdf_surface_set_metadata(m_surface.get(), CAIRO_PDF_METADATA_CREATOR, pdfMark.data());
        // The same results make the same bytes, whenever.
        cairo_pdf_surface_set_metadata(m_surface.get(), CAIRO_PDF_METADATA_CREATE_DATE, "");
        break;
    }
    m_context.reset(cairo_create(m_surface.get()));
    if (cairo_status(m_context.get()) != CAIRO_STATUS_SUCCESS) {
        throw std::bad_alloc();
    }
    if (format == PictureFormat::pdf) {
        cairo_scale(context(), pointsPerPixel, pointsPerPixel);
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

Canvas::~Canvas() {
    m_sink->closed = true; // of a sheet that was given up nothing more is written
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
    cairo_text_extents(context(), validText(beginningOf(text, longestLine)).c_str(), &extents);
    return extents.x_advance;
}

void Canvas::text(double x, double y, std::string_view text, double size, Align align, bool bold,
                  double maxWidth) const {
    std::string shown = validText(beginningOf(text, longestLine));
    const auto cutTo = [whole = shown](std::size_t bytes) {
        return std::string(beginningOf(whole, bytes)) + "…";
    };
    if (text.size() > longestLine) {
        shown = cutTo(shown.size());
    }
    double width = textWidth(shown, size, bold);
    if (width > maxWidth) {
        size *= std::max(0.7, maxWidth / width);
        width = textWidth(shown, size, bold);
    }
    if (width > maxWidth) {
        std::size_t fits = 0;
        for (std::size_t tooLong = shown.size(); fits + 1 < tooLong;) {
            const std::size_t middle = (fits + tooLong) / 2;
            (textWidth(cutTo(middle), size, bold) <= maxWidth ? fits : tooLong) = middle;
        }
        shown = cutTo(fits);
        width = textWidth(shown, size, bold);
    }
    selectFont(size, bold);
    const double shift = align == Align::left ? 0.0 : align == Align::center ? 0.5 : 1.0;
    cairo_move_to(context(), x - shift * width, y);
    cairo_show_text(context(), shown.c_str());
    cairo_new_path(context()); // the text leaves a current point that a later line would start from
}

void Canvas::outlinedText(double x, double y, std::string_view text, double size,
                          Align align) const {
    text = beginningOf(text, longestLine);
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
    constexpr std::size_t mostLines = 3;
    const std::string_view shown = beginningOf(subtitle, mostLines * longestLine);
    for (const std::string& word : wordsOf(validText(shown))) {
        const bool fits = !lines.empty() && textWidth(lines.back() + " " + word, size) <= available;
        if (lines.empty() || (!fits && lines.size() < mostLines)) {
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
        const double value = // of the shown unit, downwards from the highest
            scale.highest - (row + 0.5) / rows * (scale.highest - scale.lowest);
        setColor(colors(scale.placeOfShown(value)));
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
    const auto markAt = [&](double y) {
        cairo_move_to(cr, bar.x - 2.0 * m_unit, y);
        cairo_rel_line_to(cr, -11.0 * m_unit, -6.0 * m_unit);
        cairo_rel_line_to(cr, 0.0, 12.0 * m_unit);
        cairo_close_path(cr);
        cairo_fill(cr);
    };
    // Below the bar, the mark repeated beside it: among the other numbers it would hide one.
    const double meanLine = bar.y + bar.height + 40.0 * m_unit;
    text(bar.x + 6.0 * m_unit, meanLine, "mean " + numberText(scale.mean, step * 0.1), size,
         Align::left, true, m_width - bar.x - 14.0 * m_unit);
    markAt(meanLine - 0.36 * size);
    if (scale.mean > scale.lowest && scale.mean < scale.highest) {
        markAt(heightOf(scale.mean));
    }
}

void Canvas::image(int x, int y, int width, int height, int detail,
                   const std::function<void(std::span<std::uint32_t>, std::size_t)>& fill) const {
    const std::unique_ptr<cairo_surface_t, Release> picture(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, width * detail, height * detail));
    if (cairo_surface_status(picture.get()) != CAIRO_STATUS_SUCCESS) {
        throw std::bad_alloc();
    }
    const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(picture.get())) /
                        sizeof(std::uint32_t);
    // Rows of a 32-bit surface are aligned for their pixels.
    auto* const first = static_cast<std::uint32_t*>(
        static_cast<void*>(cairo_image_surface_get_data(picture.get())));
    fill({first, stride * static_cast<std::size_t>(height * detail)}, stride);
    cairo_surface_mark_dirty(picture.get());
    cairo_t* const cr = context();
    cairo_save(cr);
    cairo_translate(cr, x, y);
    cairo_scale(cr, 1.0 / detail, 1.0 / detail);
    cairo_set_source_surface(cr, picture.get(), 0.0, 0.0);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_NEAREST);
    cairo_rectangle(cr, 0.0, 0.0, width * detail, height * detail);
    cairo_fill(cr);
    cairo_restore(cr);
}

void Canvas::finish() {
    cairo_status_t status = CAIRO_STATUS_SUCCESS;
    if (m_format == PictureFormat::png) {
        status = cairo_surface_write_to_png_stream(m_surface.get(), writePart, m_sink.get());
    } else {
        cairo_surface_finish(m_surface.get());
        status = cairo_surface_status(m_surface.get());
    }
    if (m_sink->failure) {
        std::rethrow_exception(m_sink->failure);
    }
    if (status == CAIRO_STATUS_SUCCESS && m_format == PictureFormat::png) {
        status = cairo_status(context());
    }
    if (status != CAIRO_STATUS_SUCCESS) {
        throw OutputError(m_sink->out.shownName() +
                          ": the picture could not be drawn: " + cairo_status_to_string(status));
    }
}

bool isOurPicture(const std::filesystem::path& file) {
    const std::string begin = fileBeginning(file, 256);
    if (begin.starts_with("\x89PNG")) {
        return begin.find(pngTextChunk()) == pngHeaderSize;
    }
    if (begin.starts_with("<?xml")) {
        return begin.find(svgMark.substr(0, svgMark.size() - 1)) != std::string::npos;
    }
    return begin.starts_with("%PDF-") &&
           fileEnd(file, 4096).find("/Creator (insolate)") != std::string::npos;
}

} // namespace insolate::study
