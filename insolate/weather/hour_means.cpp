#include <insolate/weather/hour_means.h>

#include <cmath>
#include <limits>

namespace insolate {

HourMeans::HourMeans() {
    m_sums.fill(std::vector<Sum>(hoursPerYear));
}

void HourMeans::add(EpwField field, std::size_t hour, float value) {
    if (std::isfinite(value)) {
        Sum& sum = m_sums[static_cast<std::size_t>(field)][hour];
        sum.sum += static_cast<double>(value);
        ++sum.count;
    }
}

void HourMeans::fill(WeatherSeries& series, int recordsAnHour) const {
    // In the order of EpwField.
    const std::array<std::vector<float>*, epwFieldCount - 1> targets{
        &series.dryBulb,          &series.dewPoint,     &series.pressure,
        &series.globalHorizontal, &series.directNormal, &series.diffuseHorizontal};
    for (std::size_t f = 0; f < targets.size(); ++f) {
        const bool radiation = epwFieldInfo(static_cast<EpwField>(f)).radiation;
        targets[f]->assign(hoursPerYear, std::numeric_limits<float>::quiet_NaN());
        for (std::size_t hour = 0; hour < hoursPerYear; ++hour) {
            const Sum& of = m_sums[f][hour];
            if (radiation ? of.count == recordsAnHour : of.count > 0) {
                (*targets[f])[hour] = static_cast<float>(of.sum / of.count);
            }
        }
    }
    std::vector<double> albedo(hoursPerYear, std::numeric_limits<double>::quiet_NaN());
    const std::vector<Sum>& albedos = m_sums[static_cast<std::size_t>(EpwField::Albedo)];
    for (std::size_t hour = 0; hour < hoursPerYear; ++hour) {
        if (albedos[hour].count > 0) {
            albedo[hour] = albedos[hour].sum / albedos[hour].count;
        }
    }
    series.monthlyAlbedo = monthlyAlbedoOf(albedo, series.globalHorizontal);
}

} // namespace insolate
