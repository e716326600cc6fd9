#include <insolate/hourly/sensor_evaluation.h>

#include <insolate/geometry/vector_math.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>

namespace insolate {
namespace {

constexpr float pi = std::numbers::pi_v<float>;
using sensorKernels::cellCount;

/// Shares of the view below this are not worth a ray: what hides all of it takes a 200th of the
/// light of open ground, below a thousandth of a year's total.
constexpr float smallGroundView = 0.005f;

/// For less than this share of the view a quarter of the ground's rays are enough. By
/// `bench_validation <weather folder> <plot.svg> ground` 128 rays leave a facade, with a share of
/// 0.5, 1.0 % of its total (root mean square): with 0.15 the quarter of 384, 96 rays, leaves less
/// than 0.5 %. At 0.3 it would leave up to twice that, at 0.05 roofs and slopes would take 288 rays
/// more without need.
constexpr float littleGroundView = 0.15f;

/// Pieces of the ground whose mean direction is nearer to the surface's plane than this (a sine)
/// may be cut by it: 14 degrees, half the diagonal of the largest. Of 384 rays pieces are 10.6
/// degrees wide and 5 (horizon) to 25 (nadir) high; of a quarter of them 22.5 wide and 10 to 15
/// high down to where the plane of a surface that takes so few passes.
constexpr float nearPlane = 0.24f;

/// A part of the radiation counts for its tolerance as at least this share of the sensor's own
/// total and of that of open ground. It is part of what the tolerances promise, not an estimate.
constexpr float smallPart = 0.1f;

/// A sensor's total counts for its tolerance as at least this share of open ground's, which is part
/// of the promise too: what sees next to nothing has nothing to be exact about.
constexpr float smallTotal = 0.02f;

/// Cells of less projected solid angle than this count too little for two rays [sr]: a fifth of the
/// heaviest cell of a facade. A level surface sees all around, where errors even out, and has half
/// as much again. By `bench_validation <weather folder> <plot.svg> shading scenes` half of both
/// takes 14 % more rays on the ground and 8 % more on facades, for errors that are a twentieth less
/// at most; twice both saves 36 % and 12 %, but three quarters more are left of the beam in courts
/// (1.05 % in place of 0.60, root mean square), and a quarter more in a dense city.
constexpr float lightCell = 0.0016f;
constexpr float lightCellUpwards = 0.0008f;

/// The sensors of one walk ask the scene together, unless their block is wider than this [model
/// units]: then they see different triangles, and what must be asked for each of them takes longer
/// than walks of their own. On a grid of 0.5 m, with
/// blocks of 1.5 m, sums are up to 1.9 times as fast together; on one of 2 m 0.88 to 1.03 times
/// (`bench_hourly neighbours`).
constexpr float widestBlock = 4.0f;

/// A zero vector stays one.
XYZf unitVector(const XYZf& v) {
    const float length = vectorLength(v);
    if (length > 1e-12f && length < 1e12f) {
        return scaled(v, 1.0f / length);
    }
    // Single precision does not hold the squares of what is much shorter or longer.
    const double exact =
        std::hypot(static_cast<double>(v.x), static_cast<double>(v.y), static_cast<double>(v.z));
    const auto part = [&](float component) {
        return exact > 0.0 ? static_cast<float>(static_cast<double>(component) / exact) : 0.0f;
    };
    return {part(v.x), part(v.y), part(v.z)};
}

constexpr std::uint64_t everySecond = 0x5555555555555555U;

/// The longest edge of the box around the places.
float widthOf(std::span<const XYZf> places) {
    XYZf low = places.front();
    XYZf high = low;
    for (const XYZf& p : places) {
        low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
        high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
    }
    return std::max({high.x - low.x, high.y - low.y, high.z - low.z});
}

SkyCellSet setOf(const std::array<std::uint8_t, cellCount / 8>& bits) {
    SkyCellSet set;
    for (std::size_t band = 0; band < skyGrid::altitudeCount; ++band) {
        const std::uint8_t* row = bits.data() + band * 9;
        for (unsigned byte = 0; byte < 8; ++byte) {
            set.words[2 * band] |= std::uint64_t{row[byte]} << (8 * byte);
        }
        set.words[2 * band + 1] = row[8];
    }
    return set;
}

float over(float total, double hours) {
    return hours > 0.0 ? static_cast<float>(static_cast<double>(total) / hours) : 0.0f;
}

bool isFree(const FirstMasks& masks, std::size_t piece) {
    const GroundRays::Cell& cell = masks.ground->cells[piece];
    return masks.groundCells[cell.set].contains(cell.azimuth, cell.altitude);
}

} // namespace

SensorEvaluation::SensorEvaluation(const HourlyPreparation& prepared,
                                   GetTransparencyValueOnRay& caster, const LightScene* light,
                                   const Sensor& sensor)
    : m_shared(prepared), m_light(light), m_origin(sensor.position),
      m_rays(caster, sensor.position) {
    m_normal = unitVector(sensor.normal);
    if (vectorLength(m_normal) > 0.0f) {
        m_sides = m_rays.doubleSided() ? Sides::Two : Sides::One;
        m_rays.receiveOn(&m_normal);
    } else {
        m_sides = Sides::NoSurface;
    }
}

FirstMasks SensorEvaluation::wanted() {
    FirstMasks masks;
    weighSky();
    masks.sky = m_look.asked;
    weighGround(masks);
    return masks;
}

void SensorEvaluation::answer(FirstMasks& masks) {
    if (m_rays.allOrNothing()) {
        m_rays.skies(m_shared.first.directions, masks.sky);
        if (masks.ground != nullptr) {
            m_rays.skies(masks.ground->sets, masks.groundCells);
        }
        return;
    }
    for (std::size_t half = 0; half < 2; ++half) {
        m_visible[half].fill(0.0f);
        m_rays.oneByOne(m_shared.first.directions[half], masks.sky[half], m_visible[half].data());
    }
    for (std::size_t i = 0; i < m_groundWeights.size(); ++i) {
        if (m_groundWeights[i] > 0.0f) {
            m_groundVisible[i] = m_rays.one(masks.ground->pieces[i].direction);
        }
    }
}

void SensorEvaluation::answerTogether(std::span<std::optional<SensorEvaluation>> sensors,
                                      std::span<FirstMasks> masks) {
    std::vector<XYZf> origins;
    bool shared = true;
    for (const std::optional<SensorEvaluation>& one : sensors) {
        origins.push_back(one->m_origin);
        shared = shared && one->m_rays.sharesWith(sensors.front()->m_rays);
    }
    if (!shared || widthOf(origins) > widestBlock) {
        for (std::size_t i = 0; i < sensors.size(); ++i) {
            sensors[i]->answer(masks[i]);
        }
        return;
    }
    const HourlyPreparation& prepared = sensors.front()->m_shared;
    std::vector<SkyCellSet> cells;
    for (const FirstMasks& mask : masks) {
        cells.insert(cells.end(), mask.sky.begin(), mask.sky.end());
    }
    sensors.front()->m_rays.skies(origins, prepared.first.directions, cells);
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        std::copy_n(cells.begin() + static_cast<std::ptrdiff_t>(2 * i), 2, masks[i].sky.begin());
    }
    for (const GroundRays& ground : prepared.ground) {
        origins.clear();
        cells.clear();
        for (std::size_t i = 0; i < sensors.size(); ++i) {
            if (masks[i].ground == &ground) {
                origins.push_back(sensors[i]->m_origin);
                cells.insert(cells.end(), masks[i].groundCells.begin(), masks[i].groundCells.end());
            }
        }
        sensors.front()->m_rays.skies(origins, ground.sets, cells);
        auto next = cells.begin();
        for (FirstMasks& mask : masks) {
            if (mask.ground == &ground) {
                std::copy_n(next, mask.groundCells.size(), mask.groundCells.begin());
                next += static_cast<std::ptrdiff_t>(mask.groundCells.size());
            }
        }
    }
}

