#include <insolate/hourly/hourly_sky.h>

#include <insolate/hourly/luminance_table.h>
#include <insolate/hourly/north_offset.h>
#include <insolate/solar/sun_position.h>
#include <insolate/weather/all_weather_luminance.h>

#include <oneapi/tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace insolate {
namespace {

constexpr double pi = std::numbers::pi;
constexpr std::size_t cellCount = skyGrid::cellCount;
constexpr std::size_t bandCount = skyGrid::altitudeCount;
constexpr std::size_t sectorCount = skyGrid::azimuthCount;
constexpr std::size_t patchCount = skyPatches::count;

/// Patches of 10 degrees of altitude, and of azimuth 10, 20, 30 and 60 degrees upwards.
struct PatchTable {
    std::array<std::uint8_t, cellCount> ofCell{};
    constexpr PatchTable() {
        std::size_t first = 0;
        for (std::size_t row = 0; row < bandCount / 2; ++row) {
            const std::size_t width = skyPatches::sectorsWide(row);
            for (std::size_t band = 2 * row; band < 2 * row + 2; ++band) {
                for (std::size_t sector = 0; sector < sectorCount; ++sector) {
                    ofCell[band * sectorCount + sector] =
                        static_cast<std::uint8_t>(first + sector / width);
                }
            }
            first += sectorCount / width;
        }
    }
};
constexpr PatchTable patchTable;

/// Light of an hour's sky, of which the radiance of the cells is still to be found.
struct LitSky {
    std::size_t skyHour;
    double diffuseHorizontal;   ///< in the period [Wh/m2]
    bool isUniform;             ///< no sun is up; the rest holds for other hours alone
    AllWeatherSky coefficients; ///< of the whole hour
    std::size_t firstSun;       ///< places of the sun in the period
    std::size_t sunCount;
};

/// The radiance of an hour's sky: the model's luminance added over the places of the sun.
///
/// Both factors of the model are separate: the one of the horizon depends on the band alone and is
/// averaged over it, the one of the sun depends on the angle to the sun alone and comes from a
/// table.
class SkyRadiance {
public:
    explicit SkyRadiance(const SkyCells& cells) : m_cells(cells) {
        for (std::size_t i = 0; i < cellCount; ++i) {
            m_centres.x[i] = cells.centre[i].x;
            m_centres.y[i] = cells.centre[i].y;
            m_centres.z[i] = cells.centre[i].z;
        }
        for (std::size_t i = 0; i <= tableSize; ++i) {
            m_angles[i] = 2.0 * std::asin(static_cast<double>(i) / tableSize);
            m_squaredCosines[i] = std::cos(m_angles[i]) * std::cos(m_angles[i]);
        }
        // Gauss-Legendre with four points, weighted with the cosine of the altitude.
        constexpr std::array<double, 4> points{-0.861136311594053, -0.339981043584856,
                                               0.339981043584856, 0.861136311594053};
        constexpr std::array<double, 4> weights{0.347854845137454, 0.652145154862546,
                                                0.652145154862546, 0.347854845137454};
        for (std::size_t band = 0; band < bandCount; ++band) {
            double sum = 0.0;
            for (std::size_t i = 0; i < 4; ++i) {
                const double altitude =
                    (static_cast<double>(band) + 0.5 + 0.5 * points[i]) * 5.0 / 180.0 * pi;
                m_bandSine[band][i] = std::sin(altitude);
                m_bandWeight[band][i] = weights[i] * std::cos(altitude);
                sum += m_bandWeight[band][i];
            }
            for (double& weight : m_bandWeight[band]) {
                weight /= sum;
            }
        }
    }

