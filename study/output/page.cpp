#include "study/output/page.h"

#include "study/files/result_name.h"
#include "study/output/page_bytes.h"
#include "study/output/page_model.h"
#include "study/output/text.h"
#include "study/output/viewer_script.h"
#include "study/results/comparison.h"
#include "study/support/errors.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>

#include <fmt/format.h>
#include <insolate/insolate.h>
#include <insolate/version.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view beginning = "<!doctype html>\n<!-- insolate page -->\n";

/// The start of the page: refuses what cannot draw it, unpacks the script and runs it. The policy
/// allows no other host, whatever the results say.
constexpr std::string_view head = R"html(<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1, viewport-fit=cover">
<meta name="color-scheme" content="light dark">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; script-src 'unsafe-inline' blob:; style-src 'unsafe-inline'; img-src data: blob:; form-action 'none'; base-uri 'none'">
<title>Solar radiation</title>
<style>
html { background: #f6f5f2; color: #23262b; font: 15px/1.5 system-ui, sans-serif }
@media (prefers-color-scheme: dark) { html { background: #16181c; color: #e4e3df } }
body { margin: 0 }
#plain { max-width: 60rem; margin: 0 auto; padding: 2rem 1rem }
#plain img { max-width: 100%; border-radius: 6px }
.live #plain { display: none }
</style>
</head>
<body>
<main id="plain">
<p id="reason">This page draws its results with a script, which this browser has not run. The picture below shows them as they are.</p>
)html";

constexpr std::string_view bootstrap = R"html(<script>
(function () {
  "use strict";
  function refuse(text) { document.getElementById("reason").textContent = text; }
  var probe = document.createElement("canvas").getContext("webgl2");
  if (!probe) {
    return refuse("This page draws its results with WebGL 2, which this browser or machine does not offer. A current Firefox, Chrome, Edge or Safari with hardware acceleration does; the picture below shows the results as they are.");
  }
  var lose = probe.getExtension("WEBGL_lose_context");
  if (lose) { lose.loseContext(); }
  if (typeof DecompressionStream === "undefined") {
    return refuse("This browser is too old to unpack the page: it takes Chrome or Edge 80, Firefox 113 or Safari 16.4. The picture below shows the results as they are.");
  }
  window.insolateUnpack = function (id) {
    var text = atob(document.getElementById(id).textContent.trim());
    var bytes = new Uint8Array(text.length);
    for (var i = 0; i < text.length; ++i) { bytes[i] = text.charCodeAt(i); }
    return new Response(new Blob([bytes]).stream().pipeThrough(new DecompressionStream("deflate"))).arrayBuffer();
  };
  window.insolateRefuse = refuse;
  window.insolateUnpack("viewer").then(function (code) {
    var script = document.createElement("script");
    script.src = URL.createObjectURL(new Blob([code], { type: "text/javascript" }));
    script.onerror = function () { refuse("This browser has not run the page's script. The picture below shows the results as they are."); };
    document.body.appendChild(script);
  }).catch(function () { refuse("The page is damaged: its script cannot be unpacked. Ask for the file again."); });
})();
</script>
</body>
</html>
)html";

void append(Json& arrays, std::string& bytes, const char* name, const std::string& array) {
    arrays[name] = {bytes.size(), array.size()};
    bytes += array;
}

std::string floatBytes(const std::vector<float>& values) {
    static_assert(std::endian::native == std::endian::little, "browsers read the machine's order");
    std::string bytes(values.size() * sizeof(float), '\0');
    std::copy_n(reinterpret_cast<const char*>(values.data()), bytes.size(), bytes.begin());
    return bytes;
}

/// Declination and equation of time at 0:00 UTC of each day: between them the page goes in straight
/// lines, which is good to a thousandth of a degree.
void addSun(Json& record, Json& arrays, std::string& bytes, const PageSite& site) {
    const Site place = {site.latitude, site.longitude, site.timeZone, 0.0};
    std::vector<float> declinations;
    std::vector<float> equations;
    const double first = julianDay(site.year, 1, 1, 0.0);
    for (int day = -1; day <= 367; ++day) {
        const SunPosition sun = sunPosition(first + day, place);
        declinations.push_back(static_cast<float>(sun.declination * 180.0 / std::numbers::pi));
        equations.push_back(static_cast<float>(sun.equationOfTime));
    }
    append(arrays, bytes, "sunDeclination", floatBytes(declinations));
    append(arrays, bytes, "sunEquation", floatBytes(equations));
    record["site"] = {{"latitude", site.latitude},
                      {"longitude", site.longitude},
                      {"timeZone", site.timeZone},
                      {"year", site.year}};
}

/// How much of the results goes into the page.
struct Detail {
    int digits = 5;      ///< of the first column
    int otherDigits = 5; ///< of the others
    std::size_t steps = 0;
    bool exactSteps = false; ///< two bytes a value, else one
    bool secondary = true;
    std::string left; ///< what this leaves out, for the reader
};

/// Columns that say what others say, or that the page calculates.
bool isRepeated(const ResultColumn& column) {
    return column.name.starts_with("average") || column.name == "area";
}

/// Columns that a page beyond its limit goes without.
bool isSecondary(const ResultColumn& column) {
    for (const char* const start : {"longest_", "first_", "last_"}) { // of a day of sun
        if (column.name.starts_with(start)) {
            return true;
        }
    }
    return column.name == "ground_view" || column.name == "sky_view" || column.name == "ground" ||
           column.name == "reflected";
}

/// An hour of the year has the digits that it has.
int digitsOf(const ResultColumn& column, int digits) {
    return column.unit == "hour of year" ? 5 : digits;
}

double factorOf(const ResultColumn& column) {
    return 1.0 / shownUnit(column.unit).divisor;
}

Json columnRecord(const ResultColumn& column, const PackedColumn& packed, int bytes) {
    return {{"name", column.name},
            {"title", column.title},
            {"unit", shownUnit(column.unit).name},
            {"step", packed.step},
            {"offset", packed.lowest},
            {"decimals", packed.decimals},
            {"bytes", bytes},
            {"diverging", isDifference(column)}};
}

/// So many of the steps, evenly chosen, from the first one on.
std::vector<const ResultColumn*> chosenSteps(std::span<const ResultColumn> steps,
                                             std::size_t most) {
    std::vector<const ResultColumn*> chosen;
    const std::size_t count = std::min(steps.size(), most);
    for (std::size_t i = 0; i < count; ++i) {
        chosen.push_back(&steps[i * steps.size() / count]);
    }
    return chosen;
}

void addSteps(Json& record, Json& arrays, std::string& bytes, const PageResult& result,
              const PackedModel& model, const Detail& detail, const std::stop_token& stop) {
    record["steps"] = Json::array();
    record["steps_in_all"] = result.steps.size();
    const std::vector<const ResultColumn*> steps = chosenSteps(result.steps, detail.steps);
    double lowest = 0.0; // colours of all steps are compared: their ends are common
    double highest = 0.0;
    for (const ResultColumn* const column : steps) {
        for (const float value : column->values) {
            if (std::isfinite(value)) {
                lowest = std::min(lowest, static_cast<double>(value) * factorOf(*column));
                highest = std::max(highest, static_cast<double>(value) * factorOf(*column));
            }
        }
    }
    record["step_ends"] = {lowest, highest};
    for (const ResultColumn* const column : steps) {
        throwIfStopped(stop);
        const double factor = factorOf(*column);
        const PackedColumn packed =
            detail.exactSteps ? packColumn(column->values, factor, detail.digits, model.cells)
                              : packBytes(column->values, factor, lowest, highest, model.cells);
        const std::string name = fmt::format("step{}", record["steps"].size());
        append(arrays, bytes, name.c_str(), packed.bytes);
        record["steps"].push_back(columnRecord(*column, packed, detail.exactSteps ? 2 : 1));
    }
}

/// Runs of sensors that count and of such that do not, in turn; the first may be empty.
std::string enclosedRuns(std::span<const std::uint8_t> included) {
    ByteWriter runs;
    std::uint8_t now = 1;
    for (std::size_t first = 0; first < included.size(); now ^= 1U) {
        std::size_t end = first;
        while (end < included.size() && (included[end] != 0) == (now != 0)) {
            ++end;
        }
        runs.number(end - first);
        first = end;
    }
    return std::move(runs).take();
}

void addColumns(Json& record, Json& arrays, std::string& bytes, const PageResult& result,
                const PackedModel& model, const Detail& detail, const std::stop_token& stop) {
    record["columns"] = Json::array();
    for (std::size_t i = 0; i < result.columns.size(); ++i) {
        throwIfStopped(stop);
        const ResultColumn& column = result.columns[i];
        if (isRepeated(column) || (i > 0 && !detail.secondary && isSecondary(column))) {
            continue;
        }
        const PackedColumn packed =
            packColumn(column.values, factorOf(column),
                       i == 0 ? detail.digits : digitsOf(column, detail.otherDigits), model.cells);
        const std::string name = fmt::format("column{}", record["columns"].size());
        append(arrays, bytes, name.c_str(), packed.bytes);
        record["columns"].push_back(columnRecord(column, packed, 2));
    }
}

void addSeries(Json& record, Json& arrays, std::string& bytes, const PageResult& result) {
    record["series"] = Json::array();
    for (const PageSeries& series : result.series) {
        std::string packed(2 * series.hours.size(), '\0');
        for (std::size_t hour = 0; hour < series.hours.size(); ++hour) {
            const auto whole = static_cast<std::uint16_t>(
                std::clamp(std::isfinite(series.hours[hour]) ? series.hours[hour] : 0.0f, 0.0f,
                           6553.0f) *
                    10.0f +
                0.5f);
            packed[hour] = static_cast<char>(whole & 0xFFU);
            packed[series.hours.size() + hour] = static_cast<char>(whole >> 8U);
        }
        const std::string name = fmt::format("series{}", record["series"].size());
        append(arrays, bytes, name.c_str(), packed);
        Json one = {{"label", series.label}};
        one["sensor"] = series.sensor ? Json(*series.sensor) : Json(nullptr);
        record["series"].push_back(std::move(one));
    }
}

/// Length of the record as four bytes, the record, the arrays.
std::string packResult(const PageResult& result, const PackedModel& model, const Detail& detail,
                       const std::stop_token& stop) {
    Json record;
    Json arrays;
    std::string bytes;
    record["format"] = 1;
    record["made_by"] = INSOLATE_VERSION;
    record["name"] = validText(result.name);
    record["cells"] = model.sensors;
    record["days"] = result.days;
    record["origin"] = {model.origin.x, model.origin.y, model.origin.z};
    record["step"] = model.step;
    record["north"] = result.north;
    record["facts"] = Json::array();
    for (const auto& [label, text] : result.facts) {
        record["facts"].push_back({label, text});
    }
    record["warnings"] = result.warnings;
    record["left_out"] = detail.left;
    record["names"] = model.names;
    record["scene"] = {{"vertices", model.sceneVertices},
                       {"triangles", model.sceneTriangles},
                       {"edges", model.sceneEdges}};
    append(arrays, bytes, "blocks", model.blocks);
    append(arrays, bytes, "faces", model.faces);
    append(arrays, bytes, "vertices", model.vertices);
    append(arrays, bytes, "triangles", model.triangles);
    append(arrays, bytes, "objects", model.objects);
    append(arrays, bytes, "edges", model.edges);
    append(arrays, bytes, "edgeObjects", model.edgeObjects);
    if (result.site) {
        addSun(record, arrays, bytes, *result.site);
    }
    append(arrays, bytes, "enclosed", enclosedRuns(result.included));
    addColumns(record, arrays, bytes, result, model, detail, stop);
    addSteps(record, arrays, bytes, result, model, detail, stop);
    addSeries(record, arrays, bytes, result);
    record["arrays"] = std::move(arrays);
    const std::string text = record.dump(-1, ' ', true, Json::error_handler_t::replace);
    const auto size = static_cast<std::uint32_t>(text.size());
    std::string packed;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        packed.push_back(static_cast<char>(size >> shift & 0xFFU));
    }
    return packed + text + bytes;
}

