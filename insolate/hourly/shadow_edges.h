/// What the first rays of a sensor leave in doubt, and further rays where that counts.
///
/// One ray answers for half a cell of the sky, for the sun in it and for a piece of the ground.
/// That is wrong only where the edge of a shadow passes: where a neighbour's ray is answered
/// differently. Each such place could be wrong by about what it brings on the surface. The errors
/// of different places have either sign, so their squares add up, and the root of the sum bounds
/// the error of the sensor. Where that exceeds what is tolerated, the heaviest places get a fan of
/// further rays, the more the heavier they are. A third of a fan's rays go first: where they agree,
/// the edge passes beside the place, and the others are saved.
#pragma once

#include <insolate/hourly/first_masks.h>
#include <insolate/hourly/first_rays.h>
#include <insolate/hourly/hourly_sky.h>
#include <insolate/hourly/sensor_rays.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace insolate {

/// What the sensors of an analysis share.
///
/// The rays of a fan stand on a lattice of 64 points that fills the place evenly and goes on evenly
/// where it is cut off: x and y are multiples of 49/64 and 37/64 of its width and height, wrapped
/// around. Each column of places begins at another point.
class EdgeTables {
public:
    static constexpr std::size_t fanSize = 64;

    /// Keeps the sky, the first rays and the ground's by reference.
    EdgeTables(const HourlySky& sky, const FirstRays& first, std::span<const GroundRays> ground);

    struct Ray {
        XYZf direction;
        float measure; ///< solid angle that it stands for, but for a factor of its place
    };
    /// The k-th ray into half a cell of the sky.
    Ray skyRay(int azimuth, std::size_t halfBand, std::size_t k) const {
        const std::size_t first = 27 * static_cast<std::size_t>(azimuth) + 23 * halfBand;
        return turned(m_skyFans[halfBand * fanSize + (first + k) % fanSize],
                      m_sectors[static_cast<std::size_t>(azimuth)]);
    }
    /// The k-th ray into a piece of the ground.
    Ray groundRay(const GroundRays& ground, std::size_t piece, std::size_t k) const {
        const GroundFans& fans = m_ground[static_cast<std::size_t>(&ground - m_groundRays.data())];
        const std::size_t sector = piece % static_cast<std::size_t>(ground.sectors);
        const std::size_t band = piece / static_cast<std::size_t>(ground.sectors);
        return turned(fans.rays[band * fanSize + (k + 27 * sector + 23 * band) % fanSize],
                      fans.sectors[sector]);
    }

    /// The place of a cell among the sun cells, -1 for none.
    int sunCellOf(std::size_t cell) const { return m_sunCellOf[cell]; }
    /// A ray to some steps of the sun that follow each other by their places.
    struct SunRay {
        XYZf direction;
        float energy; ///< [Wh/m2]
        float hours;
    };
    /// Half a cell's steps in as many rays of about as many steps each, as far as there are steps.
    /// The first third of the rays lies around the rim of the place.
    /// @param planned a number of the sun's schedule
    std::span<const SunRay> sunRays(std::size_t sunCell, std::size_t half,
                                    std::size_t planned) const;
    const FirstRays& first() const { return *m_first; }
    const HourlySky& sky() const { return *m_sky; }
    /// Integral of the direction over the lower half of a cell [sr].
    const XYZf& lowerMoment(std::size_t cell) const { return m_lowerMoments[cell]; }

private:
    struct Angle {
        float sine, cosine;
    };
    struct GroundFans {
        std::vector<Ray> rays; ///< of each band, in its first sector
        std::vector<Angle> sectors;
    };
    static Ray turned(const Ray& ray, const Angle& angle) {
        const XYZf& d = ray.direction;
        return {{d.x * angle.cosine + d.y * angle.sine, d.y * angle.cosine - d.x * angle.sine, d.z},
                ray.measure};
    }

    const HourlySky* m_sky;
    const FirstRays* m_first;
    std::span<const GroundRays> m_groundRays;
    std::vector<Ray> m_skyFans; ///< of each half band, in the sector at north
    std::array<Angle, skyGrid::azimuthCount> m_sectors{};
    std::vector<GroundFans> m_ground;
    std::vector<std::int16_t> m_sunCellOf;
    /// The number of steps, and where in m_sunRays the fans begin, that of the fewest rays first.
    struct SunFans {
        std::size_t steps, first;
    };
    SunFans addSunFans(const SunCell& cell, std::span<const SunStep> steps);
    void putRimFirst(std::span<SunRay> rays, const SunCell& cell) const;
    std::vector<std::array<SunFans, 2>> m_sunFans; ///< of the halves of each sun cell
    std::vector<SunRay> m_sunRays;
    std::vector<XYZf> m_lowerMoments;
};