SensorResult SensorEvaluation::result(const FirstMasks& masks, SensorHours* hours,
                                      std::span<SensorPart> parts) {
    see(masks);
    sumSky();
    sumSun();
    sumGround(masks);
    if (m_shared.edges) {
        lookAgain(masks, !parts.empty());
    }
    if (m_light != nullptr) {
        lookThrough(masks);
    }
    const float whole = m_sides == Sides::NoSurface ? 2.0f * pi : pi;
    SensorResult result;
    result.beam = m_beam > FirstRays::leastEnergy ? m_beam : 0.0f;
    result.sky = m_sky;
    result.ground = static_cast<float>(m_shared.sky.groundReflected) * m_groundView;
    result.total = result.beam + result.sky + result.ground;
    result.averageDaylight = over(result.total, m_shared.sky.daylightHours);
    result.averagePeriod = over(result.total, m_shared.sky.hours);
    result.skyViewFactor = (m_shared.options.skyTolerance > 0.0 ? m_view : m_firstView) / whole;
    result.groundViewFactor = m_sides == Sides::NoSurface ? 0.5f * m_groundView : m_groundView;
    result.directSunHours = m_sunHours;
    if (!parts.empty()) {
        evaluateParts(parts);
    }
    if (m_shared.options.peak || hours != nullptr) {
        gatherPatches();
    }
    if (m_shared.options.peak) {
        findPeak(result);
    }
    if (hours != nullptr) {
        fill(*hours);
    }
    return result;
}