/// From the finest to the coarsest.
std::vector<Detail> details(std::span<const PageResult> results) {
    std::size_t cells = 0;
    std::size_t largest = 1;
    std::size_t inAll = 0;
    for (const PageResult& result : results) {
        cells += result.field->size();
        largest = std::max(largest, result.field->size());
        inAll = std::max(inAll, result.steps.size());
    }
    constexpr std::size_t many = 200'000; // a fifth digit of noise would be most of such a page
    // A browser unpacks all steps of a pinned cell: 24 million values take it half a second. Every
    // step of several results is of the same part of the period, so one number holds for all.
    constexpr std::size_t dozen = 12;
    constexpr std::size_t mostStepValues = 24'000'000;
    constexpr std::size_t mostExactValues = 1'000'000;
    const std::size_t steps = std::min(inAll, std::max(dozen, mostStepValues / largest));
    const bool exact = inAll * cells <= mostExactValues;
    std::vector<Detail> list;
    if (cells <= many) {
        list.push_back({5, 5, steps, exact, true, ""});
    }
    list.push_back({4, cells <= many ? 4 : 3, steps, false, true,
                    cells <= many ? "values are rounded to four digits"
                                  : "values other than the first are rounded to three digits"});
    const std::string rounded = "values are rounded to three digits";
    list.push_back({3, 3, steps, false, true, rounded});
    if (steps > dozen) {
        list.push_back({3, 3, dozen, false, true, rounded});
    }
    const std::string noSteps = inAll > 0 ? ", the parts of the period are left out" : "";
    if (inAll > 0) {
        list.push_back({3, 3, 0, false, true, rounded + noSteps});
    }
    list.push_back({3, 3, 0, false, false,
                    rounded + noSteps +
                        ", and secondary quantities (views, the ground's share, "
                        "spans of sun) are left out"});
    return list;
}

} // namespace

