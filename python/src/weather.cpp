#include "bindings.h"

#include <array>
#include <chrono>
#include <optional>
#include <tuple>

namespace insolate::python {

namespace {

constexpr std::int64_t nanosecondsPerHour = 3'600'000'000'000;

PyWeather readWeather(const std::string& file, nb::handle report) {
    study::WeatherYear year;
    doWork(report, [&](study::Progress&, const std::stop_token& stop) {
        year = study::readWeatherYear(file, stop);
    });
    return {std::make_shared<const study::WeatherYear>(std::move(year)), file, true};
}

/// @param times nanoseconds since 1970 of the middles of the records, by the site's clock
/// @param values direct, diffuse, global, dry bulb, dew point, pressure, albedo of each record
PyWeather weatherOf(const std::string& name, double latitude, double longitude, double timeZone,
                    double elevation, const InArray<std::int64_t, 1>& times,
                    const InArray<float, 2>& values) {
    study::SampledWeather weather;
    weather.report.site = {.city = name,
                           .region = {},
                           .country = {},
                           .latitude = latitude,
                           .longitude = longitude,
                           .timeZone = timeZone,
                           .elevation = elevation};
    if (values.shape(0) != times.shape(0) || values.shape(1) != 7) {
        throw nb::value_error("values must have a row of seven for each time");
    }
    for (std::size_t i = 0; i < times.size(); ++i) {
        using namespace std::chrono;
        const sys_time<nanoseconds> instant{nanoseconds(times.data()[i])};
        const sys_days midnight = floor<days>(instant);
        const year_month_day date{midnight};
        const float* v = values.data() + 7 * i;
        study::addSample(weather,
                         {.line = i + 1,
                          .year = static_cast<int>(date.year()),
                          .month = static_cast<int>(static_cast<unsigned>(date.month())),
                          .day = static_cast<int>(static_cast<unsigned>(date.day())),
                          .hour = static_cast<double>((instant - midnight).count()) /
                                  static_cast<double>(nanosecondsPerHour),
                          .direct = v[0],
                          .diffuse = v[1],
                          .global = v[2],
                          .dryBulb = v[3],
                          .dewPoint = v[4],
                          .pressure = v[5],
                          .albedo = v[6]},
                         name);
    }
    return {std::make_shared<const study::WeatherYear>(study::weatherOfSamples(weather, name)),
            name, false};
}

template <std::vector<float> WeatherSeries::*series>
std::optional<View<float>> seriesOf(nb::handle self) {
    const std::vector<float>& values = nb::cast<PyWeather&>(self).year->series.*series;
    if (values.empty()) {
        return std::nullopt;
    }
    return viewOf(values.data(), {values.size()}, self);
}

} // namespace

void bindWeather(nb::module_& module) {
    nb::class_<PyWeather>(module, "Weather")
        .def_ro("name", &PyWeather::name)
        .def_ro("is_file", &PyWeather::isFile)
        .def_prop_ro("site",
                     [](const PyWeather& self) {
                         const Site& site = self.year->series.site;
                         return std::tuple(site.latitude, site.longitude, site.timeZone,
                                           site.elevation, self.year->report.site.text());
                     })
        .def_prop_ro("findings",
                     [](const PyWeather& self) {
                         std::vector<std::string> texts = self.year->report.notes;
                         const std::vector<std::string>& facts = self.year->report.facts;
                         texts.insert(texts.end(), facts.begin(), facts.end());
                         return texts;
                     })
        .def_prop_ro("gap_count",
                     [](const PyWeather& self) { return self.year->report.gapCount(); })
        .def_prop_ro("sample_offset",
                     [](const PyWeather& self) { return self.year->series.sampleOffset; })
        .def_prop_ro("dni", &seriesOf<&WeatherSeries::directNormal>, nb::rv_policy::reference)
        .def_prop_ro("dhi", &seriesOf<&WeatherSeries::diffuseHorizontal>, nb::rv_policy::reference)
        .def_prop_ro("ghi", &seriesOf<&WeatherSeries::globalHorizontal>, nb::rv_policy::reference)
        .def_prop_ro("temp_air", &seriesOf<&WeatherSeries::dryBulb>, nb::rv_policy::reference)
        .def_prop_ro("temp_dew", &seriesOf<&WeatherSeries::dewPoint>, nb::rv_policy::reference)
        .def_prop_ro("pressure", &seriesOf<&WeatherSeries::pressure>, nb::rv_policy::reference);
    module.def("read_weather", &readWeather, nb::arg("file"), nb::arg("report").none());
    module.def("weather_of", &weatherOf, nb::arg("name"), nb::arg("latitude"), nb::arg("longitude"),
               nb::arg("time_zone"), nb::arg("elevation"), nb::arg("times").noconvert(),
               nb::arg("values").noconvert());
}

} // namespace insolate::python
