// How the places at the edges of shadows are found, and how many rays they get.
//
// With K rays that fill a place evenly the share of it that is seen is off by about K^-0.75: an
// edge crosses the cells of some sqrt(K) of them. To make the sum of e^2 K^-1.5 small with few rays
// in all, a place whose error is e gets rays as e^0.8. One limit decides for all places: those
// below it keep their first ray, those above it get rays by how far they are above it. The limit is
// the highest that keeps the tolerance, and is read from a histogram of the errors.
#include <insolate/hourly/shadow_edges.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <utility>

namespace insolate {
namespace {

constexpr int sectors = skyGrid::azimuthCount;
constexpr std::size_t halfBands = 2 * skyGrid::altitudeCount;

// The constants below are measured by `bench_validation <weather folder> <plot.svg> totals`.

/// These times what a place brings, squared, summed and rooted, bound the error of nearly 99
/// sensors in a hundred: with a tolerance of 1 % the root mean square is 0.2 to 0.5 % of the total.
/// A sixth less leaves 97.5 sensors in a hundred within 1 % in place of 98.9, for three quarters of
/// the further rays. The suns of one edge err alike more often than its sky, whose rays are spread:
/// 0.42 for the sky and 0.95 for the sun leave 98.4, for as many rays; 0.42 and 1.2 99.0, for an
/// eighth more. A place that differs only from one across its corner is seldom cut by the edge:
/// twice its factor leaves 99.0, for 5 % more rays. Half of the ground's leaves 97.8, for a seventh
/// fewer of the further rays; twice 99.0, for a third more.
constexpr float halfSkyFactor = 0.36f; ///< half a cell's sky is half of the cell's
constexpr float sunFactor = 1.1f;
constexpr float cornerFactor = 0.3f;
constexpr float groundFactor = 0.7f;

/// Half of what the cosine spans in half a cell, about [sine].
constexpr float halfReach = 0.04f;

/// Places with less than this share of the tolerance, squared, are not asked again: they would be
/// the last, and hundreds of them make no difference. A quarter of it changes nothing, four times
/// leave 0.3 sensors in a hundred less within 1 %, for 1 % fewer rays.
constexpr float smallError = 1.0f / 2048.0f;

/// The rays of a place whose squared error is at least 2^i times the limit, and what is left of
/// that.
struct Step {
    std::uint32_t rays;
    float left;
};
constexpr std::size_t stepCount = 18;
using Schedule = std::array<Step, stepCount>;

/// @param factor of what is left with one ray, were the first one not as good as several
constexpr Schedule scheduleOf(const std::array<std::uint32_t, stepCount>& rays, double factor) {
    Schedule schedule{};
    for (std::size_t i = 0; i < stepCount; ++i) {
        const double k = rays[i];
        double root = k; // by Newton's steps, since std::sqrt is not constexpr
        for (int n = 0; n < 20; ++n) {
            root = 0.5 * (root + k / root);
        }
        schedule[i] = {rays[i], static_cast<float>(factor / (k * root))};
    }
    return schedule;
}

/// By kind. Rays as e^0.8 are 2^0.4 times as many for twice the squared error, up to the points of
/// the lattice; those to the sun end with its steps. The first ray of the sky's halves and of the
/// ground's pieces is one of a lattice, and better than a single one; the sun's is not. Fewer rays
/// than these at first would gain less for each.
constexpr std::array<Schedule, 3> schedules{
    scheduleOf({4, 5, 7, 9, 12, 16, 21, 27, 36, 47, 62, 64, 64, 64, 64, 64, 64, 64}, 2.0),
    scheduleOf({4, 4, 4, 4, 6, 8, 10, 14, 18, 24, 31, 41, 54, 72, 95, 125, 165, 217}, 0.8),
    scheduleOf({4, 4, 4, 6, 8, 10, 13, 17, 23, 30, 40, 53, 64, 64, 64, 64, 64, 64}, 2.0)};

/// The numbers of the sun's rays, each once.
constexpr auto sunFanSizes = [] {
    std::array<std::size_t, stepCount> sizes{};
    std::size_t count = 0;
    for (const Step& step : schedules[1]) {
        if (count == 0 || sizes[count - 1] != step.rays) {
            sizes[count++] = step.rays;
        }
    }
    return sizes;
}();

/// Fewer rays than these agree too often though an edge passes between them. With this first third
/// a sensor gets 14 % (courts) to 36 % (facades) fewer rays at the same error than without. Two
/// leave 1.4 sensors in a hundred less within 1 %, for 6 % fewer rays; eight 0.7 more, for 6 %
/// more.
constexpr std::size_t fewestAtFirst = 4;

/// How many of a fan's rays are asked before the others.
std::size_t countAtFirst(std::size_t rays) {
    return std::min(rays, std::max(fewestAtFirst, (rays + 2) / 3));
}

/// Parts of the compass, of 20 degrees: rays of one of them are asked one after the other.
constexpr std::size_t columnCount = 18;

/// Squared errors, summed by kind and by the power of two of each.
class ErrorHistogram {
public:
    static constexpr int binCount = 64;