    /// The radiance of each cell, scaled so that it gives the diffuse horizontal. A sky without any
    /// light after the model's limits is a uniform one. May be asked by several threads at once.
    void find(const LitSky& sky, std::span<const XYZf> suns,
              std::span<float, cellCount> radiance) const {
        if (sky.isUniform) {
            std::fill(radiance.begin(), radiance.end(),
                      static_cast<float>(sky.diffuseHorizontal / pi));
            return;
        }
        LuminanceTable table;
        for (std::size_t i = 0; i <= tableSize; ++i) {
            table.values[i] =
                static_cast<float>(sunFactor(sky.coefficients, m_angles[i], m_squaredCosines[i]));
        }
        for (std::size_t i = 0; i < tableSize; ++i) {
            table.steps[i] = table.values[i + 1] - table.values[i];
        }
        sumOverSuns(m_centres, suns.subspan(sky.firstSun, sky.sunCount), table, radiance);
        double horizontal = 0.0;
        for (std::size_t band = 0; band < bandCount; ++band) {
            double mean = 0.0;
            for (std::size_t i = 0; i < 4; ++i) {
                mean +=
                    m_bandWeight[band][i] * horizonFactor(sky.coefficients, m_bandSine[band][i]);
            }
            for (std::size_t i = band * sectorCount; i < (band + 1) * sectorCount; ++i) {
                radiance[i] *= static_cast<float>(mean);
                horizontal +=
                    static_cast<double>(radiance[i]) * static_cast<double>(m_cells.momentZ[i]);
            }
        }
        const bool dark = !(horizontal > 1e-9);
        const auto scale = static_cast<float>(sky.diffuseHorizontal / (dark ? pi : horizontal));
        for (float& one : radiance) {
            one = dark ? scale : one * scale;
        }
    }

private:
    static constexpr std::size_t tableSize = LuminanceTable::size;
    const SkyCells& m_cells;
    CellCentres m_centres;
    std::array<double, tableSize + 1> m_angles{};
    std::array<double, tableSize + 1> m_squaredCosines{};
    std::array<std::array<double, 4>, bandCount> m_bandSine{};
    std::array<std::array<double, 4>, bandCount> m_bandWeight{};
};

/// A sub-step with the sun up.
struct Step {
    bool inPeriod;
    double azimuth, altitude;
    double distance;
    XYZf direction;
};

/// A sub-step of the period with its energy and its place in the grid.
struct PlacedStep {
    std::size_t skyHour;
    int cell;
    std::uint32_t place;
    XYZf direction;
    float directNormal;
    float sunHours;
};

std::uint32_t interleaved(std::uint32_t u, std::uint32_t v) {
    std::uint32_t bits = 0;
    for (std::uint32_t i = 0; i < 6; ++i) {
        bits |= (u >> i & 1U) << (2 * i) | (v >> i & 1U) << (2 * i + 1);
    }
    return bits;
}

/// Sixty-fourths of a cell.
std::uint32_t fraction(double value) {
    return static_cast<std::uint32_t>(std::clamp((value - std::floor(value)) * 64.0, 0.0, 63.0));
}

bool isSummerDay(const AnalysisPeriod& period, int day) {
    const int first = period.firstSummerDay;
    const int last = period.lastSummerDay;
    return first > 0 && (first <= last ? day >= first && day <= last : day >= first || day <= last);
}

/// @param day of the year, 1..365
/// @param hour of standard time, 0..24
bool inDailyHours(const AnalysisPeriod& period, int day, double hour) {
    if (isSummerDay(period, day)) {
        hour += hour < 23.0 ? 1.0 : -23.0;
    }
    if (period.startHour == period.endHour) {
        return std::floor(hour) == std::min(std::floor(period.startHour), 23.0);
    }
    if (period.startHour < period.endHour) {
        return hour >= period.startHour && hour < period.endHour;
    }
    return hour >= period.startHour || hour < period.endHour;
}

AnalysisPeriod heldToRange(AnalysisPeriod period) {
    period.firstDay = std::clamp(period.firstDay, 1, 365);
    period.lastDay = std::clamp(period.lastDay, 1, 365);
    const auto hour = [](double value) { return value > 0.0 ? std::min(value, 24.0) : 0.0; };
    period.startHour = hour(period.startHour);
    period.endHour = hour(period.endHour);
    if (period.firstSummerDay > 0) {
        period.firstSummerDay = std::min(period.firstSummerDay, 365);
        period.lastSummerDay = std::clamp(period.lastSummerDay, 1, 365);
    }
    return period;
}

HourlySkyOptions heldToRange(HourlySkyOptions options) {
    options.stepsPerHour = std::clamp(options.stepsPerHour, 1, 60);
    options.albedo = options.albedo > 0.0 ? std::min(options.albedo, 1.0) : 0.0;
    options.northOffset = finiteOffset(options.northOffset);
    return options;
}

class Builder {
public:
    Builder(const WeatherSeries& weather, const AnalysisPeriod& period,
            const HourlySkyOptions& options)
        : m_weather(weather), m_cells(options.northOffset) {
        m_sky.site = weather.site;
        m_sky.period = period;
        m_sky.options = options;
    }

