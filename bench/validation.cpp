/// Writes the tables of docs/validation.md and its plot.
///
///     bench_validation <folder with amsterdam.epw, chicago.epw, mannheim.epw, tokyo.epw>
///     <plot.svg>
#include <insolate/insolate.h>

#include <tests/hourly/made_weather.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace insolate;
using test::direction;
using test::narrowed;
using test::Vector;

const std::vector<std::string> cities{"amsterdam", "chicago", "mannheim", "tokyo"};
struct Face {
    const char* name;
    XYZf normal;
};
const std::vector<Face> faces{{"horizontal", {0, 0, 1}},
                              {"north", {0, 1, 0}},
                              {"east", {1, 0, 0}},
                              {"south", {0, -1, 0}},
                              {"west", {-1, 0, 0}}};

class OpenScene final : public GetTransparencyValueOnRay {
public:
    bool getSurfaceDoubleSided() override { return false; }
    float getTransparencyValue(const XYZf&, const XYZf&, const XYZf*) override { return 1.0f; }
    int initialise() override { return 0; }
};

class FormulaScene final : public GetTransparencyValueOnRay {
public:
    explicit FormulaScene(std::function<bool(const Vector&)> isFree)
        : m_isFree(std::move(isFree)) {}
    bool getSurfaceDoubleSided() override { return false; }
    float getTransparencyValue(const XYZf&, const XYZf& d, const XYZf*) override {
        return m_isFree(
                   {static_cast<double>(d.x), static_cast<double>(d.y), static_cast<double>(d.z)})
                   ? 1.0f
                   : 0.0f;
    }
    int initialise() override { return 0; }

private:
    std::function<bool(const Vector&)> m_isFree;
};

class Host final : public EUiController {
public:
    explicit Host(EModel& model) : m_model(model) {}
    int getPointCount() override { return m_model.getJobSize(); }
    ECalculationPoint* getPoint(int index) override { return m_model.getCalculationPoint(index); }
    void onPointsRemaining(int) override {}
    void onPointTime(double) override {}
    void onResultRange(float, float, float, float, float, float) override {}
    void onUnusedCallback() override {}

private:
    EModel& m_model;
};

/// Totals of the open faces by one of the three defined methods [kWh/m2].
std::vector<double> definedMethod(const std::string& file, CalculationMethod method) {
    EModel model;
    OpenScene rays;
    model.setGetTransparencyValueOnRay(&rays);
    for (std::size_t i = 0; i < faces.size(); ++i) {
        model.addCalculationPoint({0, 0, 1}, faces[i].normal, static_cast<int>(i));
    }
    ESolarAnalysisController& controller = model.getSolarAnalysisController();
    controller.setSolarCalculationMethod(method);
    ResultLoadWeatherData problem{};
    if (!controller.setWeatherFile(std::wstring(file.begin(), file.end()), problem)) {
        return std::vector<double>(faces.size(), 0.0);
    }
    controller.setTimeSpec(0.0f, 24.0f, 0.1f, 1, 365);
    for (int key = 0; key < model.getJobSize(); ++key) {
        model.updateCalculationPointShadingMask(key);
    }
    Host host(model);
    controller.calculate(&host);
    std::vector<double> totals;
    for (int key = 0; key < model.getJobSize(); ++key) {
        totals.push_back(
            static_cast<double>(model.getCalculationPoint(key)->getValue(ResultAccumulator_Total)) /
            1000.0);
    }
    return totals;
}

void closure(const std::string& folder) {
    std::printf("## Closure\n\n| city | sensor | diffuse + direct x sine | difference | file's "
                "global | difference |\n"
                "|---|---|---|---|---|---|\n");
    for (const std::string& city : cities) {
        const WeatherSeries weather = readWeatherSeries(folder + "/" + city + ".epw").series;
        const HourlyAnalysis analysis(buildHourlySky(weather));
        const HourlySkyReport& report = analysis.sky().report;
        const double total =
            static_cast<double>(analysis.evaluate(OcclusionIndex(), Sensor{}).total);
        const double expected = report.diffuseHorizontal + report.directHorizontal;
        std::printf("| %s | %.1f | %.1f | %+.4f %% | %.1f | %+.2f %% |\n", city.c_str(),
                    total / 1000.0, expected / 1000.0, 100.0 * (total / expected - 1.0),
                    report.globalHorizontal / 1000.0,
                    100.0 * (total / report.globalHorizontal - 1.0));
    }
}

