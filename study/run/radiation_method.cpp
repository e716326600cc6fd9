#include "study/run/radiation_method.h"

#include "study/run/hourly_study.h"
#include "study/run/solar_analysis.h"
#include "study/support/errors.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

namespace insolate::study {

namespace {

using Make = std::unique_ptr<RadiationMethod> (*)(const SkyOptions& options, double north,
                                                  const std::shared_ptr<const WeatherYear>& given);

struct ListedMethod {
    const char* name;
    MethodUse use;
    Make make;
};

template <CalculationMethod method>
std::unique_ptr<RadiationMethod>
makeSolarAnalysis(const SkyOptions& options, double north,
                  const std::shared_ptr<const WeatherYear>& given) {
    if (given != nullptr) {
        throw UsageError(fmt::format("--method {} reads its weather from a file; give one, or take "
                                     "--method hourly",
                                     options.method));
    }
    return std::make_unique<SolarAnalysis>(method, options, north);
}

constexpr std::array listedMethods = {
    ListedMethod{"hourly", {.hasSky = true, .takesHourlyOptions = true}, makeHourlyStudy},
    ListedMethod{"cumulative-sky",
                 {.hasSky = true, .takesMasks = true},
                 makeSolarAnalysis<CalculationMethod_CumulativeSky>},
    ListedMethod{"perez-sky",
                 {.hasSky = true, .takesMasks = true},
                 makeSolarAnalysis<CalculationMethod_PerezSky>},
    ListedMethod{
        "perez-point", {.takesMasks = true}, makeSolarAnalysis<CalculationMethod_PerezPoint>},
};

const ListedMethod& methodOf(const std::string& name) {
    const auto* found =
        std::find_if(listedMethods.begin(), listedMethods.end(),
                     [&](const ListedMethod& method) { return method.name == name; });
    if (found == listedMethods.end()) {
        throw UsageError(fmt::format("--method: there is no {}; choose from {}", quoteText(name),
                                     fmt::join(methodNames(), ", ")));
    }
    return *found;
}

} // namespace

std::vector<std::string> methodNames(MethodsOf use) {
    std::vector<std::string> names;
    for (const ListedMethod& method : listedMethods) {
        if (use == MethodsOf::aRun || method.use.hasSky) {
            names.emplace_back(method.name);
        }
    }
    return names;
}

MethodUse methodUse(const std::string& name) {
    return methodOf(name).use;
}

std::unique_ptr<RadiationMethod>
makeRadiationMethod(const SkyOptions& options, double north,
                    const std::shared_ptr<const WeatherYear>& given) {
    return methodOf(options.method).make(options, north, given);
}

} // namespace insolate::study