    /// Errors below a 2^-binCount-th of the largest fall into the lowest bin.
    explicit ErrorHistogram(float largest) : m_first(exponentOf(largest) - binCount + 1) {}

    std::size_t binOf(float value) const {
        return static_cast<std::size_t>(std::max(exponentOf(value) - m_first, 0));
    }
    void add(std::size_t kind, float value) {
        m_sums[kind][binOf(value)] += value;
        m_sum += value;
    }
    /// The highest bin from which on places need further rays so that all together leave no more
    /// than allowed.
    std::size_t limit(float allowed) const {
        std::size_t limit = binCount;
        float left = m_sum;
        while (left > allowed && limit > 0) {
            --limit;
            left = m_sum;
            for (std::size_t kind = 0; kind < schedules.size(); ++kind) {
                for (std::size_t bin = limit; bin < binCount; ++bin) {
                    const Step& step = schedules[kind][std::min(bin - limit, stepCount - 1)];
                    left -= m_sums[kind][bin] * (1.0f - step.left);
                }
            }
        }
        return limit;
    }

private:
    static int exponentOf(float value) {
        return static_cast<int>(std::bit_cast<std::uint32_t>(value) >> 23);
    }
    int m_first;
    std::array<std::array<float, binCount>, 3> m_sums{};
    float m_sum = 0.0f;
};

/// The sectors of a half band, a bit each.
struct Row {
    std::uint64_t low = 0, high = 0;