/// How far a sensor's sums may be off [Wh/m2]; infinity asks for nothing beyond the first rays.
struct EdgeTolerance {
    float total, sky, beam;
};

/// The edges that one sensor sees.
class ShadowEdges {
public:
    /// What was asked first.
    struct FirstLook {
        SkyCellSet front;
        std::array<SkyCellSet, 2> asked; ///< halves with a ray of their own
        /// The clear halves, those without a ray of their own included.
        std::array<SkyCellSet, 2> free;
        std::array<SkyCellSet, 2> alone; ///< halves that take what the other one's ray saw
        std::array<const float*, 2> visible{};
        const float* weight = nullptr;             ///< projected solid angle [sr], by cell
        const GroundRays* ground = nullptr;        ///< null where none was asked for
        const std::vector<float>* groundWeights{}; ///< of the pieces
        const std::vector<float>* groundVisible{};
        float groundLight = 0; ///< what a piece of weight 1 brings [Wh/m2]
    };

    ShadowEdges(const EdgeTables& tables, Sides sides, const XYZf& normal, const FirstLook& first)
        : m_tables(tables), m_sides(sides), m_normal(normal), m_first(first) {}

    /// A place that was looked at again.
    enum class Kind : std::uint8_t { Sky, Sun, Ground, None };
    struct Fan {
        Kind kind = Kind::None;
        std::uint8_t half = 0;
        std::uint16_t place = 0;   ///< cell, sun cell or piece of the ground
        std::uint32_t planned = 0; ///< rays
        std::uint32_t rays = 0;    ///< those that were asked
        float visible = 0;         ///< share of what the place brings, 0..1
        float weight = 0;          ///< of a sun: energy on the surface [Wh/m2]
        float hours = 0;           ///< of a sun: visible time [h]
    };

    /// Looks again where it is needed.
    std::span<const Fan> lookAgain(const Rays& rays, const EdgeTolerance& tolerance);

private:
    void addSky();
    void addGround();
    void addCutSuns();
    void add(Kind kind, std::size_t half, std::size_t place, float error) {
        const float squared = error > 0.0f ? error * error : 0.0f;
        m_sums[static_cast<std::size_t>(kind)] += squared;
        m_doubts[m_doubtCount] = {squared, static_cast<std::uint16_t>(place),
                                  static_cast<std::uint8_t>(half), kind};
        m_doubtCount += squared > m_least ? 1 : 0;
    }
    void chooseFans(const EdgeTolerance& allowed);
    std::size_t samplesOf(const Fan& fan) const;
    template <typename Use>
    void forEachSample(const Fan& fan, std::size_t begin, std::size_t end, Use&& use) const;
    /// Places in m_directions.
    struct Asked {
        std::size_t begin = 0, end = 0;
    };
    Asked add(Fan& fan, std::size_t begin, std::size_t end);
    float firstVisible(const Fan& fan) const;
    void ask(const Rays& rays);
    bool agree(const Asked& asked) const;
    void askFans(const Rays& rays);
    float received(const XYZf& vector, float measure) const {
        return weightOnSurface(m_sides, m_normal, vector, measure);
    }

    const EdgeTables& m_tables;
    Sides m_sides;
    const XYZf& m_normal;
    const FirstLook& m_first;
    /// A place in doubt.
    struct Doubt {
        float error; ///< squared [(Wh/m2)^2]
        std::uint16_t place;
        std::uint8_t half;
        Kind kind;
    };
    std::size_t columnOf(const Doubt& doubt) const;
    std::array<Doubt, 6 * skyGrid::cellCount + GroundRays::mostRays + 1> m_doubts;
    std::size_t m_doubtCount = 0;
    std::array<SkyCellSet, 2> m_suns; ///< halves with suns in doubt at edges
    float m_least = 0;
    std::array<float, 3> m_sums{}; ///< of the squared errors, by kind
    std::vector<Fan> m_fans;
    // Of the rays of all fans, those that are asked first before the others.
    std::vector<XYZf> m_directions;
    std::vector<std::array<float, 2>> m_worth; ///< weight and hours
    std::vector<float> m_visible;              ///< what they saw
};

} // namespace insolate
