#include "study/run/run_weather.h"

#include "study/files/folder_hold.h"
#include "study/files/output_folder.h"
#include "study/support/errors.h"
#include "study/support/file_name.h"
#include "study/support/numbers.h"
#include "study/support/period.h"
#include "study/support/readable.h"
#include "study/weather/store_check.h"
#include "study/weather/weather_store.h"
#include "study/weather/weather_year.h"

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>
#include <system_error>
#include <vector>

#include <fmt/format.h>
#include <insolate/insolate.h>

namespace insolate::study {

namespace {

/// A total as text.
struct Total : FiniteSum {
    [[nodiscard]] std::string sumText() const {
        return count == 0 ? std::string("-") : fmt::format("{:.1f}", sum / 1000.0);
    }
    [[nodiscard]] std::string meanText() const {
        return count == 0 ? std::string("-") : fmt::format("{:.1f}", sum / count);
    }
};

struct MonthTotals {
    Total direct, diffuse, global, temperature;

    void add(const WeatherSeries& year, std::size_t hour) {
        direct.add(year.directNormal[hour]);
        diffuse.add(year.diffuseHorizontal[hour]);
        global.add(year.globalHorizontal[hour]);
        temperature.add(year.dryBulb[hour]);
    }
    [[nodiscard]] std::string row(std::string_view name) const {
        return fmt::format("{:<10} {:>14} {:>14} {:>14} {:>12}\n", name, direct.sumText(),
                           diffuse.sumText(), global.sumText(), temperature.meanText());
    }
};

/// What a run with such a check says about the file: nothing when it takes it.
template <typename Check>
std::string refusal(Check&& check) {
    try {
        check();
        return {};
    } catch (const DataError& error) {
        return error.what();
    }
}

/// What the library's own records begin with, a zero included.
constexpr std::array weaMark = std::to_array("xqt_WEA_ver1.10");
constexpr std::string_view weaSignature(weaMark.data(), weaMark.size());

bool isOurWea(const std::filesystem::path& file) {
    return fileBeginning(file, weaSignature.size()) == weaSignature;
}

} // namespace

WeatherInfo weatherInfo(const std::filesystem::path& file, const std::stop_token& stop) {
    const WeatherInput input = openWeather(file, stop);
    const WeatherYear read = readWeatherYear(input);
    throwIfStopped(stop);
    const WeatherSeries& year = read.series;
    std::array<MonthTotals, 12> months;
    MonthTotals whole;
    for (std::size_t hour = 0; hour < year.directNormal.size(); ++hour) {
        const MonthAndDay date = monthAndDay(static_cast<int>(hour / 24));
        months[static_cast<std::size_t>(date.month - 1)].add(year, hour);
        whole.add(year, hour);
    }
    std::string text = fmt::format("# {}\n# {}, elevation {:.0f} m\n", printable(year.place),
                                   siteText(year.site), year.site.elevation);
    text += fmt::format("{:<10} {:>14} {:>14} {:>14} {:>12}\n", "#", "direct normal", "diffuse",
                        "global", "temperature");
    text += fmt::format("{:<10} {:>14} {:>14} {:>14} {:>12}\n", "#", "[kWh/m2]", "[kWh/m2]",
                        "[kWh/m2]", "mean [C]");
    for (std::size_t month = 0; month < months.size(); ++month) {
        text += months[month].row(monthName(static_cast<int>(month) + 1));
    }
    text += whole.row("year");
    for (const auto* findings : {&read.report.facts, &read.report.notes}) {
        for (const std::string& finding : *findings) {
            text += fmt::format("# {}\n", finding);
        }
    }
    if (read.report.lastDayEmpty) {
        text += fmt::format("# {}\n", lastDayText(file, *input.format, ""));
    }
    if (const std::string odd = sunDownText(file, buildHourlySky(year), read.report.strayDirect);
        !odd.empty()) {
        text += fmt::format("# {}\n", odd);
    }
    const std::string hourly = refusal([&] { requireCompleteYear(read.report, file, false); });
    const std::string others = refusal([&] {
        if (input.format->store != StoreReader::none) {
            requireCompleteYear(inspectStoredWeather(input).report, file, false);
        }
    });
    if (hourly.empty()) {
        text += "# usable by 'insolate run'\n";
        if (!others.empty()) {
            text += fmt::format("# the methods other than hourly say: {}\n", others);
        }
    }
    return {text, hourly.empty() ? hourly : "'insolate run' would refuse it: " + hourly};
}

void convertWeather(const std::filesystem::path& from, const std::filesystem::path& to,
                    bool allowGaps, Progress& progress, const std::stop_token& stop) {
    if (!hasExtension(to, {".wea"})) {
        throw UsageError(fmt::format(
            "{}: only .wea files are written; give a name that ends in .wea", place(to)));
    }
    const std::filesystem::path parent = to.parent_path();
    std::error_code problem;
    if (!parent.empty() && !std::filesystem::exists(parent, problem)) {
        throw DataError(fmt::format("{}: cannot be written: there is no folder {}; make it first "
                                    "or give another one",
                                    place(to), place(parent)));
    }
    const WeatherReport report = inspectWeatherFile(from);
    if (report.format->store == StoreReader::record) {
        throw UsageError(
            fmt::format("{}: is such a file already; give one of another format", place(from)));
    }
    requireCompleteYear(report, from, allowGaps);
    const auto store = std::make_unique<EWeatherData>();
    loadWeather(*store, from, report, GlobalSite::keep);
    // After an EPW file the record holds degrees, which is what the file wants.
    const EWeaFileFormatData& record = store->getDataForWrite();
    const std::string name = to.filename().string();
    OutputFolder folder(parent.empty() ? std::filesystem::path(".") : parent, {from}, place(to));
    const FolderHold hold(progress, folder);
    OutputFile& out = folder.stage({name, isOurWea});
    out.write(weaSignature.data(), weaSignature.size());
    out.write(&record, sizeof record);
    throwIfStopped(stop);
    folder.commit();

    for (const std::string& note : report.notes) {
        progress.warn(note);
    }
    if (report.gapCount() > 0) {
        progress.warn(fmt::format(
            "{} {} stored as without radiation", report.gapCount(),
            counted(report.gapCount(), "hour without data is", "hours without data are")));
    }
    // The store puts what EPW files give for 31 December at the day before.
    if (report.format->store == StoreReader::epw && report.hasLastDay()) {
        progress.warn(
            fmt::format("{}: the weather of 31 December stands at the 30th, whose own is lost, "
                        "and the 31st is empty: so the methods other than hourly read a year. "
                        "For the hourly method keep {}",
                        place(to), place(from)));
    }
    progress.note(fmt::format("wrote {}: {}", place(to), report.site.text()));
}

} // namespace insolate::study
