// Which cells are the same place, what differs there, and which studies cannot be compared.
#include "study/results/comparison.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

#include <gmock/gmock.h>

namespace insolate::study {
namespace {

using test::messageOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

void addSensor(ResultFolder& results, const Vector3& place, const Vector3& normal, float total,
               float area) {
    results.field.positions.push_back(place);
    results.field.normals.push_back(normal);
    results.columns[0].values.push_back(total);
    results.areas.push_back(area);
}

ResultFolder emptyResults() {
    ResultFolder results;
    results.folder = "there";
    results.facts.period = "21 June";
    results.facts.method = "hourly";
    results.columns = {{"total", "Wh/m2", "Total radiation", {}}};
    return results;
}

/// Level cells of this edge side by side from x = y = `from` on; the total is 100 x + y.
ResultFolder levelGrid(double edge, int count, double from = 0.0) {
    ResultFolder results = emptyResults();
    for (int i = 0; i < count * count; ++i) {
        const Vector3 p{from + edge * (0.5 + i % count), from + edge * (0.5 + i / count), 0.05};
        addSensor(results, p, {0, 0, 1}, static_cast<float>(100.0 * p.x + p.y),
                  static_cast<float>(edge * edge));
    }
    return results;
}

ResultFolder shuffled(const ResultFolder& results, unsigned seed) {
    std::vector<std::uint32_t> order(results.field.size());
    std::iota(order.begin(), order.end(), 0U);
    std::shuffle(order.begin(), order.end(), std::mt19937(seed));
    ResultFolder other = results;
    other.field = partOf(results.field, order);
    for (std::size_t i = 0; i < order.size(); ++i) {
        other.columns[0].values[i] = results.columns[0].values[order[i]];
        other.areas[i] = results.areas[order[i]];
    }
    return other;
}

TEST(Comparison, TakesTheSamePlacesInWhateverOrder) {
    ResultFolder a = levelGrid(2.0, 6);
    ResultFolder b = levelGrid(2.0, 6);
    for (float& total : b.columns[0].values) {
        total -= 7.0F;
    }
    // Both sides of a thin wall, and points that face nowhere, at one place.
    for (ResultFolder* const side : {&a, &b}) {
        const float more = side == &b ? 1.0F : 0.0F;
        addSensor(*side, {3, 3, 2}, {0, 1, 0}, 10.0F + more, 4.0F);
        addSensor(*side, {3, 3, 2}, {0, -1, 0}, 20.0F + 2.0F * more, 4.0F);
        addSensor(*side, {3, 3, 2}, {0, 0, 0}, 30.0F + 3.0F * more, 4.0F);
    }
    const Comparison straight = compareResults(a, b);
    EXPECT_EQ(straight.samePlaces, 39U);
    EXPECT_THAT(straight.onlyA, IsEmpty());
    EXPECT_THAT(straight.onlyB, IsEmpty());
    EXPECT_THAT(straight.doubts, IsEmpty());
    const std::vector<float>& difference = straight.columns[0].values;
    EXPECT_EQ(std::count(difference.begin(), difference.end(), -7.0F), 36);
    EXPECT_THAT(std::vector(difference.end() - 3, difference.end()), ElementsAre(1, 2, 3));
    // The order of A changes nothing.
    EXPECT_EQ(compareResults(shuffled(a, 5), b).columns[0].values, difference);
}

/// Says of which of the names each sensor's cell is.
void setObjects(ResultFolder& results, const std::vector<std::string>& objects) {
    results.field.names = {"house", "annex"};
    for (const std::string& object : objects) {
        results.field.origins.push_back({0, object == "house" ? 0U : 1U, CellOrigin::unnamed});
    }
}

TEST(Comparison, PairsCellsAtOnePlaceByNormalThenObjectThenOrder) {
    // Two bodies share a wall, and one face is there twice: cells at one place that look the same
    // way, and one that looks half a degree aside.
    const Vector3 aside = {std::sin(0.0087), std::cos(0.0087), 0.0};
    ResultFolder a = emptyResults();
    ResultFolder b = emptyResults();
    const auto add = [](ResultFolder& to, const Vector3& normal, float total) {
        addSensor(to, {3, 3, 2}, normal, total, 4.0F);
    };
    add(a, {0, 1, 0}, 1.0F); // house
    add(a, {0, 1, 0}, 2.0F); // annex
    add(a, aside, 4.0F);     // house
    add(a, {0, 1, 0}, 8.0F); // annex
    setObjects(a, {"house", "annex", "house", "annex"});
    add(b, aside, 4.0F);     // annex: the normal decides before the object
    add(b, {0, 1, 0}, 2.0F); // annex: the first of two
    add(b, {0, 1, 0}, 1.0F); // house
    add(b, {0, 1, 0}, 8.0F); // annex
    setObjects(b, {"annex", "annex", "house", "annex"});
    const Comparison same = compareResults(a, b);
    EXPECT_THAT(same.columns[0].values, ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(same.samePlaces, 4U);
    EXPECT_THAT(same.onlyA, IsEmpty());

    // Where one side has fewer, the others still have their place there.
    ResultFolder single = emptyResults();
    add(single, {0, 1, 0}, 1.0F);
    setObjects(single, {"house"});
    EXPECT_THAT(compareResults(single, a).columns[0].values, ElementsAre(0, 1, 3, 7));
    const Comparison fewer = compareResults(a, single);
    EXPECT_THAT(fewer.columns[0].values, ElementsAre(0));
    EXPECT_THAT(fewer.onlyA, IsEmpty());

    // Within the tolerance the nearest decides, and the object between equally near ones.
    ResultFolder beside = emptyResults();
    addSensor(beside, {2, 3, 2}, {0, 1, 0}, 10.0F, 4.0F);
    addSensor(beside, {4, 3, 2}, {0, 1, 0}, 20.0F, 4.0F);
    setObjects(beside, {"annex", "house"});
    EXPECT_THAT(compareResults(beside, single).columns[3].values, ElementsAre(1));
    EXPECT_THAT(compareResults(beside, single).columns[2].values, ElementsAre(20));
}

TEST(Comparison, FindsTheCellInWhichACentreLiesWhereGridsDiffer) {
    const ResultFolder coarse = levelGrid(2.0, 6); // 12 by 12 m
    const ResultFolder fine = levelGrid(1.0, 13);  // 13 by 13 m
    const Comparison finer = compareResults(coarse, fine);
    EXPECT_EQ(finer.samePlaces, 0U);
    EXPECT_NEAR(finer.tolerance, 1.5, 1.0e-12);
    EXPECT_THAT(finer.onlyA, IsEmpty());
    // The centres of the last row and column lie 1.58 m from the nearest ones of the coarse grid,
    // or at the corner 2.12 m.
    EXPECT_THAT(finer.onlyB, SizeIs(25));
    ASSERT_THAT(finer.pairs, SizeIs(144));
    for (const SensorPair& pair : finer.pairs) {
        const Vector3& p = coarse.field.positions[pair.a];
        const Vector3& q = fine.field.positions[pair.b];
        EXPECT_LT(std::max(std::abs(p.x - q.x), std::abs(p.y - q.y)), 1.0);
        EXPECT_NEAR(pair.distance, std::hypot(0.5, 0.5), 1.0e-6);
    }
    // The other way round each coarse cell takes one of four equally near ones: the first by x and
    // y, in whatever order they stand. None of the others is missing in B.
    const Comparison coarser = compareResults(fine, coarse);
    EXPECT_THAT(coarser.pairs, SizeIs(36));
    EXPECT_THAT(coarser.onlyA, SizeIs(25));
    EXPECT_EQ(coarser.columns[0].values, std::vector<float>(36, 50.5F)); // half a metre x and y
    EXPECT_EQ(compareResults(shuffled(fine, 3), coarse).columns[0].values,
              coarser.columns[0].values);
    // A millimetre is no other place; without a tolerance anything else is.
    EXPECT_EQ(compareResults(coarse, levelGrid(2.0, 6, 0.0005)).samePlaces, 36U);
    EXPECT_THAT(messageOf([&] { compareResults(coarse, fine, {.tolerance = 0.0}); }),
                HasSubstr("no sensor of the one lies within 0.001 m of one of the other"));
}

TEST(Comparison, GivesNoPartnerThatIsAtThePlaceOfAnother) {
    // B has the cells of A, one of them turned by 20 degrees, and one more 1.2 m beside them.
    const ResultFolder a = levelGrid(2.0, 3);
    ResultFolder b = a;
    b.field.normals[0] = {std::sin(0.349), 0.0, std::cos(0.349)};
    addSensor(b, {6.2, 1.0, 0.05}, {0, 0, 1}, 1.0F, 0.5F);
    const Comparison comparison = compareResults(a, b);
    EXPECT_EQ(comparison.samePlaces, 8U);
    EXPECT_THAT(comparison.pairs, SizeIs(8));
    EXPECT_THAT(comparison.onlyA, ElementsAre(0));
    EXPECT_THAT(comparison.onlyB, ElementsAre(0, 9));
}

TEST(Comparison, LeavesOutOnBothSidesWhatOneOfThemLeavesOut) {
    // B closes the second sensor in, A the third, as buildings on a square do.
    ResultFolder a = levelGrid(1.0, 2);
    ResultFolder b = levelGrid(1.0, 2);
    b.included = {1, 0, 1, 1};
    a.included = {1, 1, 0, 1};
    const Comparison comparison = compareResults(a, b);
    for (const ResultColumn& column : comparison.columns) {
        std::vector<int> isThere;
        for (const float value : column.values) {
            isThere.push_back(std::isfinite(value) ? 1 : 0);
        }
        EXPECT_THAT(isThere, ElementsAre(1, 0, 0, 1)) << column.name;
    }
}

TEST(Comparison, SubtractsAAndDividesByIt) {
    ResultFolder a = emptyResults();
    ResultFolder b = emptyResults();
    a.columns.push_back({"peak", "W/m2", "Highest mean of an hour", {500, 0}});
    b.columns.push_back({"peak", "W/m2", "Highest mean of an hour", {400, 30}});
    a.columns.push_back({"peak_hour", "hour of year", "Hour of the peak", {12, 12}});
    b.columns.push_back({"peak_hour", "hour of year", "Hour of the peak", {13, 12}});
    for (const float x : {0.0F, 5.0F}) {
        addSensor(a, {static_cast<double>(x), 0, 0}, {0, 0, 1}, 1000.0F + x, 1.0F);
        addSensor(b, {static_cast<double>(x), 0, 0}, {0, 0, 1}, 1250.0F - x, 2.0F);
    }
    const Comparison both = compareResults(a, b);
    EXPECT_THAT(both.values, ElementsAre("total", "peak"));
    const std::vector<std::pair<std::string, std::vector<float>>> expected = {
        {"total_difference [Wh/m2]", {250, 240}},
        {"total_ratio [%]", {125, 100.0F * 1245 / 1005}},
        {"total_a [Wh/m2]", {1000, 1005}},
        {"total_b [Wh/m2]", {1250, 1245}},
        {"peak_difference [W/m2]", {-100, 30}},
        {"peak_ratio [%]", {80, NAN}},
        {"peak_a [W/m2]", {500, 0}},
        {"peak_b [W/m2]", {400, 30}}};
    ASSERT_EQ(both.columns.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const ResultColumn& column = both.columns[i];
        EXPECT_EQ(column.name + " [" + column.unit + "]", expected[i].first);
        EXPECT_EQ(isDifference(column), i % 4 == 0);
        EXPECT_THAT(column.values,
                    testing::Pointwise(testing::NanSensitiveFloatEq(), expected[i].second));
    }
    EXPECT_THAT(both.areas, ElementsAre(2, 2));
    EXPECT_THAT(compareResults(a, b, {.values = {"peak"}}).columns, SizeIs(4));
    EXPECT_THAT(messageOf([&] { compareResults(a, b, {.values = {"totl"}}); }),
                HasSubstr("--value: 'totl' is no quantity that both studies have; did you mean"));
}

TEST(Comparison, RefusesWhatIsNotTheSameQuestion) {
    using Facts = StudyFacts;
    const ResultFolder a = levelGrid(1.0, 2);
    const struct {
        void (*change)(ResultFolder&);
        const char* message;
    } cases[] = {
        {[](ResultFolder& b) { b.facts.period = "21 July"; }, "periods are '21 June' and '21 July"},
        {[](ResultFolder& b) { b.facts.rule = "2 h"; }, "their rules are '' and '2 h'"},
        {[](ResultFolder& b) { b.facts.question = Facts::Question::sunHours; }, "hours of sun"},
        {[](ResultFolder& b) { b.facts.question = Facts::Question::comparison; },
         "one of them is a comparison already"},
        {[](ResultFolder& b) { b.columns[0].unit = "kWh/m2"; }, "units of 'total' are 'Wh/m2' and"},
        {[](ResultFolder& b) { b.columns[0].name = "sun"; }, "no quantity in common"},
        {[](ResultFolder& b) {
             b.facts.method = "perez-sky";
             b.field.normals[3] = {};
         },
         "methods 'hourly' and 'perez-sky' take sensors without normals for different things"},
        {[](ResultFolder& b) {
             for (Vector3& p : b.field.positions) {
                 p.z += 10.0;
             }
         },
         "no sensor of the one lies within 0.75 m of one of the other that looks the same way"},
    };
    for (const auto& c : cases) {
        ResultFolder b = a;
        c.change(b);
        EXPECT_THAT(messageOf([&] { compareResults(a, b); }),
                    testing::AllOf(HasSubstr("there and there cannot be compared: "),
                                   HasSubstr(c.message)));
    }
    for (const double tolerance : {-1.0, 101.0, static_cast<double>(NAN)}) {
        EXPECT_THROW(compareResults(a, a, {.tolerance = tolerance}), UsageError);
    }
    // What may be meant is said, and a quantity of the same name with another meaning left out.
    ResultFolder b = a;
    b.facts.method = "perez-sky";
    b.facts.site = "elsewhere";
    b.model.north = 10.0;
    ResultFolder withPeak = a;
    withPeak.columns.push_back({"peak", "W/m2", "Highest mean of an hour", {1, 2, 3, 4}});
    b.columns.push_back({"peak", "W/m2", "Peak radiation", {1, 2, 3, 4}});
    const Comparison doubtful = compareResults(withPeak, b);
    EXPECT_THAT(doubtful.values, ElementsAre("total"));
    EXPECT_THAT(doubtful.doubts,
                ElementsAre("the methods differ: 'hourly' and 'perez-sky'", HasSubstr("the sites"),
                            HasSubstr("north differs: 0 and 10"), HasSubstr("'peak' is left out")));
}

} // namespace
} // namespace insolate::study
