#include "study/results/comparison.h"

#include "study/model/mesh.h"
#include "study/support/closest_name.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <tuple>
#include <utility>

#include <fmt/format.h>
#include <nanoflann.hpp>

namespace insolate::study {

namespace {

constexpr const char* differenceSuffix = "_difference";

/// Some sensors of a field as nanoflann wants them.
struct SensorCloud {
    const SensorField& field;
    std::vector<std::uint32_t> sensors;

    [[nodiscard]] std::size_t kdtree_get_point_count() const { return sensors.size(); }
    [[nodiscard]] double kdtree_get_pt(std::size_t i, std::size_t axis) const {
        const Vector3& p = field.positions[sensors[i]];
        return axis == 0 ? p.x : axis == 1 ? p.y : p.z;
    }
    template <typename Box>
    bool kdtree_get_bbox(Box& /*box*/) const {
        return false;
    }
};

/// Whether two unit normals enclose at most an angle of this cosine; no normal is only like none.
bool looksAlike(const Vector3& m, const Vector3& n, double cosine) {
    const bool isSurface = dot(m, m) > 0.25;
    return isSurface == (dot(n, n) > 0.25) && (!isSurface || dot(m, n) >= cosine);
}

/// Whether sensors of two fields belong to one object and one material, by their names. Sensors
/// without names belong together.
class SameBody {
public:
    SameBody(const SensorField& a, const SensorField& b)
        : m_a(numbered(a, m_numbers)), m_b(numbered(b, m_numbers)) {}

    bool operator()(std::size_t a, std::size_t b) const { return at(m_a, a) == at(m_b, b); }

private:
    using Body = std::pair<std::uint32_t, std::uint32_t>;
    using Numbers = std::map<std::string, std::uint32_t, std::less<>>;

    static std::vector<Body> numbered(const SensorField& field, Numbers& numbers) {
        std::vector<std::uint32_t> numberOf;
        numberOf.reserve(field.names.size());
        for (const std::string& name : field.names) {
            const auto next = static_cast<std::uint32_t>(numbers.size());
            numberOf.push_back(numbers.try_emplace(name, next).first->second);
        }
        const auto number = [&](std::uint32_t name) {
            return name == CellOrigin::unnamed ? name : numberOf[name];
        };
        std::vector<Body> bodies;
        bodies.reserve(field.origins.size());
        for (const CellOrigin& origin : field.origins) {
            bodies.emplace_back(number(origin.object), number(origin.material));
        }
        return bodies;
    }
    static Body at(const std::vector<Body>& bodies, std::size_t sensor) {
        return bodies.empty() ? Body{CellOrigin::unnamed, CellOrigin::unnamed} : bodies[sensor];
    }

    Numbers m_numbers; ///< of the names of both
    std::vector<Body> m_a;
    std::vector<Body> m_b;
};

/// Keeps the nearest sensor that may be a partner. Of several equally near ones, as where one grid
/// lies half a cell beside the other, it is one that is preferred, and of these the one that comes
/// first by x, y and z.
class NearestPartner {
public:
    using DistanceType = double;
    using IndexType = std::uint32_t;
    static constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();

    template <typename MayBe, typename IsPreferred>
    struct Search {
        using DistanceType = double;
        using IndexType = std::uint32_t;

        const SensorCloud& cloud;
        const MayBe& mayBe;
        const IsPreferred& isPreferred;
        double bound; ///< squared distance that is still of interest
        std::uint32_t index = none;
        double distance = 0.0; ///< squared

        bool addPoint(double squared, std::uint32_t inCloud) {
            const std::uint32_t i = cloud.sensors[inCloud];
            if (squared <= bound && mayBe(i) && (index == none || isBetter(squared, i))) {
                index = i;
                distance = squared;
                bound = std::min(bound, squared * (1.0 + rounding));
            }
            return true;
        }
        [[nodiscard]] double worstDist() const {
            return std::nextafter(bound, std::numeric_limits<double>::infinity());
        }
        [[nodiscard]] bool full() const { return index != none; }
        [[nodiscard]] std::size_t size() const { return full() ? 1 : 0; }

    private:
        static constexpr double rounding = 1.0e-9; // of distances that are equal by their meaning