void openWalls(const std::string& folder) {
    std::printf("\n## Open walls and tilts\n\n| surface | beam | beam, cells | sky 1993, 1 degree "
                "| sky, cells | difference | sky 1990 | difference |\n"
                "|---|---|---|---|---|---|---|---|\n");
    WeatherSeries weather = readWeatherSeries(folder + "/chicago.epw").series;
    std::fill(weather.pressure.begin(), weather.pressure.end(), std::nanf(""));
    std::fill(weather.dryBulb.begin(), weather.dryBulb.end(), std::nanf(""));
    test::keepDays(weather, 4);
    const std::vector<std::pair<const char*, Vector>> surfaces{
        {"north wall", direction(0, 0)},    {"east wall", direction(90, 0)},
        {"south wall", direction(180, 0)},  {"west wall", direction(270, 0)},
        {"wall to 137", direction(137, 0)}, {"south, tilt 40", direction(180, 50)},
        {"63, tilt 20", direction(63, 70)}, {"horizontal", {0, 0, 1}}};
    std::vector<Vector> normals;
    for (const auto& surface : surfaces) {
        normals.push_back(surface.second);
    }
    const test::OpenSurfaces plain = test::openSurfaces(weather, normals, 10);
    HourlyAnalysisOptions options;
    options.groundRays = 0;
    const HourlyAnalysis analysis(buildHourlySky(weather), options);
    for (std::size_t i = 0; i < surfaces.size(); ++i) {
        const SensorResult result =
            analysis.evaluate(OcclusionIndex(), {{0, 0, 1}, narrowed(normals[i])});
        const double sky = static_cast<double>(result.sky);
        std::printf("| %s | %.1f | %.1f | %.1f | %.1f | %+.2f %% | %.1f | %+.1f %% |\n",
                    surfaces[i].first, plain.beam[i] / 1000.0,
                    static_cast<double>(result.beam) / 1000.0, plain.sky1993[i] / 1000.0,
                    sky / 1000.0, 100.0 * (sky / plain.sky1993[i] - 1.0), plain.sky1990[i] / 1000.0,
                    100.0 * (sky / plain.sky1990[i] - 1.0));
    }
}

void symmetry() {
    std::printf(
        "\n## Morning and evening\n\n| latitude | east | west | difference |\n|---|---|---|---|\n");
    for (const double latitude : {42.0, 10.0, -35.0, 60.0}) {
        const HourlyAnalysis analysis(buildHourlySky(test::clearYear({latitude, 82.5, 5.5, 0.0})));
        const double east =
            static_cast<double>(analysis.evaluate(OcclusionIndex(), {{0, 0, 1}, {1, 0, 0}}).total);
        const double west =
            static_cast<double>(analysis.evaluate(OcclusionIndex(), {{0, 0, 1}, {-1, 0, 0}}).total);
        std::printf("| %g | %.1f | %.1f | %+.3f %% |\n", latitude, east / 1000.0, west / 1000.0,
                    100.0 * (east / west - 1.0));
    }
}

struct Errors {
    std::vector<double> sky, beam, fineSky, fineBeam;
    static void print(std::vector<double> errors, double limit) {
        double sum = 0.0;
        double largest = 0.0;
        int within = 0;
        for (const double e : errors) {
            sum += e * e;
            largest = std::max(largest, std::abs(e));
            within += std::abs(e) <= limit ? 1 : 0;
        }
        const auto count = static_cast<double>(errors.size());
        std::printf(" %.2f %% / %.2f %% / %.0f %% |", 100.0 * std::sqrt(sum / count),
                    100.0 * largest, 100.0 * within / count);
    }
};

