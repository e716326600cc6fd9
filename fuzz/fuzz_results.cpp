// Any bytes as one file of a folder of results, beside three that are whole: by the first byte the
// summary, the table of the sensors, their cells or the table of hours.
#include "memory_file.h"

#include "study/output/hours_table.h"
#include "study/output/sensor_tables.h"
#include "study/results/result_folder.h"
#include "study/support/errors.h"

#include <array>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

INSOLATE_FUZZ_TARGET(results)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::study;
    using insolate::fuzz::require;
    static constexpr std::array files = {"summary.json", "sensors.csv", "sensors.vtp", "hours.csv"};
    static const insolate::fuzz::Folder folder;
    static const auto nameOf = [](std::size_t file) { return folder.path() / files[file]; };
    static const std::array<std::string, files.size()> whole =
        [] {
            SensorField field;
            field.positions = {{0.5, 0.5, 0.1}, {1.5, 0.5, 0.1}};
            field.normals = {{0, 0, 1}, {0, 0, 1}};
            field.corners = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                             {1, 0, 0}, {2, 0, 0}, {2, 1, 0}};
            field.cellStart = {0, 4, 7};
            field.origins = {{0, 0, 1}, {1, 0, CellOrigin::unnamed}};
            field.names = {"roof", "slate"};
            const std::array<ResultColumn, 3> columns = {{{"total", "Wh/m2", "Total", {5.0f, 7.0f}},
                                                          {"enclosed", "0 or 1", "", {0.0f, 1.0f}},
                                                          {"area", "m2", "Area", {1.0f, 0.5f}}}};
            OutputFile table(nameOf(1), "table");
            writeSensorsCsv(table, field, columns);
            table.finish();
            OutputFile cells(nameOf(2), "cells");
            writeSensorsVtp(cells, field, columns, "a fuzz target");
            cells.finish();
            HourRow row;
            row.name = "roof";
            for (auto* part : {&row.hours.beam, &row.hours.sky, &row.hours.ground}) {
                part->assign(8760, 1.0f);
            }
            OutputFile hours(nameOf(3), "hours");
            writeHoursCsv(hours, std::array{0, 8759}, 1.0, {&row, 1});
            hours.finish();
            std::ofstream(nameOf(0))
                << R"({"versions": {"insolate": "1"}, "weather": {"latitude_deg": 1.5},
                   "scene": {"files": ["a.obj"], "files_from_here": ["../a.obj"], "triangles": 2,
                             "metres_per_unit": 1.0, "up": "z", "orient": "outward"},
                   "sensors": {"file": "a.obj", "enclosed_in_means": false},
                   "warnings": ["w"], "results": {"total": {"title": "Total", "mean": 6.0}}})";
            std::array<std::string, files.size()> all;
            for (std::size_t file = 0; file < files.size(); ++file) {
                std::ifstream in(nameOf(file), std::ios::binary);
                all[file].assign(std::istreambuf_iterator<char>(in), {});
            }
            return all;
        }();
    if (size == 0) {
        return 0;
    }
    const std::size_t replaced = bytes[0] % files.size();
    std::ofstream(nameOf(replaced), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes) + 1, static_cast<std::streamsize>(size - 1));
    try {
        if (files[replaced] == std::string_view("hours.csv")) {
            for (const HourRow& row : readHoursCsv(nameOf(replaced))) {
                require(row.hours.beam.size() == 8760 && row.hours.ground.size() == 8760,
                        "hours that are read are a year's");
            }
        } else {
            const ResultFolder results = readResultFolder(folder.path());
            const SensorField& field = results.field;
            const std::size_t sensors = field.size();
            require(sensors > 0 && field.normals.size() == sensors, "results have sensors");
            for (const ResultColumn& column : results.columns) {
                require(column.values.size() == sensors, "a column has a value for each sensor");
            }
            require(field.origins.empty() || field.origins.size() == sensors, "so do origins");
            require(!field.hasCells() || (field.cellStart.size() == sensors + 1 &&
                                          field.cellStart.back() == field.corners.size()),
                    "cells share all corners");
            for (std::size_t i = 0; field.hasCells() && i < sensors; ++i) {
                require(field.cellStart[i] + 3 <= field.cellStart[i + 1],
                        "a cell has three corners and more");
            }
        }
    } catch (const DataError& error) {
        insolate::fuzz::requireFix(error);
    }
    std::ofstream(nameOf(replaced), std::ios::binary) << whole[replaced];
    return 0;
}