        [[nodiscard]] bool isBetter(double squared, std::uint32_t i) const {
            if (std::abs(squared - distance) > rounding * distance) {
                return squared < distance;
            }
            if (const bool prefers = isPreferred(i); prefers != isPreferred(index)) {
                return prefers;
            }
            const Vector3& p = cloud.field.positions[i];
            const Vector3& q = cloud.field.positions[index];
            return std::tie(p.x, p.y, p.z, i) < std::tie(q.x, q.y, q.z, index);
        }
    };

    /// @param isTaken by sensor: those that are left out
    NearestPartner(const SensorField& field, const std::vector<bool>& isTaken)
        : m_cloud{field, sensorsOf(isTaken)},
          m_tree(3, m_cloud, nanoflann::KDTreeSingleIndexAdaptorParams(16)) {}

    struct Found {
        std::uint32_t index = none;
        double distance = 0.0;
    };
    /// @param mayBe whether the sensor of this number may be the partner
    /// @param isPreferred whether it comes before others that are as near
    template <typename MayBe, typename IsPreferred>
    [[nodiscard]] Found find(const Vector3& place, double reach, const MayBe& mayBe,
                             const IsPreferred& isPreferred) const {
        Search<MayBe, IsPreferred> search{m_cloud, mayBe, isPreferred, reach * reach};
        const double query[3] = {place.x, place.y, place.z};
        m_tree.findNeighbors(search, query, nanoflann::SearchParams());
        return {search.index, std::sqrt(search.distance)};
    }

private:
    using Tree = nanoflann::KDTreeSingleIndexAdaptor<
        nanoflann::L2_Simple_Adaptor<double, SensorCloud, double, std::uint32_t>, SensorCloud, 3,
        std::uint32_t>;

    static std::vector<std::uint32_t> sensorsOf(const std::vector<bool>& isTaken) {
        std::vector<std::uint32_t> sensors;
        for (std::size_t i = 0; i < isTaken.size(); ++i) {
            if (!isTaken[i]) {
                sensors.push_back(static_cast<std::uint32_t>(i));
            }
        }
        return sensors;
    }