    friend Row operator&(const Row& a, const Row& b) { return {a.low & b.low, a.high & b.high}; }
    friend Row operator|(const Row& a, const Row& b) { return {a.low | b.low, a.high | b.high}; }
    Row without(const Row& other) const { return {low & ~other.low, high & ~other.high}; }
    /// The sectors beside these.
    Row beside() const {
        return {low << 1 | high >> 7 | low >> 1 | high << 63,
                (high << 1 | low >> 63 | high >> 1 | low << 7) & 0xFF};
    }
};

/// Calls use(cell) for the sectors of a row in a band.
template <typename Use>
void forEach(const Row& row, std::size_t band, Use&& use) {
    for (std::uint64_t bits = row.low; bits != 0; bits &= bits - 1) {
        use(band * sectors + static_cast<std::size_t>(std::countr_zero(bits)));
    }
    for (std::uint64_t bits = row.high; bits != 0; bits &= bits - 1) {
        use(band * sectors + 64 + static_cast<std::size_t>(std::countr_zero(bits)));
    }
}

Row rowOf(const std::array<SkyCellSet, 2>& sets, std::size_t halfBand) {
    const SkyCellSet& set = sets[halfBand % 2];
    return {set.words[halfBand / 2 * 2], set.words[halfBand / 2 * 2 + 1]};
}

} // namespace

EdgeTables::EdgeTables(const HourlySky& sky, const FirstRays& first,
                       std::span<const GroundRays> ground)
    : m_sky(&sky), m_first(&first), m_groundRays(ground), m_sunCellOf(skyGrid::cellCount, -1) {
    const auto x = [](std::size_t k) { return (static_cast<double>(49 * k % 64) + 0.5) / 64.0; };
    const auto y = [](std::size_t k) { return (static_cast<double>(37 * k % 64) + 0.5) / 64.0; };
    const auto angle = [](double value) {
        return Angle{static_cast<float>(std::sin(value)), static_cast<float>(std::cos(value))};
    };
    for (std::size_t halfBand = 0; halfBand < halfBands; ++halfBand) {
        for (std::size_t k = 0; k < fanSize; ++k) {
            const double altitude =
                (static_cast<double>(halfBand) + y(k)) * 0.5 * skyGrid::cellWidth;
            const double azimuth = x(k) * skyGrid::cellWidth;
            const double level = std::cos(altitude);
            m_skyFans.push_back({{static_cast<float>(level * std::sin(azimuth)),
                                  static_cast<float>(level * std::cos(azimuth)),
                                  static_cast<float>(std::sin(altitude))},
                                 static_cast<float>(level)});
        }
    }
    const double north = sky.options.northOffset;
    for (std::size_t sector = 0; sector < m_sectors.size(); ++sector) {
        m_sectors[sector] = angle(static_cast<double>(sector) * skyGrid::cellWidth + north);
    }
    for (std::size_t cell = 0; cell < static_cast<std::size_t>(skyGrid::cellCount); ++cell) {
        const std::size_t band = cell / sectors;
        const double low = static_cast<double>(band) * skyGrid::cellWidth;
        const double high = low + 0.5 * skyGrid::cellWidth;
        const double left = static_cast<double>(cell % sectors) * skyGrid::cellWidth + north;
        const double right = left + skyGrid::cellWidth;
        const double level =
            0.5 * (high - low) + 0.25 * (std::sin(2.0 * high) - std::sin(2.0 * low));
        const double up = 0.5 * (std::sin(high) * std::sin(high) - std::sin(low) * std::sin(low));
        m_lowerMoments.push_back({static_cast<float>(level * (std::cos(left) - std::cos(right))),
                                  static_cast<float>(level * (std::sin(right) - std::sin(left))),
                                  static_cast<float>(up * skyGrid::cellWidth)});
    }
    for (const GroundRays& rays : ground) {
        GroundFans& fans = m_ground.emplace_back();
        const double width = 2.0 * std::numbers::pi / std::max(rays.sectors, 1);
        for (int band = 0; band < rays.bands; ++band) {
            for (std::size_t k = 0; k < fanSize; ++k) {
                const double sine = (band + y(k)) / rays.bands;
                const double level = std::sqrt(1.0 - sine * sine);
                fans.rays.push_back({{static_cast<float>(level * std::sin(x(k) * width)),
                                      static_cast<float>(level * std::cos(x(k) * width)),
                                      static_cast<float>(-sine)},
                                     1.0f});
            }
        }
        for (int sector = 0; sector < rays.sectors; ++sector) {
            fans.sectors.push_back(angle(sector * width + north));
        }
    }
    for (std::size_t j = 0; j < sky.sunCells.size(); ++j) {
        const SunCell& sun = sky.sunCells[j];
        m_sunCellOf[static_cast<std::size_t>(sun.cell)] = static_cast<std::int16_t>(j);
        const auto [lower, upper] = FirstRays::stepsOf(sky, sun);
        m_sunFans.push_back({addSunFans(sun, lower), addSunFans(sun, upper)});
    }
}

EdgeTables::SunFans EdgeTables::addSunFans(const SunCell& cell, std::span<const SunStep> steps) {
    const SunFans fans{steps.size(), m_sunRays.size()};
    for (const std::size_t planned : sunFanSizes) {
        const std::size_t count = std::min(planned, steps.size());
        const std::size_t first = m_sunRays.size();
        for (std::size_t ray = 0; ray < count; ++ray) {
            XYZf energy{0, 0, 0};
            float hours = 0.0f;
            const std::size_t begin = ray * steps.size() / count;
            const std::size_t end = (ray + 1) * steps.size() / count;
            const std::span<const SunStep> own = steps.subspan(begin, end - begin);
            for (const SunStep& step : own) {
                energy = sum(energy, step.energy);
                hours += step.sunHours;
            }
            const float length = vectorLength(energy);
            m_sunRays.push_back({length > 0.0f ? scaled(energy, 1.0f / length)
                                               : FirstRays::towards(*m_sky, cell, own),
                                 length, hours});
        }
        putRimFirst(std::span(m_sunRays).subspan(first), cell);
        if (planned >= steps.size()) {
            break;
        }
    }
    return fans;
}

/// Lets the rays at the rim of a place go first, each the farthest one in another direction. The
/// edge of a shadow that passes between any of the rays then parts these too, but for a few beside
/// them. A first third that is spread evenly leaves out what lies near the rim, where the year's
/// highest suns crowd: it left 97.9 sensors in a hundred within 1 % in place of 98.4, and in courts
/// it lost a tenth of a percent of the total on average.
void EdgeTables::putRimFirst(std::span<SunRay> rays, const SunCell& cell) const {
    const int sector = cell.cell % sectors;
    const int band = cell.cell / sectors;
    const double azimuth = (sector + 0.5) * skyGrid::cellWidth + m_sky->options.northOffset;
    const double altitude = (band + 0.5) * skyGrid::cellWidth;
    for (std::size_t i = 0; i < countAtFirst(rays.size()); ++i) {
        const double turn = 2.0 * std::numbers::pi * (static_cast<double>(i) + 0.5) /
                            static_cast<double>(countAtFirst(rays.size()));
        const double aside = std::cos(turn);
        const double up = std::sin(turn);
        const double inwards = -up * std::sin(altitude);
        const XYZf towards{
            static_cast<float>(aside * std::cos(azimuth) + inwards * std::sin(azimuth)),
            static_cast<float>(-aside * std::sin(azimuth) + inwards * std::cos(azimuth)),
            static_cast<float>(up * std::cos(altitude))};
        // Rays without radiation are not asked.
        const auto reach = [&](const SunRay& ray) {
            return std::pair(ray.energy > 0.0f, dotProduct(towards, ray.direction));
        };
        const auto place = rays.begin() + static_cast<std::ptrdiff_t>(i);
        std::iter_swap(place,
                       std::max_element(place, rays.end(), [&](const SunRay& a, const SunRay& b) {
                           return reach(a) < reach(b);
                       }));
    }
}

std::span<const EdgeTables::SunRay> EdgeTables::sunRays(std::size_t sunCell, std::size_t half,
                                                        std::size_t planned) const {
    const SunFans& fans = m_sunFans[sunCell][half];
    const std::size_t count = std::min(planned, fans.steps);
    std::size_t first = fans.first;
    for (std::size_t i = 0; sunFanSizes[i] < count; ++i) {
        first += sunFanSizes[i];
    }
    return std::span(m_sunRays).subspan(first, count);
}

/// Adds the halves of cells that are seen differently from one beside, above or below them.
void ShadowEdges::addSky() {
    std::array<Row, halfBands + 2> clear; // with an empty one before and after
    std::array<Row, halfBands + 2> hidden;
    for (std::size_t i = 0; i < halfBands; ++i) {
        clear[i + 1] = rowOf(m_first.free, i);
        hidden[i + 1] = (rowOf(m_first.asked, i) | rowOf(m_first.alone, i)).without(clear[i + 1]);
    }
    const auto doubtful = [&](std::size_t i) {
        const Row upDownHidden = hidden[i] | hidden[i + 2];
        const Row upDownClear = clear[i] | clear[i + 2];
        return (clear[i + 1] & (upDownHidden | hidden[i + 1].beside())) |
               (hidden[i + 1] & (upDownClear | clear[i + 1].beside()));
    };
    const auto atCorner = [&](std::size_t i) {
        return (clear[i + 1] & (hidden[i] | hidden[i + 2]).beside()) |
               (hidden[i + 1] & (clear[i] | clear[i + 2]).beside());
    };
    const std::vector<float>& diffuse = m_tables.sky().diffuse;
    for (std::size_t band = 0; band < skyGrid::altitudeCount; ++band) {
        std::array<Row, 2> rows{doubtful(2 * band), doubtful(2 * band + 1)};
        // An edge that a single ray does not meet may pass either half.
        const Row single = rowOf(m_first.alone, 2 * band) | rowOf(m_first.alone, 2 * band + 1);
        const Row both = (rows[0] | rows[1]) & single;
        const Row withSun{m_tables.first().withSun.words[2 * band],
                          m_tables.first().withSun.words[2 * band + 1]};
        for (std::size_t half = 0; half < 2; ++half) {
            const Row beside = rows[half] | both;
            forEach(beside, band, [&](std::size_t cell) {
                add(Kind::Sky, half, cell, halfSkyFactor * m_first.weight[cell] * diffuse[cell]);
            });
            const auto addSun = [&](std::size_t cell, float factor) {
                const auto j = static_cast<std::size_t>(m_tables.sunCellOf(cell));
                const FirstRays::Sun& sun = m_tables.first().sun[half];
                const XYZf energy{sun.energyX[j], sun.energyY[j], sun.energyZ[j]};
                add(Kind::Sun, half, j,
                    factor * (m_sides == Sides::One ? dotProduct(m_normal, energy)
                                                    : received(energy, vectorLength(energy))));
            };
            const Row corners = (atCorner(2 * band + half) & withSun).without(beside);
            m_suns[half].words[2 * band] = (beside.low & withSun.low) | corners.low;
            m_suns[half].words[2 * band + 1] = (beside.high & withSun.high) | corners.high;
            forEach(beside & withSun, band, [&](std::size_t cell) { addSun(cell, sunFactor); });
            forEach(corners, band, [&](std::size_t cell) { addSun(cell, cornerFactor); });
        }
    }
}

/// Adds the suns that the surface's own plane may cut. The first look takes the sun of half a cell
/// as one vector, and loses what single steps bring in front of the plane when others lie behind
/// it. These losses have one sign: a place's squared error is its loss times the loss of all, so
/// that the sum of these is the square of the whole loss.
void ShadowEdges::addCutSuns() {
    if (m_sides != Sides::One) {
        return;
    }
    SkyCellSet behind = SkyCellSet::all();
    SkyCellSet free;
    for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
        behind.words[word] &= ~m_first.front.words[word];
        free.words[word] = m_first.free[0].words[word] | m_first.free[1].words[word];
    }
    SkyCellSet cut = behind.grown();
    cut &= m_first.front.grown();
    cut &= free.grown();
    cut &= m_tables.first().withSun;
    const std::size_t first = m_doubtCount;
    float lost = 0.0f;
    Rays::forEach(cut, [&](std::size_t cell, int azimuth, int altitude) {
        const auto j = static_cast<std::size_t>(m_tables.sunCellOf(cell));
        for (std::size_t half = 0; half < 2; ++half) {
            if (m_suns[half].contains(azimuth, altitude)) {
                continue; // its fan finds that too
            }
            const FirstRays::Sun& sun = m_tables.first().sun[half];
            const XYZf energy{sun.energyX[j], sun.energyY[j], sun.energyZ[j]};
            const float x = std::abs(dotProduct(m_normal, energy));
            const float reach = halfReach * vectorLength(energy);
            if (x < reach) {
                const float loss = (reach - x) * (reach - x) / (4.0f * reach);
                lost += loss;
                m_doubts[m_doubtCount++] = {loss, static_cast<std::uint16_t>(j),
                                            static_cast<std::uint8_t>(half), Kind::Sun};
            }
        }
    });
    m_sums[static_cast<std::size_t>(Kind::Sun)] += lost * lost;
    std::size_t count = first;
    for (std::size_t i = first; i < m_doubtCount; ++i) {
        m_doubts[i].error *= lost;
        if (m_doubts[i].error > m_least) {
            m_doubts[count++] = m_doubts[i];
        }
    }
    m_doubtCount = count;
}