    HourlySky build(SkyThreads threads) {
        const AnalysisPeriod& period = m_sky.period;
        const int days = (period.lastDay - period.firstDay + 365) % 365 + 1;
        for (int d = 0; d < days; ++d) {
            const int day = (period.firstDay - 1 + d) % 365;
            for (int hour = 0; hour < 24; ++hour) {
                walkHour(day, hour);
            }
        }
        lightSkies(threads);
        collectSun();
        m_sky.valid = true;
        return std::move(m_sky);
    }

private:
    Air airOf(std::size_t k) const {
        const float pressure = m_weather.pressure[k];
        const float temperature = m_weather.dryBulb[k];
        return {pressure > 3e4f && pressure < 1.2e5f ? static_cast<double>(pressure)
                                                     : standardPressure(m_weather.site.elevation),
                temperature > -90.0f && temperature < 70.0f ? static_cast<double>(temperature)
                                                            : 10.0};
    }

    int yearOf(std::size_t k) const {
        if (m_sky.options.year != 0) {
            return std::clamp(m_sky.options.year, 1950, 2050);
        }
        const int year = m_weather.year.size() == hoursPerYear ? m_weather.year[k] : 0;
        return year >= 1950 && year <= 2050 ? year : 2001;
    }

    double albedoOf(int month) const {
        const float monthly = m_weather.monthlyAlbedo[static_cast<std::size_t>(month - 1)];
        return m_sky.options.monthlyAlbedo && monthly > 0.0f ? static_cast<double>(monthly)
                                                             : m_sky.options.albedo;
    }

    void walkHour(int day, int hour) {
        const auto k = static_cast<std::size_t>(day * 24 + hour);
        const int stepCount = m_sky.options.stepsPerHour;
        const double stepHours = 1.0 / stepCount;
        const MonthAndDay date = monthAndDay(day);
        const double startOfHour =
            julianDay(yearOf(k), date.month, date.day,
                      hour - m_weather.site.timeZone + m_weather.sampleOffset);
        const Air air = airOf(k);

        m_steps.clear();
        int stepsInPeriod = 0;
        int sunStepsInPeriod = 0;
        for (int s = 0; s < stepCount; ++s) {
            const double middle = (s + 0.5) * stepHours;
            const bool inPeriod = inDailyHours(m_sky.period, day + 1, hour + middle);
            stepsInPeriod += inPeriod ? 1 : 0;
            const SunPosition sun = sunPosition(startOfHour + middle / 24.0, m_weather.site, air);
            if (sun.altitude > 0.0) {
                sunStepsInPeriod += inPeriod ? 1 : 0;
                const double azimuth = sun.azimuth + m_sky.options.northOffset;
                m_steps.push_back({inPeriod,
                                   sun.azimuth,
                                   sun.altitude,
                                   sun.distance,
                                   {static_cast<float>(std::cos(sun.altitude) * std::sin(azimuth)),
                                    static_cast<float>(std::cos(sun.altitude) * std::cos(azimuth)),
                                    static_cast<float>(std::sin(sun.altitude))}});
            }
        }
        if (stepsInPeriod == 0) {
            return;
        }
        const double share = stepsInPeriod * stepHours;
        m_sky.hours += share;
        m_sky.daylightHours += sunStepsInPeriod * stepHours;

        HourlySkyReport& report = m_sky.report;
        const auto valueOrZero = [](float value) {
            return value > 0.0f ? static_cast<double>(value) : 0.0;
        };
        const double direct = valueOrZero(m_weather.directNormal[k]);
        const double diffuse = valueOrZero(m_weather.diffuseHorizontal[k]);
        if (std::isnan(m_weather.directNormal[k]) || std::isnan(m_weather.diffuseHorizontal[k])) {
            ++report.hoursMissing;
        }

        SkyHour skyHour;
        skyHour.hour = static_cast<int>(k);
        skyHour.share = static_cast<float>(share);
        // The part of the hour's energy that falls into the period: by the sun's time where it
        // shines.
        const double energyShare =
            m_steps.empty() ? share : sunStepsInPeriod / static_cast<double>(m_steps.size());
        double directHorizontal = 0.0;
        double placedDiffuse = diffuse * energyShare;
        if (!m_steps.empty()) {
            directHorizontal = placeDirect(direct);
            if (placedDiffuse > 0.0) {
                addSky(direct, diffuse, placedDiffuse);
            }
        } else if (direct > 0.0 || diffuse > 0.0) {
            const double global = valueOrZero(m_weather.globalHorizontal[k]);
            placedDiffuse += std::max(direct > 0.0 ? global - diffuse : 0.0, 0.0) * share;
            if (placedDiffuse > 0.0) {
                m_lit.push_back({m_sky.skyHours.size(), placedDiffuse, true, {}, 0, 0});
            }
            report.directWithoutSun += direct * share;
            report.diffuseWithoutSun += placedDiffuse;
            ++report.hoursWithoutSun;
        }
        double global = static_cast<double>(m_weather.globalHorizontal[k]) * energyShare;
        if (std::isnan(global)) {
            global = placedDiffuse + directHorizontal;
        }
        const double reflected = albedoOf(date.month) * global;
        report.directHorizontal += directHorizontal;
        report.diffuseHorizontal += placedDiffuse;
        report.globalHorizontal += global;
        m_sky.groundReflected += reflected;
        if (!(placedDiffuse > 0.0) && !(direct * energyShare > 0.0) && !(global > 0.0)) {
            return;
        }
        skyHour.diffuse = static_cast<float>(placedDiffuse);
        skyHour.groundReflected = static_cast<float>(reflected);
        m_sky.skyHours.push_back(skyHour);
    }

