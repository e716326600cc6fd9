/// A host in one file: the year's radiation on three points beside a wall.
///
///     minimal_host weather.epw
#include <insolate/insolate.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

/// Serves the model's points to the controller and hears how the calculation goes.
class Host final : public EUiController {
public:
    explicit Host(EModel& model) : m_model(model) {}

    int getPointCount() override { return m_model.getJobSize(); }
    ECalculationPoint* getPoint(int index) override { return m_model.getCalculationPoint(index); }

    void onPointsRemaining(int remaining) override { std::printf("%d to do\n", remaining); }
    void onPointTime(double) override {}
    void onResultRange(float, float, float minTotal, float maxTotal, float, float) override {
        std::printf("totals from %.1f to %.1f kWh/m2\n", static_cast<double>(minTotal) / 1000.0,
                    static_cast<double>(maxTotal) / 1000.0);
    }
    void onUnusedCallback() override {}

private:
    EModel& m_model;
};

/// A wall along the x axis: 40 m long, 10 m high, in metres with z up and north along +Y.
void buildScene() {
    std::vector<double> wall = {-20, 0, 0, 20, 0, 0,  20,  0, 10,  // first triangle
                                -20, 0, 0, 20, 0, 10, -20, 0, 10}; // second triangle
    RT::InputPackageUitl::ResetInputPackage();
    RT::InputPackageUitl::AddTriangles(wall.data(), static_cast<int>(wall.size()));
    RT::InputPackageUitl::InflateBoundingBox();
    RT::SpatialTreeUtil::GenerateSpatialTree();
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: minimal_host <weather.epw>\n");
        return 2;
    }
    const std::string weatherFile = argv[1];

    buildScene();

    EModel model;
    GetTransparencyValueOnRayInternal rays;
    model.setGetTransparencyValueOnRay(&rays);
    // Points stand a little off their surface: rays do not see what is nearer than 0.01.
    const XYZf up = {0.0f, 0.0f, 1.0f};
    const XYZf south = {0.0f, -1.0f, 0.0f};
    const int open = model.addCalculationPoint({0.0f, -200.0f, 0.05f}, up, 0);
    const int shaded = model.addCalculationPoint({0.0f, 2.0f, 0.05f}, up, 0);
    const int facade = model.addCalculationPoint({0.0f, -0.05f, 5.0f}, south, 1);

    // The weather first, because it moves the site; then the period, which builds the sky there.
    ESolarAnalysisController& controller = model.getSolarAnalysisController();
    controller.setSolarCalculationMethod(CalculationMethod_CumulativeSky);
    ResultLoadWeatherData problem = {};                                  // written on failure only
    const std::wstring fileName(weatherFile.begin(), weatherFile.end()); // plain ASCII names
    if (!controller.setWeatherFile(fileName, problem)) {
        std::fprintf(stderr, "%s: cannot be read as weather\n", weatherFile.c_str());
        return 1;
    }
    controller.setTimeSpec(0.0f, 24.0f, 0.1f, 1, 365);
    if (!controller.isCumulativeSkyValid()) {
        std::fprintf(stderr, "no sky for this period\n");
        return 1;
    }

    for (int key = 0; key < model.getJobSize(); ++key) {
        model.updateCalculationPointShadingMask(key); // once per point and scene
    }
    Host host(model);
    if (!controller.calculate(&host)) {
        return 1; // cancelled
    }
    const auto print = [&](const char* name, int key) {
        ECalculationPoint* const point = model.getCalculationPoint(key);
        std::printf("%-28s %7.1f kWh/m2, peak %4.0f W/m2\n", name,
                    static_cast<double>(point->getValue(ResultAccumulator_Total)) / 1000.0,
                    static_cast<double>(point->getValue(ResultAccumulator_Peak)));
    };
    print("open ground", open);
    print("ground north of the wall", shaded);
    print("south face of the wall", facade);
    return 0;
}