/// Adds the pieces of the ground that are seen differently from one beside, above or below them.
void ShadowEdges::addGround() {
    if (m_first.ground == nullptr) {
        return;
    }
    const auto columns = static_cast<std::size_t>(m_first.ground->sectors);
    const std::vector<float>& weights = *m_first.groundWeights;
    const std::vector<float>& visible = *m_first.groundVisible;
    // What stands on the ground hides the sky above its foot.
    const auto isHiddenAbove = [&](std::size_t sector) {
        const auto azimuth =
            static_cast<int>((2 * sector + 1) * skyGrid::azimuthCount / columns / 2);
        return !m_first.free[0].contains(azimuth, 0) && !m_first.free[1].contains(azimuth, 0);
    };
    for (std::size_t i = 0; i < weights.size(); ++i) {
        if (!(weights[i] > 0.0f)) {
            continue;
        }
        const auto differs = [&](std::size_t other) {
            return weights[other] > 0.0f && visible[other] != visible[i];
        };
        const std::size_t sector = i % columns;
        if (differs(sector == 0 ? i + columns - 1 : i - 1) ||
            differs(sector + 1 == columns ? i + 1 - columns : i + 1) ||
            (i >= columns ? differs(i - columns) : (visible[i] > 0.0f) == isHiddenAbove(sector)) ||
            (i + columns < weights.size() && differs(i + columns))) {
            add(Kind::Ground, 0, i, groundFactor * weights[i] * m_first.groundLight);
        }
    }
}