/// Random walls, canyons and courts against four degree fractions of the dome and the sky's own
/// steps.
void shading(const std::string& folder) {
    std::printf("\n## Shading\n\nRoot mean square / largest error / share of 100 random cases "
                "within the bar.\n\n"
                "| case | sky (1 %%) | beam (2 %%) | sky, tolerance 0.002 (1 %%) | beam, tolerance "
                "0.002 (0.5 %%) |\n|---|---|---|---|---|\n");
    const HourlySky sky = buildHourlySky(readWeatherSeries(folder + "/chicago.epw").series);
    HourlyAnalysisOptions fine;
    fine.sunTolerance = 0.002;
    const HourlyAnalysis plain(sky);
    const HourlyAnalysis split(sky, fine);
    std::mt19937 random(11);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (const int walls : {1, 2, 4, 5}) {
        Errors errors;
        for (int n = 0; n < 100; ++n) {
            const double compass = 360.0 * unit(random);
            const std::array<double, 4> slope{2.0 * unit(random), 2.0 * unit(random),
                                              2.0 * unit(random), 2.0 * unit(random)};
            const int count = walls == 5 ? 1 : walls;
            const auto isFree = [&](const Vector& d) {
                for (int w = 0; w < count; ++w) {
                    const Vector towards =
                        direction(compass + (count == 2 ? 180.0 : 90.0) * w, 0.0);
                    const double level = test::product(d, towards);
                    if (level > 0.0 && d[2] < slope[static_cast<std::size_t>(w)] * level) {
                        return false;
                    }
                }
                return true;
            };
            const Vector normal = walls == 5 ? direction(compass, 0.0) : Vector{0, 0, 1};
            double skySum = 0.0;
            double beamSum = 0.0;
            constexpr int parts = 20;
            for (std::size_t i = 0; i < sky.diffuse.size(); ++i) {
                for (int k = 0; k < parts * parts; ++k) {
                    const double h =
                        static_cast<double>(i / 72) * 5.0 + (k / parts + 0.5) * 5.0 / parts;
                    const double a =
                        static_cast<double>(i % 72) * 5.0 + (k % parts + 0.5) * 5.0 / parts;
                    const Vector d = direction(a, h);
                    if (isFree(d)) {
                        skySum += static_cast<double>(sky.diffuse[i]) * std::cos(h * test::degree) *
                                  std::max(test::product(normal, d), 0.0);
                    }
                }
            }
            skySum *= std::pow(5.0 / parts * test::degree, 2);
            for (const SunStep& step : sky.sunSteps) {
                const Vector e{static_cast<double>(step.energy.x),
                               static_cast<double>(step.energy.y),
                               static_cast<double>(step.energy.z)};
                if (isFree(e)) {
                    beamSum += std::max(test::product(normal, e), 0.0);
                }
            }
            FormulaScene scene(isFree);
            const Sensor sensor{{0, 0, 0}, narrowed(normal)};
            const SensorResult a = plain.evaluate(scene, sensor);
            const SensorResult b = split.evaluate(scene, sensor);
            errors.sky.push_back(static_cast<double>(a.sky) / skySum - 1.0);
            errors.fineSky.push_back(static_cast<double>(b.sky) / skySum - 1.0);
            const double noise = 0.001 * (beamSum + skySum); // a facade that the sun hardly meets
            errors.beam.push_back((static_cast<double>(a.beam) - beamSum) /
                                  std::max(beamSum, noise));
            errors.fineBeam.push_back((static_cast<double>(b.beam) - beamSum) /
                                      std::max(beamSum, noise));
        }
        std::printf("| %s |", walls == 1   ? "endless wall"
                              : walls == 2 ? "canyon"
                              : walls == 4 ? "court"
                                           : "facade before a wall");
        Errors::print(errors.sky, 0.01);
        Errors::print(errors.beam, 0.02);
        Errors::print(errors.fineSky, 0.01);
        Errors::print(errors.fineBeam, 0.005);
        std::printf("\n");
    }
}

