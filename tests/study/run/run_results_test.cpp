// The files of one run hold the same numbers: groups, months and hours add up to the sensors'.
#include "study/run/run_study.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"

#include <cstdint>
#include <map>

#include <gmock/gmock.h>
#include <netcdf.h>

namespace insolate::study {
namespace {

using test::rowsOf;
using Table = std::map<std::string, std::vector<std::string>>;

/// Columns by their names without units.
Table tableOf(const std::filesystem::path& file) {
    Table table;
    const auto rows = rowsOf(file);
    for (std::size_t c = 0; c < rows[0].size(); ++c) {
        std::vector<std::string>& column = table[rows[0][c].substr(0, rows[0][c].find(" ["))];
        for (std::size_t r = 1; r < rows.size(); ++r) {
            column.push_back(c < rows[r].size() ? rows[r][c] : "");
        }
    }
    return table;
}

double numberAt(const Table& table, const std::string& column, std::size_t row) {
    return std::stod(table.at(column).at(row));
}

/// What a variable of a NetCDF file holds, scaled.
std::vector<double> valuesOf(int file, const char* name) {
    int variable = 0;
    EXPECT_EQ(nc_inq_varid(file, name, &variable), NC_NOERR) << name;
    int count = 0;
    int dimensions[2] = {};
    nc_inq_varndims(file, variable, &count);
    nc_inq_vardimid(file, variable, dimensions);
    std::size_t size = 1;
    for (int i = 0; i < count; ++i) {
        std::size_t length = 0;
        nc_inq_dimlen(file, dimensions[i], &length);
        size *= length;
    }
    std::vector<double> values(size);
    EXPECT_EQ(nc_get_var_double(file, variable, values.data()), NC_NOERR) << name;
    double scale = 1.0;
    nc_get_att_double(file, variable, "scale_factor", &scale);
    for (double& value : values) {
        value *= scale;
    }
    return values;
}

class RunResults : public testing::Test {
protected:
    RunResults() {
        options.weather = folder.write("a.epw", test::clearYear());
        options.scenes = {folder.write("court.obj", test::courtModel())};
        options.out = folder.path() / "out";
        options.grid = 2.5;
    }
    void run() {
        Progress quiet;
        runStudy(options, quiet);
        sensors = tableOf(options.out / "sensors.csv");
        count = sensors["total"].size();
    }

    const test::StudyFolder folder;
    RunOptions options;
    Table sensors;
    std::size_t count = 0;
};

TEST_F(RunResults, GroupsAndMonthsAddUp) {
    options.hourly.split = PeriodSplit::month;
    options.hourly.periods = {parseAskedPeriod("6/1-6/30")};
    options.groups.by = {{}, {GroupKey::material, GroupKey::orientation}};
    run();
    double all = 0.0;
    std::map<std::string, double> byMaterial;
    for (std::size_t i = 0; i < count; ++i) {
        const double energy = numberAt(sensors, "total", i) * numberAt(sensors, "area", i);
        all += energy;
        byMaterial[sensors["material"][i]] += energy;
        double months = 0.0;
        double hours = 0.0;
        for (const char* month :
             {"jan", "feb", "mar", "apr", "may", "jun", "jul", "aug", "sep", "oct", "nov", "dec"}) {
            months += numberAt(sensors, std::string("total_") + month, i);
            hours += numberAt(sensors, std::string("direct_sun_hours_") + month, i);
        }
        EXPECT_NEAR(months, numberAt(sensors, "total", i), 1e-5 * months);
        EXPECT_NEAR(hours, numberAt(sensors, "direct_sun_hours", i), 1e-5 * hours + 1e-3);
        EXPECT_EQ(sensors["beam_06_01_06_30"][i], sensors["beam_jun"][i]);
    }
    const Table groups = tableOf(options.out / "groups.csv");
    EXPECT_NEAR(numberAt(groups, "total", 0), 1e-6 * all, 1e-12 * all);
    // rowsOf() knows no quotes: "material,orientation" is two of its columns, the first with the
    // quote.
    std::map<std::string, double> written;
    for (const auto& row : rowsOf(options.out / "groups.csv")) {
        if (row[0] == "\"material") {
            written[row[3]] += std::stod(row[8]);
        }
    }
    ASSERT_EQ(written.size(), 2U);
    for (const auto& [material, energy] : byMaterial) {
        EXPECT_NEAR(written[material], 1e-6 * energy, 1e-12 * energy) << material;
    }
}

TEST_F(RunResults, HoursAddUpToTheSensorsAndToTheGroups) {
    options.period = {.startDay = 355, .endDay = 20, .startHour = 7.5, .endHour = 24.0};
    options.hourly.hoursOf.all = true;
    run();
    int file = 0;
    ASSERT_EQ(nc_open((options.out / "hours.nc").c_str(), NC_NOWRITE, &file), NC_NOERR);
    const std::vector<double> time = valuesOf(file, "time");
    ASSERT_EQ(time.size(), 31U * 17U);
    EXPECT_EQ(time.front(), 7.5);
    EXPECT_EQ(time.back(), 8759.5);
    std::map<std::string, std::vector<double>> parts;
    for (const char* part : {"beam", "sky", "ground"}) {
        parts[part] = valuesOf(file, part);
        ASSERT_EQ(parts[part].size(), count * time.size());
    }
    const std::vector<double> xBounds = valuesOf(file, "x_bounds");
    const std::vector<double> x = valuesOf(file, "x");
    nc_close(file);
    std::vector<double> mean(time.size(), 0.0);
    double area = 0.0;
    for (std::size_t i = 0; i < count; ++i) {
        for (const auto& [name, values] : parts) {
            double sum = 0.0;
            for (std::size_t k = 0; k < time.size(); ++k) {
                sum += values[i * time.size() + k];
                mean[k] += values[i * time.size() + k] * numberAt(sensors, "area", i);
            }
            EXPECT_NEAR(sum, numberAt(sensors, name, i),
                        0.1 + 1e-4 * numberAt(sensors, "total", i));
        }
        area += numberAt(sensors, "area", i);
        EXPECT_EQ(x[i], numberAt(sensors, "x", i));
        EXPECT_NEAR((xBounds[4 * i] + xBounds[4 * i + 2]) / 2.0, x[i], 0.051);
    }

    options.hourly.hoursOf = {.groups = true};
    options.groups.by = {{}};
    run();
    const Table hours = tableOf(options.out / "hours.csv");
    ASSERT_EQ(hours.at("start").size(), time.size());
    EXPECT_EQ(hours.at("start")[0], "2001-01-01T07:00+00:00");
    for (std::size_t k = 0; k < time.size(); ++k) {
        EXPECT_NEAR(numberAt(hours, "beam_all", k) + numberAt(hours, "sky_all", k) +
                        numberAt(hours, "ground_all", k),
                    mean[k] / area, 0.3);
    }
}

TEST_F(RunResults, HoursEndWithAStop) {
    options.hourly.hoursOf.all = true;
    std::stop_source stop;
    struct StopsAtHours final : Progress {
        void begin(std::size_t, std::string_view things) override {
            if (things == "sensors' hours") {
                source->request_stop();
            }
        }
        std::stop_source* source = nullptr;
    } progress;
    progress.source = &stop;
    EXPECT_THROW(runStudy(options, progress, stop.get_token()), Stopped);
    EXPECT_FALSE(std::filesystem::exists(options.out / "hours.nc"));
    EXPECT_FALSE(std::filesystem::exists(options.out / "summary.json"));
}

} // namespace
} // namespace insolate::study
