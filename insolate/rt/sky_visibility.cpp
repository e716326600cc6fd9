#include <insolate/rt/ray_caster_abilities.h>
#include <insolate/rt/sky_direction_table.h>
#include <insolate/rt/sky_visibility.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace insolate {

namespace {

constexpr double sectorsPerRadian = 1.0 / skyGrid::cellWidth;

// Squared lengths outside of this leave the range in which the wide loops' error bounds hold.
constexpr double shortestSquared = 0.25;
constexpr double longestSquared = 4.0;

/// Notes how the directions lie in their cells, whatever the north offset they were made for.
void measureReach(SkyDirectionTable& table) {
    SkyReach& reach = table.reach;
    bool first = true;
    for (int altitude = 0; altitude < skyGrid::altitudeCount; ++altitude) {
        for (int azimuth = 0; azimuth < skyGrid::azimuthCount; ++azimuth) {
            if (!table.cells.contains(azimuth, altitude)) {
                continue;
            }
            const XYZf& d =
                table.directions[static_cast<std::size_t>(skyGrid::cellIndex(azimuth, altitude))];
            const double x = d.x;
            const double y = d.y;
            const double z = d.z;
            const double squared = x * x + y * y + z * z;
            if (!(squared >= shortestSquared && squared <= longestSquared)) {
                table.regular = false;
                return;
            }
            table.largestComponent =
                std::max({table.largestComponent, std::fabs(d.x), std::fabs(d.y), std::fabs(d.z)});
            table.largestLength = std::max(table.largestLength,
                                           static_cast<float>(std::sqrt(squared) * (1 + 0x1p-20)));
            const double turned = std::atan2(y, x) * sectorsPerRadian;
            const double band = std::atan2(z, std::hypot(x, y)) * sectorsPerRadian - altitude;
            if (first) {
                const double origin = std::fmod(turned + azimuth + 0.5, skyGrid::azimuthCount);
                reach.azimuthOrigin =
                    static_cast<float>(origin < 0 ? origin + skyGrid::azimuthCount : origin);
            }
            const double offset =
                std::remainder(static_cast<double>(reach.azimuthOrigin) - turned - azimuth - 0.5,
                               skyGrid::azimuthCount) +
                0.5;
            const auto low = [](double value) {
                return std::nextafter(static_cast<float>(value), -1e9f);
            };
            const auto high = [](double value) {
                return std::nextafter(static_cast<float>(value), 1e9f);
            };
            reach.azimuthMin = first ? low(offset) : std::min(reach.azimuthMin, low(offset));
            reach.azimuthMax = first ? high(offset) : std::max(reach.azimuthMax, high(offset));
            reach.altitudeMin = first ? low(band) : std::min(reach.altitudeMin, low(band));
            reach.altitudeMax = first ? high(band) : std::max(reach.altitudeMax, high(band));
            first = false;
        }
    }
    table.regular = reach.regular();
}

std::shared_ptr<const SkyDirectionTable> emptyTable() {
    static const std::shared_ptr<const SkyDirectionTable> table =
        std::make_shared<SkyDirectionTable>();
    return table;
}

/// The question that this thread has put to a caster; null outside of one.
struct Question {
    const GetTransparencyValueOnRay* caster;
    SkyVisibilityQuery* offer = nullptr;
    const OcclusionIndex* index = nullptr;
};
thread_local Question* askedNow = nullptr;

} // namespace

RayCasterAbilities abilitiesOf(GetTransparencyValueOnRay& caster) {
    // A host may throw, or ask for another mask before it answers.
    struct Asking {
        explicit Asking(Question& question) : before(std::exchange(askedNow, &question)) {}
        Asking(const Asking&) = delete;
        Asking& operator=(const Asking&) = delete;
        ~Asking() { askedNow = before; }
        Question* before;
    };
    Question question{&caster};
    const Asking asking(question);
    const bool doubleSided = caster.getSurfaceDoubleSided();
    return {doubleSided, question.offer, question.index};
}

void offerIndex(const GetTransparencyValueOnRay& caster, const OcclusionIndex& index) {
    if (askedNow != nullptr && askedNow->caster == &caster) {
        askedNow->index = &index;
    }
}

void SkyVisibilityQuery::offerWholeSkies(const GetTransparencyValueOnRay& caster) {
    if (askedNow != nullptr && askedNow->caster == &caster) {
        askedNow->offer = this;
    }
}

SkyDirections::SkyDirections() : m_shared(emptyTable()) {}

SkyDirections::SkyDirections(std::span<const XYZf, skyGrid::cellCount> directions,
                             const SkyCellSet& cells) {
    auto table = std::make_shared<SkyDirectionTable>();
    table->cells = cells;
    table->cells &= SkyCellSet::all();
    for (int altitude = 0; altitude < skyGrid::altitudeCount; ++altitude) {
        const auto band = static_cast<std::size_t>(altitude);
        for (int azimuth = 0; azimuth < skyGrid::azimuthCount; ++azimuth) {
            const auto i = static_cast<std::size_t>(azimuth);
            if (!table->cells.contains(azimuth, altitude)) {
                continue;
            }
            const auto cell = static_cast<std::size_t>(skyGrid::cellIndex(azimuth, altitude));
            table->directions[cell] = directions[cell];
            table->inverse[cell] = inverseDirection(directions[cell]);
            table->x[band][i] = directions[cell].x;
            table->y[band][i] = directions[cell].y;
            table->z[band][i] = directions[cell].z;
        }
    }
    measureReach(*table);
    m_shared = std::move(table);
}

const SkyCellSet& SkyDirections::cells() const {
    return m_shared->cells;
}

const XYZf& SkyDirections::direction(int azimuth, int altitude) const {
    return m_shared->directions[static_cast<std::size_t>(skyGrid::cellIndex(azimuth, altitude))];
}

void SkyVisibilityQuery::visibleSkies(const XYZf& origin, std::span<const SkyDirections> directions,
                                      std::span<SkyCellSet> cells) {
    for (std::size_t i = 0; i < std::min(directions.size(), cells.size()); ++i) {
        cells[i] = visibleSky(origin, directions[i], cells[i]);
    }
}

void SkyVisibilityQuery::visibleSkies(std::span<const XYZf> origins,
                                      std::span<const SkyDirections> directions,
                                      std::span<SkyCellSet> cells) {
    const std::size_t sets = directions.size();
    const std::size_t count = sets == 0 ? 0 : std::min(origins.size(), cells.size() / sets);
    for (std::size_t i = 0; i < count; ++i) {
        visibleSkies(origins[i], directions, cells.subspan(i * sets, sets));
    }
}

} // namespace insolate