    /// Shares the direct radiation among the steps; gives what fell on the horizontal in the
    /// period.
    double placeDirect(double direct) {
        const double energy = direct / static_cast<double>(m_steps.size());
        const double stepHours = 1.0 / m_sky.options.stepsPerHour;
        double horizontal = 0.0;
        for (const Step& step : m_steps) {
            if (!step.inPeriod) {
                continue;
            }
            const double sector = step.azimuth / skyGrid::cellWidth;
            const double band = step.altitude / skyGrid::cellWidth;
            const int cell =
                skyGrid::cellIndex(std::min(static_cast<int>(sector), skyGrid::azimuthCount - 1),
                                   std::min(static_cast<int>(band), skyGrid::altitudeCount - 1));
            const bool sunshine = direct >= m_sky.options.sunshineThreshold;
            m_placed.push_back({m_sky.skyHours.size(), cell,
                                interleaved(fraction(sector), fraction(band)), step.direction,
                                static_cast<float>(energy),
                                sunshine ? static_cast<float>(stepHours) : 0.0f});
            horizontal += energy * static_cast<double>(step.direction.z);
            m_sky.report.directNormal += energy;
        }
        return horizontal;
    }

    /// One set of coefficients an hour, from the hour's own means and its mean sun, as the model
    /// was fitted with hourly values; the sun's place itself moves with the steps.
    void addSky(double direct, double diffuse, double placed) {
        XYZf mean{0, 0, 0};
        for (const Step& step : m_steps) {
            mean = {mean.x + step.direction.x, mean.y + step.direction.y,
                    mean.z + step.direction.z};
        }
        const double zenith =
            std::atan2(std::hypot(static_cast<double>(mean.x), static_cast<double>(mean.y)),
                       static_cast<double>(mean.z));
        const double rate = m_sky.options.stepsPerHour / static_cast<double>(m_steps.size());
        const AllWeatherSky coefficients =
            allWeatherSky(direct * rate, diffuse * rate, zenith, m_steps.front().distance);
        m_sky.report.skiesLimited += coefficients.limited ? 1 : 0;
        const std::size_t firstSun = m_suns.size();
        for (const Step& step : m_steps) {
            if (step.inPeriod) {
                m_suns.push_back(step.direction);
            }
        }
        m_lit.push_back({m_sky.skyHours.size(), placed, false, coefficients, firstSun,
                         m_suns.size() - firstSun});
    }