/// Weighs the sky's cells. They have one ray in each half; those that weigh little have one
/// ray, in the lower or the upper half alternately.
void SensorEvaluation::weighSky() {
    m_look.front = m_look.asked[0] = m_look.asked[1] = SkyCellSet::all();
    if (m_sides == Sides::One) {
        std::array<std::uint8_t, cellCount / 8> frontBits;
        std::array<std::uint8_t, cellCount / 8> heavyBits;
        sensorKernels::projectOnSurface(m_normal, m_shared.cells.momentX.data(),
                                        m_shared.cells.momentY.data(),
                                        m_shared.cells.momentZ.data(), cellCount,
                                        lightCell + lightCellUpwards * std::max(m_normal.z, 0.0f),
                                        m_weight.data(), frontBits.data(), heavyBits.data());
        m_look.front = setOf(frontBits);
        const SkyCellSet heavy = setOf(heavyBits);
        // The surface's own plane may cut cells: one behind it may hold sun in front of it, and
        // in one in front either ray may lie behind.
        const SkyCellSet near = m_look.front.grown();
        SkyCellSet cut = SkyCellSet::all();
        for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
            cut.words[word] &= ~m_look.front.words[word];
        }
        cut = cut.grown();
        for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
            const std::uint64_t asked =
                m_look.front.words[word] | (near.words[word] & m_shared.first.withSun.words[word]);
            const std::uint64_t light = asked & ~heavy.words[word] & ~cut.words[word];
            const std::uint64_t even = word / 2 % 2 == 0 ? everySecond : ~everySecond;
            m_alone[0].words[word] = light & even;
            m_alone[1].words[word] = light & ~even;
            for (std::size_t half = 0; half < 2; ++half) {
                m_look.asked[half].words[word] = asked & ~m_alone[half].words[word];
            }
        }
    } else {
        for (std::size_t i = 0; i < cellCount; ++i) {
            m_weight[i] = received(
                {m_shared.cells.momentX[i], m_shared.cells.momentY[i], m_shared.cells.momentZ[i]},
                m_shared.cells.solidAngle[i]);
        }
    }
}

/// Takes what the rays of the sky saw: cells with one ray take it for both halves.
void SensorEvaluation::see(const FirstMasks& masks) {
    m_look.free = masks.sky;
    for (std::size_t half = 0; half < 2; ++half) {
        for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
            m_look.free[half].words[word] |=
                m_alone[half].words[word] & masks.sky[1 - half].words[word];
        }
        if (m_rays.allOrNothing()) {
            sensorKernels::expandSet(m_look.free[half], m_visible[half].data());
        } else {
            Rays::forEach(m_alone[half], [&](std::size_t cell, int, int) {
                m_visible[half][cell] = m_visible[1 - half][cell];
            });
        }
    }
}

void SensorEvaluation::sumSky() {
    const sensorKernels::SkySums sums =
        sensorKernels::sumVisibleSky({m_weight.data(),
                                      {m_visible[0].data(), m_visible[1].data()},
                                      m_shared.sky.diffuse.data(),
                                      m_seen.data()});
    m_view = m_firstView = sums.view;
    m_sky = sums.diffuse;
    m_sky += skyAtPlane();
}