std::span<const ShadowEdges::Fan> ShadowEdges::lookAgain(const Rays& rays,
                                                         const EdgeTolerance& tolerance) {
    const auto squared = [](float value) { return value * value; };
    const EdgeTolerance allowed{squared(tolerance.total), squared(tolerance.sky),
                                squared(tolerance.beam)};
    m_least = std::min({allowed.total, allowed.sky, allowed.beam}) * smallError;
    addSky();
    addGround();
    addCutSuns();
    if (m_sums[0] + m_sums[1] + m_sums[2] <= allowed.total && m_sums[0] <= allowed.sky &&
        m_sums[1] <= allowed.beam) {
        return {};
    }
    chooseFans(allowed);
    askFans(rays);
    return m_fans;
}

/// Gives the heaviest doubtful places as many rays as the tolerances (squared) ask for.
void ShadowEdges::chooseFans(const EdgeTolerance& allowed) {
    float largest = 0.0f;
    for (std::size_t i = 0; i < m_doubtCount; ++i) {
        largest = std::max(largest, m_doubts[i].error);
    }
    const auto limitOf = [&](auto&& isMeant, float most) {
        ErrorHistogram histogram(largest);
        for (std::size_t i = 0; i < m_doubtCount; ++i) {
            const Doubt& doubt = m_doubts[i];
            if (isMeant(doubt.kind)) {
                histogram.add(static_cast<std::size_t>(doubt.kind), doubt.error);
            }
        }
        return histogram.limit(most);
    };
    std::array<std::size_t, 3> limits;
    limits.fill(limitOf([](Kind) { return true; }, allowed.total));
    for (const Kind kind : {Kind::Sky, Kind::Sun}) {
        if (const float most = kind == Kind::Sky ? allowed.sky : allowed.beam;
            most < std::numeric_limits<float>::infinity()) {
            std::size_t& limit = limits[static_cast<std::size_t>(kind)];
            limit = std::min(limit, limitOf([&](Kind other) { return other == kind; }, most));
        }
    }
    const ErrorHistogram bins(largest);
    // Rays that go together are asked faster: column by column, the ground after the sky.
    std::array<std::uint16_t, 2 * columnCount + 1> ends{};
    const auto isChosen = [&](const Doubt& doubt) {
        return bins.binOf(doubt.error) >= limits[static_cast<std::size_t>(doubt.kind)];
    };
    for (std::size_t i = 0; i < m_doubtCount; ++i) {
        if (isChosen(m_doubts[i])) {
            ++ends[columnOf(m_doubts[i]) + 1];
        }
    }
    std::partial_sum(ends.begin(), ends.end(), ends.begin());
    m_fans.resize(ends.back());
    for (std::size_t i = 0; i < m_doubtCount; ++i) {
        const Doubt& doubt = m_doubts[i];
        if (isChosen(doubt)) {
            const auto kind = static_cast<std::size_t>(doubt.kind);
            const std::size_t above = bins.binOf(doubt.error) - limits[kind];
            m_fans[ends[columnOf(doubt)]++] = {
                .kind = doubt.kind,
                .half = doubt.half,
                .place = doubt.place,
                .planned = schedules[kind][std::min(above, stepCount - 1)].rays};
        }
    }
}