void writePage(OutputFile& out, std::span<const PageResult> results, const PageOptions& options,
               const std::stop_token& stop) {
    if (!(options.limit > 0.0)) {
        throw UsageError(
            fmt::format("--page-limit {}: a page has a size; give MB above 0", options.limit));
    }
    const Scene nothing;
    std::vector<PackedModel> models;
    for (const PageResult& result : results) {
        models.push_back(
            packModel(result.scene != nullptr ? *result.scene : nothing, *result.field, stop));
    }
    const std::string script = base64(deflated(viewerScript(), stop));
    const std::string picture = base64(options.picture);
    std::vector<std::string> packed;
    for (const Detail& detail : details(results)) {
        packed.clear();
        std::size_t size = script.size() + picture.size() + head.size() + bootstrap.size();
        for (std::size_t i = 0; i < results.size(); ++i) {
            packed.push_back(
                base64(deflated(packResult(results[i], models[i], detail, stop), stop)));
            size += packed.back().size();
        }
        if (static_cast<double>(size) <= options.limit * 1.0e6) {
            break;
        }
    }
    out.write(beginning);
    out.write(head);
    if (!picture.empty()) {
        out.write("<img alt=\"The results on the model\" src=\"data:image/png;base64,");
        out.write(picture);
        out.write("\">\n");
    }
    out.write("</main>\n");
    for (std::size_t i = 0; i < packed.size(); ++i) {
        throwIfStopped(stop);
        out.write(fmt::format("<script type=\"text/plain\" class=\"result\" id=\"result{}\">", i));
        out.write(packed[i]);
        out.write("</script>\n");
    }
    out.write("<script type=\"text/plain\" id=\"viewer\">");
    out.write(script);
    out.write("</script>\n");
    out.write(bootstrap);
}

bool isOurPage(const std::filesystem::path& file) {
    return fileBeginning(file, beginning.size()) == beginning;
}

} // namespace insolate::study