/// The sky that cells lose which the surface's own plane cuts: they count with the side of
/// their middle, so what of them lies in front counts for too little if the middle does, and
/// not at all otherwise. Over a cell the cosine x is about even between x - h and x + h, and
/// the mean of its positive part is (x + h)^2 / 4h, above max(x, 0) by (h - |x|)^2 / 4h. A cell
/// behind the plane is seen as the one before it. Two sides lose both.
float SensorEvaluation::skyAtPlane() const {
    float lost = 0.0f;
    const auto add = [&](std::size_t cell, int azimuth, int altitude) {
        const XYZf& centre = m_shared.cells.centre[cell];
        const float x = dotProduct(m_normal, centre);
        if (std::abs(x) > farFromPlane) {
            return;
        }
        const float turn = m_normal.x * centre.y - m_normal.y * centre.x;
        const float rise =
            (m_normal.z - centre.z * x) / m_shared.cosines[static_cast<std::size_t>(altitude)];
        constexpr auto half = static_cast<float>(0.5 * skyGrid::cellWidth);
        const float h = half * (std::abs(turn) + std::abs(rise));
        const float inside = h - std::abs(x);
        if (!(inside > 0.0f)) {
            return;
        }
        std::size_t seen = cell;
        if (!m_look.front.contains(azimuth, altitude)) {
            const bool aside = std::abs(turn) >= std::abs(rise);
            const int step = (aside ? turn : rise) > 0.0f ? 1 : -1;
            azimuth =
                (azimuth + (aside ? step : 0) + skyGrid::azimuthCount) % skyGrid::azimuthCount;
            altitude = std::clamp(altitude + (aside ? 0 : step), 0, skyGrid::altitudeCount - 1);
            seen = static_cast<std::size_t>(skyGrid::cellIndex(azimuth, altitude));
        }
        lost += m_shared.cells.solidAngle[cell] * inside * inside / (4.0f * h) * 0.5f *
                (m_visible[0][seen] + m_visible[1][seen]) * m_shared.sky.diffuse[cell];
    };
    if (m_sides == Sides::NoSurface) {
        return 0.0f;
    }
    if (m_sides == Sides::Two) {
        Rays::forEach(SkyCellSet::all(), add);
        return 2.0f * lost;
    }
    SkyCellSet behind = SkyCellSet::all();
    for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
        behind.words[word] &= ~m_look.front.words[word];
    }
    SkyCellSet cut = behind.grown();
    cut &= m_look.front.grown();
    Rays::forEach(cut, add);
    return lost;
}

void SensorEvaluation::sumSun() {
    if (m_sides == Sides::One) {
        const sensorKernels::SunSums sums =
            sensorKernels::sumVisibleSun(m_normal, {&m_shared.first,
                                                    {m_visible[0].data(), m_visible[1].data()},
                                                    m_sunWeight.data(),
                                                    m_sunVisible.data()});
        m_beam = sums.beam;
        m_sunHours = sums.hours;
        return;
    }
    std::fill(m_sunVisible.begin(), m_sunVisible.end(), 0.0f);
    for (std::size_t j = 0; j < m_shared.sky.sunCells.size(); ++j) {
        const auto cell = static_cast<std::size_t>(m_shared.first.cellOfSun[j]);
        float weight = 0.0f;
        float seen = 0.0f;
        for (std::size_t half = 0; half < 2; ++half) {
            const FirstRays::Sun& sun = m_shared.first.sun[half];
            const XYZf energy{sun.energyX[j], sun.energyY[j], sun.energyZ[j]};
            const float visible = m_visible[half][cell];
            weight += received(energy, vectorLength(energy));
            seen += visible * received(energy, vectorLength(energy));
            m_sunHours += visible * sun.hours[j];
        }
        m_beam += seen;
        m_sunWeight[j] = weight;
        m_sunVisible[j] = weight > 0.0f ? seen / weight : 0.0f;
    }
}