/// Which of the columns of the sky a place lies in, or of those of the ground behind them.
std::size_t ShadowEdges::columnOf(const Doubt& doubt) const {
    if (doubt.kind == Kind::Ground) {
        const auto count = static_cast<std::size_t>(m_first.ground->sectors);
        return columnCount + doubt.place % count * columnCount / count;
    }
    const std::size_t cell =
        doubt.kind == Kind::Sky ? doubt.place
                                : static_cast<std::size_t>(m_tables.first().cellOfSun[doubt.place]);
    return cell % sectors / (sectors / columnCount);
}

/// How many samples make up a fan.
std::size_t ShadowEdges::samplesOf(const Fan& fan) const {
    return fan.kind == Kind::Sun ? m_tables.sunRays(fan.place, fan.half, fan.planned).size()
                                 : std::min<std::size_t>(fan.planned, EdgeTables::fanSize);
}

/// Calls use(direction, weight, hours) for samples of a fan. Those behind the surface weigh nothing
/// and count no hours; those without radiation weigh nothing.
template <typename Use>
void ShadowEdges::forEachSample(const Fan& fan, std::size_t begin, std::size_t end,
                                Use&& use) const {
    if (fan.kind == Kind::Sun) {
        for (const EdgeTables::SunRay& ray :
             m_tables.sunRays(fan.place, fan.half, fan.planned).subspan(begin, end - begin)) {
            const float facing = received(ray.direction, 1.0f);
            use(ray.direction, ray.energy * facing, facing > 0.0f ? ray.hours : 0.0f);
        }
        return;
    }
    for (std::size_t k = begin; k < end; ++k) {
        const EdgeTables::Ray ray =
            fan.kind == Kind::Sky
                ? m_tables.skyRay(fan.place % sectors, 2 * (fan.place / sectors) + fan.half, k)
                : m_tables.groundRay(*m_first.ground, fan.place, k);
        use(ray.direction, ray.measure * received(ray.direction, 1.0f), 0.0f);
    }
}