    /// Finds the radiance of all hours' skies, which is most of the work, several at once; they are
    /// added up in the order of time, so that sums are the same for any number of threads.
    void lightSkies(SkyThreads threads) {
        constexpr std::size_t atOnce = 256; // of 5 kB each
        const SkyRadiance radianceOf(m_cells);
        m_sky.patchRadiance.assign(m_sky.skyHours.size() * patchCount, 0.0f);
        std::vector<std::array<float, cellCount>> radiance(std::min(atOnce, m_lit.size()));
        std::vector<double> sum(cellCount, 0.0);
        for (std::size_t first = 0; first < m_lit.size(); first += atOnce) {
            const std::size_t count = std::min(atOnce, m_lit.size() - first);
            const auto light = [&](std::size_t i) {
                radianceOf.find(m_lit[first + i], m_suns, radiance[i]);
                storePatches(m_lit[first + i].skyHour, radiance[i]);
            };
            if (threads == SkyThreads::all) {
                tbb::parallel_for(std::size_t{0}, count, light);
            } else {
                for (std::size_t i = 0; i < count; ++i) {
                    light(i);
                }
            }
            for (std::size_t i = 0; i < count; ++i) {
                for (std::size_t cell = 0; cell < cellCount; ++cell) {
                    sum[cell] += static_cast<double>(radiance[i][cell]);
                }
            }
        }
        m_sky.diffuse.resize(cellCount);
        std::transform(sum.begin(), sum.end(), m_sky.diffuse.begin(),
                       [](double all) { return static_cast<float>(all); });
    }

    void storePatches(std::size_t skyHour, std::span<const float, cellCount> radiance) {
        float* patches = m_sky.patchRadiance.data() + skyHour * patchCount;
        std::array<float, patchCount> solidAngle{};
        for (std::size_t i = 0; i < cellCount; ++i) {
            const std::size_t patch = patchTable.ofCell[i];
            patches[patch] += radiance[i] * m_cells.solidAngle[i];
            solidAngle[patch] += m_cells.solidAngle[i];
        }
        for (std::size_t p = 0; p < patchCount; ++p) {
            patches[p] = solidAngle[p] > 0.0f ? patches[p] / solidAngle[p] : 0.0f;
        }
    }

    /// Groups the placed steps by cell and by hour.
    void collectSun() {
        std::vector<int> sunCellOfCell(cellCount, -1);
        for (const PlacedStep& step : m_placed) {
            sunCellOfCell[static_cast<std::size_t>(step.cell)] = 0;
        }
        for (std::size_t i = 0; i < cellCount; ++i) {
            if (sunCellOfCell[i] == 0) {
                sunCellOfCell[i] = static_cast<int>(m_sky.sunCells.size());
                m_sky.sunCells.push_back({});
                m_sky.sunCells.back().cell = static_cast<int>(i);
            }
        }
        collectHours(sunCellOfCell);

        std::stable_sort(m_placed.begin(), m_placed.end(),
                         [](const PlacedStep& a, const PlacedStep& b) {
                             return a.cell != b.cell ? a.cell < b.cell : a.place < b.place;
                         });
        m_sky.sunSteps.reserve(m_placed.size());
        for (std::size_t i = 0; i < m_placed.size();) {
            SunCell& cell = m_sky.sunCells[static_cast<std::size_t>(
                sunCellOfCell[static_cast<std::size_t>(m_placed[i].cell)])];
            cell.firstStep = static_cast<int>(i);
            std::array<double, 3> energy{};
            std::array<double, 3> time{};
            double normal = 0.0;
            double hours = 0.0;
            const int index = m_placed[i].cell;
            for (; i < m_placed.size() && m_placed[i].cell == index; ++i) {
                const PlacedStep& step = m_placed[i];
                const std::array<double, 3> direction{static_cast<double>(step.direction.x),
                                                      static_cast<double>(step.direction.y),
                                                      static_cast<double>(step.direction.z)};
                const auto power = static_cast<double>(step.directNormal);
                for (std::size_t axis = 0; axis < 3; ++axis) {
                    energy[axis] += power * direction[axis];
                    time[axis] += direction[axis];
                }
                normal += power;
                hours += static_cast<double>(step.sunHours);
                m_sky.sunSteps.push_back({step.place,
                                          {static_cast<float>(power * direction[0]),
                                           static_cast<float>(power * direction[1]),
                                           static_cast<float>(power * direction[2])},
                                          step.sunHours});
            }
            const std::array<double, 3>& aim = normal > 0.0 ? energy : time;
            const double length = std::sqrt(aim[0] * aim[0] + aim[1] * aim[1] + aim[2] * aim[2]);
            cell.stepCount = static_cast<int>(i) - cell.firstStep;
            cell.direction = {static_cast<float>(aim[0] / length),
                              static_cast<float>(aim[1] / length),
                              static_cast<float>(aim[2] / length)};
            cell.energy = {static_cast<float>(energy[0]), static_cast<float>(energy[1]),
                           static_cast<float>(energy[2])};
            cell.directNormal = static_cast<float>(normal);
            cell.sunHours = static_cast<float>(hours);
        }
    }