void fourMethods(const std::string& folder, const char* plot) {
    std::printf(
        "\n## The four methods\n\nOpen surfaces, kWh/m2 a year, the ground's light included.\n");
    const std::array<const char*, 4> names{"hourly", "cumulative-sky", "perez-sky", "perez-point"};
    std::array<std::vector<double>, 4> chicago;
    for (const std::string& city : cities) {
        const std::string file = folder + "/" + city + ".epw";
        const HourlyAnalysis analysis(buildHourlySky(readWeatherSeries(file).series));
        std::array<std::vector<double>, 4> totals;
        for (const Face& face : faces) {
            totals[0].push_back(
                static_cast<double>(
                    analysis.evaluate(OcclusionIndex(), {{0, 0, 1}, face.normal}).total) /
                1000.0);
        }
        totals[1] = definedMethod(file, CalculationMethod_CumulativeSky);
        totals[2] = definedMethod(file, CalculationMethod_PerezSky);
        totals[3] = definedMethod(file, CalculationMethod_PerezPoint);
        std::printf("\n| %s |", city.c_str());
        for (const Face& face : faces) {
            std::printf(" %s |", face.name);
        }
        std::printf("\n|---|---|---|---|---|---|\n");
        for (std::size_t method = 0; method < 4; ++method) {
            std::printf("| %s |", names[method]);
            for (std::size_t i = 0; i < faces.size(); ++i) {
                std::printf(" %.0f", totals[method][i]);
                if (method > 0) {
                    std::printf(" (%+.0f %%)", 100.0 * (totals[method][i] / totals[0][i] - 1.0));
                }
                std::printf(" |");
            }
            std::printf("\n");
        }
        if (city == "chicago") {
            chicago = totals;
        }
    }
    std::ofstream svg(plot);
    const std::array<const char*, 4> colours{"#1b6ca8", "#e0a030", "#5fa55a", "#b05090"};
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 760 380\" "
           "font-family=\"sans-serif\" font-size=\"13\">\n"
        << "<rect width=\"760\" height=\"380\" fill=\"white\"/>\n"
        << "<text x=\"60\" y=\"24\" font-size=\"15\">Chicago, open surfaces: kWh/m² a year by the "
           "four methods</text>\n";
    const auto y = [](double value) { return 330.0 - value / 1600.0 * 270.0; };
    for (int value = 0; value <= 1600; value += 200) {
        svg << "<line x1=\"60\" x2=\"740\" y1=\"" << y(value) << "\" y2=\"" << y(value)
            << "\" stroke=\"#ddd\"/>"
            << "<text x=\"52\" y=\"" << y(value) + 4 << "\" text-anchor=\"end\">" << value
            << "</text>\n";
    }
    for (std::size_t i = 0; i < faces.size(); ++i) {
        for (std::size_t method = 0; method < 4; ++method) {
            const double x =
                75.0 + 134.0 * static_cast<double>(i) + 28.0 * static_cast<double>(method);
            svg << "<rect x=\"" << x << "\" y=\"" << y(chicago[method][i])
                << "\" width=\"25\" height=\"" << 330.0 - y(chicago[method][i]) << "\" fill=\""
                << colours[method] << "\"/>\n";
        }
        svg << "<text x=\"" << 130 + 134 * i << "\" y=\"350\" text-anchor=\"middle\">"
            << faces[i].name << "</text>\n";
    }
    for (std::size_t method = 0; method < 4; ++method) {
        svg << "<rect x=\"" << 60 + 150 * method
            << "\" y=\"360\" width=\"12\" height=\"12\" fill=\"" << colours[method]
            << "\"/><text x=\"" << 77 + 150 * method << "\" y=\"371\">" << names[method]
            << "</text>\n";
    }
    svg << "</svg>\n";
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: bench_validation <weather folder> <plot.svg>\n");
        return 2;
    }
    closure(argv[1]);
    openWalls(argv[1]);
    symmetry();
    shading(argv[1]);
    fourMethods(argv[1], argv[2]);
    return 0;
}