/// Adds samples of a fan to the rays.
ShadowEdges::Asked ShadowEdges::add(Fan& fan, std::size_t begin, std::size_t end) {
    const std::size_t first = m_directions.size();
    forEachSample(fan, begin, end, [&](const XYZf& direction, float weight, float hours) {
        if (weight > 0.0f) {
            m_directions.push_back(direction);
            m_worth.push_back({weight, hours});
            fan.weight += weight;
        } else if (hours > 0.0f) {
            fan.hours += hours * firstVisible(fan);
        }
    });
    fan.rays += static_cast<std::uint32_t>(m_directions.size() - first);
    return {first, m_directions.size()};
}

/// What the first ray of a sun's half saw: time without radiation keeps that.
float ShadowEdges::firstVisible(const Fan& fan) const {
    const auto cell = static_cast<std::size_t>(m_tables.first().cellOfSun[fan.place]);
    return m_first.visible[fan.half][cell];
}

/// Asks the rays that were added since.
void ShadowEdges::ask(const Rays& rays) {
    const std::size_t first = m_visible.size();
    m_visible.resize(m_directions.size());
    rays.many(std::span(m_directions).subspan(first), std::span(m_visible).subspan(first));
}

/// Whether rays saw the same: enough of them, as the surface's plane may hide most of a fan.
bool ShadowEdges::agree(const Asked& asked) const {
    std::size_t i = asked.begin;
    while (i < asked.end && m_visible[i] == m_visible[asked.begin]) {
        ++i;
    }
    return i == asked.end && asked.end - asked.begin >= fewestAtFirst;
}

/// Asks a third of each fan's rays, and the others where these differ.
void ShadowEdges::askFans(const Rays& rays) {
    std::size_t planned = 0;
    for (const Fan& fan : m_fans) {
        planned += fan.planned;
    }
    m_directions.reserve(planned);
    m_worth.reserve(planned);
    m_visible.reserve(planned);
    std::vector<std::array<Asked, 2>> asked(m_fans.size());
    for (std::size_t i = 0; i < m_fans.size(); ++i) {
        asked[i][0] = add(m_fans[i], 0, countAtFirst(samplesOf(m_fans[i])));
    }
    ask(rays);
    for (std::size_t i = 0; i < m_fans.size(); ++i) {
        if (!agree(asked[i][0])) {
            const std::size_t count = samplesOf(m_fans[i]);
            asked[i][1] = add(m_fans[i], countAtFirst(count), count);
        }
    }
    ask(rays);
    for (std::size_t i = 0; i < m_fans.size(); ++i) {
        Fan& fan = m_fans[i];
        float seen = 0.0f;
        for (const Asked& some : asked[i]) {
            for (std::size_t k = some.begin; k < some.end; ++k) {
                seen += m_worth[k][0] * m_visible[k];
                fan.hours += m_worth[k][1] * m_visible[k];
            }
        }
        if (!agree(asked[i][0])) {
            fan.visible = fan.weight > 0.0f ? seen / fan.weight : 0.0f;
            continue;
        }
        fan.visible = m_visible[asked[i][0].begin];
        if (fan.kind == Kind::Sun) { // the others are seen as those that were asked
            const std::size_t count = samplesOf(fan);
            forEachSample(
                fan, countAtFirst(count), count, [&](const XYZf&, float weight, float hours) {
                    fan.weight += weight;
                    fan.hours += hours * (weight > 0.0f ? fan.visible : firstVisible(fan));
                });
        }
    }
}

} // namespace insolate