    SensorCloud m_cloud;
    Tree m_tree;
};

/// The edge of a square of the middle one of the areas; 0 without any.
double typicalEdge(std::vector<float> areas) {
    if (areas.empty()) {
        return 0.0;
    }
    const auto middle = areas.begin() + static_cast<std::ptrdiff_t>(areas.size() / 2);
    std::nth_element(areas.begin(), middle, areas.end());
    return std::sqrt(std::max(0.0, static_cast<double>(*middle)));
}

double toleranceOf(const ResultFolder& a, const ResultFolder& b, const CompareOptions& options) {
    constexpr double mostTolerance = 100.0;
    if (options.tolerance) {
        if (!(*options.tolerance >= 0.0 && *options.tolerance <= mostTolerance)) {
            throw UsageError(fmt::format("--tolerance {}: no distance; give metres from 0 to {}",
                                         *options.tolerance, mostTolerance));
        }
        return *options.tolerance;
    }
    return std::min(mostTolerance, 0.75 * std::max(typicalEdge(a.areas), typicalEdge(b.areas)));
}

constexpr double nearDirection = 0.98480775301221; // cosine of 10 degrees

/// Pairs the sensors at the same places. Where several of one study lie at one place, as on walls
/// that two bodies share, each gets a partner of its own as long as there are any: the one with its
/// normal first, among these the one of its object and material, then by their order.
/// @return by sensor of B
std::vector<NearestPartner::Found> samePlaces(const ResultFolder& a, const ResultFolder& b,
                                              const SameBody& sameBody,
                                              const std::stop_token& stop) {
    constexpr double oneDirection =
        0.999999984769131; // cosine of 0.01 degrees: the digits of files
    constexpr double sameDirection = 0.99984769515639; // of 1 degree
    struct Round {
        double direction;
        bool ofOneBody;
        bool shares; ///< a sensor that is a partner already, where there are more at its place in B
    };
    constexpr std::array<Round, 5> rounds = {{{oneDirection, true, false},
                                              {oneDirection, false, false},
                                              {sameDirection, true, false},
                                              {sameDirection, false, false},
                                              {sameDirection, false, true}}};
    std::vector<NearestPartner::Found> partner(b.field.size());
    std::vector<bool> isTaken(a.field.size(), false);
    const NearestPartner all(a.field, isTaken);
    for (const Round& round : rounds) {
        for (std::size_t i = 0; i < b.field.size(); ++i) {
            throwIfStoppedAt(i, stop);
            if (partner[i].index != NearestPartner::none) {
                continue;
            }
            const auto isOfBody = [&](std::uint32_t other) { return sameBody(other, i); };
            partner[i] = all.find(
                b.field.positions[i], CompareOptions::samePlace,
                [&](std::uint32_t other) {
                    return (round.shares || !isTaken[other]) &&
                           looksAlike(a.field.normals[other], b.field.normals[i],
                                      round.direction) &&
                           (!round.ofOneBody || isOfBody(other));
                },
                isOfBody);
            if (partner[i].index != NearestPartner::none) {
                isTaken[partner[i].index] = true;
            }
        }
    }
    return partner;
}

void findPairs(const ResultFolder& a, const ResultFolder& b, Comparison& comparison,
               const std::stop_token& stop) {
    constexpr std::uint32_t none = NearestPartner::none;
    const SameBody sameBody(a.field, b.field);
    std::vector<NearestPartner::Found> partner = samePlaces(a, b, sameBody, stop);
    std::vector<bool> isTakenA(a.field.size(), false);
    std::vector<bool> isTakenB(b.field.size(), false);
    for (std::size_t i = 0; i < partner.size(); ++i) {
        if (partner[i].index != none) {
            isTakenA[partner[i].index] = isTakenB[i] = true;
            ++comparison.samePlaces;
        }
    }
    const NearestPartner restOfA(a.field, isTakenA);
    for (std::size_t i = 0; i < b.field.size(); ++i) {
        throwIfStoppedAt(i, stop);
        if (!isTakenB[i]) {
            partner[i] = restOfA.find(
                b.field.positions[i], comparison.tolerance,
                [&](std::uint32_t other) {
                    return looksAlike(a.field.normals[other], b.field.normals[i], nearDirection);
                },
                [&](std::uint32_t other) { return sameBody(other, i); });
        }
        if (partner[i].index == none) {
            comparison.onlyB.push_back(static_cast<std::uint32_t>(i));
            continue;
        }
        isTakenA[partner[i].index] = true;
        comparison.pairs.push_back({partner[i].index, static_cast<std::uint32_t>(i),
                                    static_cast<float>(partner[i].distance)});
    }
    // Where A's cells are the finer ones, or several lie at one place, not each is a partner, but
    // each has its place in B.
    const NearestPartner restOfB(b.field, isTakenB);
    const NearestPartner allOfB(b.field, std::vector<bool>(b.field.size(), false));
    for (std::size_t i = 0; i < a.field.size(); ++i) {
        throwIfStoppedAt(i, stop);
        const auto isNear = [&](const NearestPartner& sensors, double reach) {
            const auto found = sensors.find(
                a.field.positions[i], reach,
                [&](std::uint32_t other) {
                    return looksAlike(b.field.normals[other], a.field.normals[i], nearDirection);
                },
                [](std::uint32_t) { return false; });
            return found.index != none;
        };
        if (!isTakenA[i] && !isNear(restOfB, comparison.tolerance) &&
            !isNear(allOfB, CompareOptions::samePlace)) {
            comparison.onlyA.push_back(static_cast<std::uint32_t>(i));
        }
    }
}

bool hasSensorWithoutNormal(const SensorField& field) {
    return std::any_of(field.normals.begin(), field.normals.end(),
                       [](const Vector3& n) { return dot(n, n) <= 0.25; });
}

[[noreturn]] void refusePair(const ResultFolder& a, const ResultFolder& b, const std::string& what,
                             const std::string& advice) {
    throw DataError(fmt::format("{} and {} cannot be compared: {}; {}", place(a.folder),
                                place(b.folder), what, advice));
}

/// Refuses studies of different questions, and collects what else differs.
std::vector<std::string> doubtsOf(const ResultFolder& a, const ResultFolder& b) {
    const StudyFacts& x = a.facts;
    const StudyFacts& y = b.facts;
    const auto either = [](const std::string& one, const std::string& other) {
        return fmt::format("{} and {}", quoteText(one), quoteText(other));
    };
    if (x.question == StudyFacts::Question::comparison ||
        y.question == StudyFacts::Question::comparison) {
        refusePair(a, b, "one of them is a comparison already",
                   "give folders of 'insolate run' or 'insolate sunhours'");
    }
    if (x.question != y.question) {
        refusePair(a, b, "one is of radiation, the other of hours of sun",
                   "give two folders of the same command");
    }
    if (x.period != y.period) {
        refusePair(a, b, "their periods are " + either(x.period, y.period),
                   "run one of them again with the --period and --hours of the other");
    }
    if (x.rule != y.rule) {
        refusePair(a, b, "their rules are " + either(x.rule, y.rule),
                   "run one of them again with the rule of the other");
    }
    std::vector<std::string> doubts;
    const auto doubt = [&](const char* what, const std::string& one, const std::string& other) {
        if (one != other) {
            doubts.push_back(fmt::format("the {} differ: {}", what, either(one, other)));
        }
    };
    if (x.method != y.method &&
        (hasSensorWithoutNormal(a.field) || hasSensorWithoutNormal(b.field))) {
        refusePair(a, b,
                   fmt::format("the methods {} take sensors without normals for different things",
                               either(x.method, y.method)),
                   "run one of them again with the --method of the other");
    }
    doubt("methods", x.method, y.method);
    doubt("reflectances of surfaces", x.reflectance, y.reflectance);
    doubt("albedos of the ground", x.albedo, y.albedo);
    doubt("sites", x.site, y.site);
    if (std::abs(x.latitude - y.latitude) > 1.0e-3 ||
        std::abs(x.longitude - y.longitude) > 1.0e-3) {
        doubts.push_back(fmt::format("the places differ: {:g}, {:g} and {:g}, {:g} (latitude, "
                                     "longitude)",
                                     x.latitude, x.longitude, y.latitude, y.longitude));
    }
    doubt("years of the sun", x.year, y.year);
    doubt("versions of insolate", x.version, y.version);
    if (a.model.north != b.model.north) {
        doubts.push_back(fmt::format("north differs: {:g} and {:g} degrees from the models' +Y",
                                     a.model.north, b.model.north));
    }
    return doubts;
}

/// The quantities that both have. Those of the same name with another meaning are left out, as the
/// peaks of different methods are; other units are refused.
std::vector<std::string> commonValues(const ResultFolder& a, const ResultFolder& b,
                                      const CompareOptions& options,
                                      std::vector<std::string>& doubts) {
    std::vector<std::string> common;
    for (const ResultColumn& column : b.columns) {
        const ResultColumn* const other = a.find(column.name);
        // An hour of the year is no quantity whose difference says anything.
        if (other == nullptr || column.unit == "hour of year" || column.unit == "day of year") {
            continue;
        }
        if (other->unit != column.unit) {
            refusePair(a, b,
                       fmt::format("the units of {} are {} and {}", quoteText(column.name),
                                   quoteText(other->unit), quoteText(column.unit)),
                       "run one of them again with the version of the other");
        }
        if (other->title != column.title) {
            doubts.push_back(fmt::format("{} is left out: it is {} in the one and {} in the other",
                                         quoteText(column.name), quoteText(other->title),
                                         quoteText(column.title)));
            continue;
        }
        common.push_back(column.name);
    }
    if (common.empty()) {
        refusePair(a, b, "they have no quantity in common", "run them by the same method");
    }
    for (const std::string& value : options.values) {
        if (std::find(common.begin(), common.end(), value) == common.end()) {
            throw UsageError(
                fmt::format("--value: {} is no quantity that both studies have{}", quoteText(value),
                            didYouMean(value, common).empty()
                                ? fmt::format("; choose from {}", fmt::join(common, ", "))
                                : didYouMean(value, common)));
        }
    }
    return options.values.empty() ? common : options.values;
}

/// By pair, whether neither of the studies leaves its sensor out of means.
std::vector<bool> countingPairs(const ResultFolder& a, const ResultFolder& b,
                                const Comparison& comparison) {
    std::vector<bool> counts;
    counts.reserve(comparison.pairs.size());
    for (const SensorPair& pair : comparison.pairs) {
        counts.push_back((a.included.empty() || a.included[pair.a] != 0) &&
                         (b.included.empty() || b.included[pair.b] != 0));
    }
    return counts;
}

void addColumns(const ResultColumn& a, const ResultColumn& b, const std::vector<bool>& counts,
                Comparison& comparison) {
    const auto column = [&](const char* suffix, const std::string& unit, const char* title) {
        ResultColumn one{b.name + suffix, unit, fmt::format("{}: {}", b.title, title), {}};
        one.values.reserve(comparison.pairs.size());
        return one;
    };
    ResultColumn difference = column(differenceSuffix, b.unit, "B less A");
    ResultColumn ratio = column("_ratio", "%", "B in percent of A");
    ResultColumn ofA = column("_a", b.unit, "A");
    ResultColumn ofB = column("_b", b.unit, "B");
    constexpr float nothing = std::numeric_limits<float>::quiet_NaN();
    for (std::size_t i = 0; i < comparison.pairs.size(); ++i) {
        const SensorPair& pair = comparison.pairs[i];
        const float x = counts[i] ? a.values[pair.a] : nothing;
        const float y = counts[i] ? b.values[pair.b] : nothing;
        difference.values.push_back(y - x);
        ratio.values.push_back(x != 0.0F ? 100.0F * y / x : nothing);
        ofA.values.push_back(x);
        ofB.values.push_back(y);
    }
    for (ResultColumn* const one : {&difference, &ratio, &ofA, &ofB}) {
        comparison.columns.push_back(std::move(*one));
    }
}

} // namespace

bool isDifference(const ResultColumn& column) {
    return column.name.ends_with(differenceSuffix);
}

SensorField partOf(const SensorField& field, std::span<const std::uint32_t> sensors) {
    SensorField part;
    part.names = field.names;
    for (const GivenColumn& column : field.given) {
        GivenColumn& own = part.given.emplace_back(GivenColumn{column.name, {}});
        for (const std::uint32_t i : sensors) {
            own.values.push_back(column.values[i]);
        }
    }
    if (field.hasCells()) {
        part.cellStart.push_back(0);
    }
    for (const std::uint32_t i : sensors) {
        part.positions.push_back(field.positions[i]);
        part.normals.push_back(field.normals[i]);
        if (!field.origins.empty()) {
            part.origins.push_back(field.origins[i]);
        }
        if (field.hasCells()) {
            part.corners.insert(part.corners.end(), field.corners.begin() + field.cellStart[i],
                                field.corners.begin() + field.cellStart[i + 1]);
            part.cellStart.push_back(static_cast<std::uint32_t>(part.corners.size()));
        }
    }
    return part;
}

Comparison compareResults(const ResultFolder& a, const ResultFolder& b,
                          const CompareOptions& options, const std::stop_token& stop) {
    Comparison comparison;
    comparison.doubts = doubtsOf(a, b);
    comparison.values = commonValues(a, b, options, comparison.doubts);
    comparison.tolerance = toleranceOf(a, b, options);
    findPairs(a, b, comparison, stop);
    if (comparison.pairs.empty()) {
        refusePair(a, b,
                   fmt::format("no sensor of the one lies within {:.3g} m of one of the other that "
                               "looks the same way",
                               std::max(comparison.tolerance, CompareOptions::samePlace)),
                   "compare models that stand at the same place, or give a larger --tolerance");
    }
    std::vector<std::uint32_t> paired;
    paired.reserve(comparison.pairs.size());
    for (const SensorPair& pair : comparison.pairs) {
        paired.push_back(pair.b);
        if (!b.areas.empty()) {
            comparison.areas.push_back(b.areas[pair.b]);
        }
    }
    comparison.field = partOf(b.field, paired);
    const std::vector<bool> counts = countingPairs(a, b, comparison);
    for (const std::string& value : comparison.values) {
        throwIfStopped(stop);
        addColumns(*a.find(value), *b.find(value), counts, comparison);
    }
    return comparison;
}

} // namespace insolate::study