void SensorEvaluation::weighGround(FirstMasks& masks) {
    m_openGround = m_sides == Sides::One   ? 0.5f * (1.0f - m_normal.z)
                   : m_sides == Sides::Two ? 1.0f
                                           : 2.0f;
    if (m_openGround < smallGroundView || m_shared.ground[0].pieces.empty()) {
        return;
    }
    const GroundRays& ground = m_shared.ground[m_openGround < littleGroundView ? 1 : 0];
    masks.ground = &ground;
    masks.groundCells.resize(ground.sets.size());
    m_groundWeights.resize(ground.pieces.size());
    m_groundVisible.resize(ground.pieces.size(), 0.0f);
    for (std::size_t i = 0; i < ground.pieces.size(); ++i) {
        m_groundWeights[i] = weightOf(ground.pieces[i]);
        if (m_groundWeights[i] > 0.0f) {
            const GroundRays::Cell& cell = ground.cells[i];
            masks.groundCells[cell.set].insert(cell.azimuth, cell.altitude);
        }
    }
}

/// Of a piece that the surface's plane may cut, the sum of its parts' weights.
float SensorEvaluation::weightOf(const GroundPiece& piece) const {
    if (m_sides == Sides::NoSurface ||
        std::abs(dotProduct(m_normal, piece.moment)) > nearPlane * piece.solidAngle) {
        return received(piece.moment, piece.solidAngle);
    }
    float weight = 0.0f;
    for (const XYZf& moment : piece.moments) {
        weight += received(moment, 0.0f);
    }
    return weight;
}

void SensorEvaluation::sumGround(const FirstMasks& masks) {
    float seen = 0.0f;
    float all = 0.0f;
    for (std::size_t i = 0; i < m_groundWeights.size(); ++i) {
        if (m_groundWeights[i] > 0.0f) {
            if (m_rays.allOrNothing()) {
                m_groundVisible[i] = isFree(masks, i) ? 1.0f : 0.0f;
            }
            all += m_groundWeights[i];
            seen += m_groundWeights[i] * m_groundVisible[i];
        }
    }
    // What a weight counts of the ground's light.
    m_groundScale = all > 0.0f ? m_openGround / all : 0.0f;
    m_groundView = all > 0.0f ? m_groundScale * seen : m_openGround;
}

/// Puts right what the edges of shadows leave too uncertain.
void SensorEvaluation::lookAgain(const FirstMasks& masks, bool hasParts) {
    m_look.visible = {m_visible[0].data(), m_visible[1].data()};
    m_look.weight = m_weight.data();
    m_look.alone = m_alone;
    m_look.ground = masks.ground;
    m_look.groundWeights = &m_groundWeights;
    m_look.groundVisible = &m_groundVisible;
    m_look.groundLight = static_cast<float>(m_shared.sky.groundReflected) * m_groundScale;
    const float light = m_sky + m_beam;
    const float whole = light + static_cast<float>(m_shared.sky.groundReflected) * m_groundView;
    const float part = smallPart * std::max(light, m_shared.openTotal);
    const auto allowed = [](double tolerance, float of) {
        return tolerance > 0.0 ? static_cast<float>(tolerance) * of
                               : std::numeric_limits<float>::infinity();
    };
    const HourlyAnalysisOptions& options = m_shared.options;
    const EdgeTolerance tolerance{
        allowed(options.tolerance, std::max(whole, smallTotal * m_shared.openTotal)),
        allowed(options.skyTolerance, std::max(m_sky, part)),
        allowed(options.sunTolerance, std::max(m_beam, part))};
    ShadowEdges edges(*m_shared.edges, m_sides, m_normal, m_look);
    for (const ShadowEdges::Fan& fan : edges.lookAgain(m_rays, tolerance)) {
        switch (fan.rays > 0 ? fan.kind : ShadowEdges::Kind::None) {
        case ShadowEdges::Kind::Sky:
            takeSky(fan);
            break;
        case ShadowEdges::Kind::Sun:
            takeSun(fan, hasParts);
            break;
        case ShadowEdges::Kind::Ground:
            m_groundView += m_groundScale * m_groundWeights[fan.place] *
                            (fan.visible - m_groundVisible[fan.place]);
            m_groundVisible[fan.place] = fan.visible;
            break;
        case ShadowEdges::Kind::None:
            break;
        }
    }
    m_view = std::max(m_view, 0.0f);
    m_sky = std::max(m_sky, 0.0f);
    m_beam = std::max(m_beam, 0.0f);
    m_sunHours = std::max(m_sunHours, 0.0f);
    m_groundView = std::max(m_groundView, 0.0f);
}