    /// The direct radiation of each hour by cell; the placed steps are still in the order of time.
    void collectHours(const std::vector<int>& sunCellOfCell) {
        std::size_t next = 0;
        for (std::size_t h = 0; h < m_sky.skyHours.size(); ++h) {
            SkyHour& hour = m_sky.skyHours[h];
            hour.firstBeam = static_cast<int>(m_sky.beams.size());
            while (next < m_placed.size() && m_placed[next].skyHour <= h) {
                const PlacedStep& step = m_placed[next++];
                if (step.skyHour < h || !(step.directNormal > 0.0f)) {
                    continue;
                }
                const int sunCell = sunCellOfCell[static_cast<std::size_t>(step.cell)];
                const bool sameCell = static_cast<int>(m_sky.beams.size()) > hour.firstBeam &&
                                      m_sky.beams.back().sunCell == sunCell;
                if (!sameCell) {
                    m_sky.beams.push_back({sunCell, {0, 0, 0}});
                }
                XYZf& energy = m_sky.beams.back().energy;
                energy = {energy.x + step.directNormal * step.direction.x,
                          energy.y + step.directNormal * step.direction.y,
                          energy.z + step.directNormal * step.direction.z};
            }
            hour.beamCount = static_cast<int>(m_sky.beams.size()) - hour.firstBeam;
        }
    }

    const WeatherSeries& m_weather;
    SkyCells m_cells;
    HourlySky m_sky;
    std::vector<Step> m_steps;
    std::vector<PlacedStep> m_placed;
    std::vector<LitSky> m_lit;
    std::vector<XYZf> m_suns; ///< of the lit skies
};

} // namespace

int skyPatches::ofCell(int cell) {
    return cell >= 0 && cell < skyGrid::cellCount
               ? patchTable.ofCell[static_cast<std::size_t>(cell)]
               : -1;
}

SkyCells::SkyCells(double northOffset)
    : centre(cellCount), momentX(cellCount), momentY(cellCount), momentZ(cellCount),
      solidAngle(cellCount) {
    constexpr double width = skyGrid::cellWidth;
    const double north = finiteOffset(northOffset);
    for (std::size_t band = 0; band < bandCount; ++band) {
        const double h0 = static_cast<double>(band) * width;
        const double h1 = h0 + width;
        // Over the altitude: integrals of cos, cos^2 and sin cos.
        const double plain = std::sin(h1) - std::sin(h0);
        const double level = 0.5 * width + 0.25 * (std::sin(2.0 * h1) - std::sin(2.0 * h0));
        const double upward = 0.5 * (std::sin(h1) * std::sin(h1) - std::sin(h0) * std::sin(h0));
        const double middle = 0.5 * (h0 + h1);
        for (std::size_t sector = 0; sector < sectorCount; ++sector) {
            const double a0 = static_cast<double>(sector) * width + north;
            const double a1 = a0 + width;
            const double azimuth = 0.5 * (a0 + a1);
            const std::size_t i = band * sectorCount + sector;
            centre[i] = {static_cast<float>(std::cos(middle) * std::sin(azimuth)),
                         static_cast<float>(std::cos(middle) * std::cos(azimuth)),
                         static_cast<float>(std::sin(middle))};
            momentX[i] = static_cast<float>(level * (std::cos(a0) - std::cos(a1)));
            momentY[i] = static_cast<float>(level * (std::sin(a1) - std::sin(a0)));
            momentZ[i] = static_cast<float>(upward * width);
            solidAngle[i] = static_cast<float>(plain * width);
        }
    }
}

HourlySky buildHourlySky(const WeatherSeries& weather, const AnalysisPeriod& period,
                         const HourlySkyOptions& options, SkyThreads threads) {
    for (const std::vector<float>* series :
         {&weather.dryBulb, &weather.pressure, &weather.globalHorizontal, &weather.directNormal,
          &weather.diffuseHorizontal}) {
        if (series->size() != hoursPerYear) {
            return {};
        }
    }
    return Builder(weather, heldToRange(period), heldToRange(options)).build(threads);
}

} // namespace insolate