/// The halves of a cell count by half of its weight each until one of them is looked at again,
/// and then by their own.
void SensorEvaluation::takeSky(const ShadowEdges::Fan& fan) {
    const std::size_t cell = fan.place;
    const XYZf& moment = m_shared.edges->lowerMoment(cell);
    const float lower = std::min(received(moment, vectorLength(moment)), m_weight[cell]);
    const float weight = fan.half == 0 ? lower : m_weight[cell] - lower;
    float gained = weight * (fan.visible - m_visible[fan.half][cell]);
    const auto azimuth = static_cast<int>(cell % skyGrid::azimuthCount);
    const auto altitude = static_cast<int>(cell / skyGrid::azimuthCount);
    if (!m_lookedAt.contains(azimuth, altitude)) {
        m_lookedAt.insert(azimuth, altitude);
        gained += (lower - 0.5f * m_weight[cell]) * (m_visible[0][cell] - m_visible[1][cell]);
    }
    m_seen[cell] = std::max(m_seen[cell] + gained, 0.0f);
    m_view += gained;
    m_sky += gained * m_shared.sky.diffuse[cell];
}

void SensorEvaluation::takeSun(const ShadowEdges::Fan& fan, bool hasParts) {
    const std::size_t j = fan.place;
    const auto cell = static_cast<std::size_t>(m_shared.first.cellOfSun[j]);
    const FirstRays::Sun& sun = m_shared.first.sun[fan.half];
    const XYZf energy{sun.energyX[j], sun.energyY[j], sun.energyZ[j]};
    const float before = m_visible[fan.half][cell];
    const float weight = received(energy, vectorLength(energy));
    const float gained = fan.weight * fan.visible - weight * before;
    const float seen = m_sunWeight[j] * m_sunVisible[j] + gained;
    m_sunWeight[j] += fan.weight - weight;
    // Differences of sums are not quite 0 where nothing is left.
    m_sunVisible[j] = m_sunWeight[j] > 0.0f ? std::clamp(seen / m_sunWeight[j], 0.0f, 1.0f) : 0.0f;
    m_beam += gained;
    if (m_shared.options.sunTolerance > 0.0) {
        float& time = sunTimes()[fan.half][j];
        m_sunHours += fan.hours - sun.hours[j] * time;
        time = sun.hours[j] > 0.0f ? fan.hours / sun.hours[j] : 0.0f;
    }
    if (hasParts) {
        if (m_sunShares.empty()) {
            m_sunShares.assign(m_visible.begin(), m_visible.end());
        }
        m_sunShares[fan.half][cell] = fan.visible;
    }
}

/// The share of the sun's time that counts as seen, by halves and sun cells: what the first ray
/// of a half saw, where it lies before the surface, until the half is looked at again.
std::array<std::vector<float>, 2>& SensorEvaluation::sunTimes() {
    for (std::size_t half = 0; half < 2 && m_sunTimes[half].empty(); ++half) {
        const FirstRays::Sun& sun = m_shared.first.sun[half];
        for (std::size_t j = 0; j < m_shared.sky.sunCells.size(); ++j) {
            const XYZf ray{sun.rayX[j], sun.rayY[j], sun.rayZ[j]};
            const bool faced = m_sides != Sides::One || dotProduct(m_normal, ray) > 0.0f;
            const auto cell = static_cast<std::size_t>(m_shared.first.cellOfSun[j]);
            m_sunTimes[half].push_back(faced ? m_visible[half][cell] : 0.0f);
        }
    }
    return m_sunTimes;
}

/// The hours that a sun cell counts before anything weakens them.
float SensorEvaluation::sunHoursOf(std::size_t sunCell) {
    float hours = 0.0f;
    for (std::size_t half = 0; half < 2; ++half) {
        hours += m_shared.first.sun[half].hours[sunCell] * sunTimes()[half][sunCell];
    }
    return hours;
}

} // namespace insolate
