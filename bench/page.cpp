/// Writes the page of a made city: bench_page CELLS STEPS FILE. What a browser does with it is
/// measured by viewer/tests/measure.mjs.
#include "study/output/page.h"
#include "study/files/output_folder.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

using namespace insolate::study;

namespace {

struct City {
    Scene scene;
    SensorField field;
};

/// A face of cells of one square metre, and its two triangles.
void addFace(City& city, const Vector3& corner, const Vector3& along, int columns,
             const Vector3& across, int rows, const Vector3& normal, const CellOrigin& origin) {
    const auto at = [&](double column, double row) {
        return Vector3{corner.x + along.x * column + across.x * row,
                       corner.y + along.y * column + across.y * row,
                       corner.z + along.z * column + across.z * row};
    };
    const Vector3 a = at(0, 0);
    const Vector3 b = at(columns, 0);
    const Vector3 c = at(columns, rows);
    const Vector3 d = at(0, rows);
    city.scene.vertices.insert(city.scene.vertices.end(), {a, b, c, a, c, d});
    SensorField& field = city.field;
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            for (const auto& [u, v] : {std::pair(0, 0), {1, 0}, {1, 1}, {0, 1}}) {
                field.corners.push_back(at(column + u, row + v));
            }
            field.cellStart.push_back(static_cast<std::uint32_t>(field.corners.size()));
            field.positions.push_back(at(column + 0.5, row + 0.5));
            field.normals.push_back(normal);
            field.origins.push_back(origin);
        }
    }
}

/// Blocks of 24 x 24 m with a house of 14 x 14 m, until there are so many cells.
City makeCity(std::size_t cells) {
    City city;
    city.field.cellStart.push_back(0);
    city.field.names = {"ground", "walls", "roofs"};
    std::mt19937 random(11);
    const int blocks = static_cast<int>(std::ceil(std::sqrt(static_cast<double>(cells) / 1600.0)));
    std::uint32_t face = 0;
    for (int i = 0; city.field.size() < cells; ++i) {
        const double x = 24.0 * (i % blocks);
        const double y = 24.0 * (i / blocks);
        const int tall = 6 + static_cast<int>(random() % 26);
        const auto origin = [&](std::uint32_t kind) {
            city.field.names.push_back("house " + std::to_string(i));
            return CellOrigin{.face = face++,
                              .object = static_cast<std::uint32_t>(city.field.names.size() - 1),
                              .material = kind};
        };
        const CellOrigin street = {.face = face++, .object = 0, .material = 0};
        const Vector3 east = {1, 0, 0};
        const Vector3 north = {0, 1, 0};
        const Vector3 up = {0, 0, 1};
        addFace(city, {x, y, 0}, east, 24, north, 5, up, street);
        addFace(city, {x, y + 19, 0}, east, 24, north, 5, up, street);
        addFace(city, {x, y + 5, 0}, east, 5, north, 14, up, street);
        addFace(city, {x + 19, y + 5, 0}, east, 5, north, 14, up, street);
        const double z = tall;
        const CellOrigin house = origin(1);
        addFace(city, {x + 5, y + 5, 0}, east, 14, up, tall, {0, -1, 0}, house);
        addFace(city, {x + 19, y + 5, 0}, north, 14, up, tall, {1, 0, 0}, house);
        addFace(city, {x + 19, y + 19, 0}, {-1, 0, 0}, 14, up, tall, {0, 1, 0}, house);
        addFace(city, {x + 5, y + 19, 0}, {0, -1, 0}, 14, up, tall, {-1, 0, 0}, house);
        addFace(city, {x + 5, y + 5, z}, east, 14, north, 14, up, house);
    }
    return city;
}

/// Values that go gently over the city, with the half percent of noise that rays leave.
ResultColumn column(const City& city, const char* name, const char* unit, double highest,
                    double phase) {
    std::mt19937 random(3);
    std::normal_distribution<double> noise(1.0, 0.005);
    ResultColumn made = {name, unit, name, {}};
    for (std::size_t i = 0; i < city.field.size(); ++i) {
        const Vector3& p = city.field.positions[i];
        const Vector3& n = city.field.normals[i];
        const double facing = 0.55 + 0.3 * n.z - 0.15 * n.y;
        const double shade = 0.5 + 0.5 * std::sin(0.21 * p.x + phase) * std::cos(0.17 * p.y);
        const double height = std::min(1.0, 0.4 + 0.03 * p.z);
        made.values.push_back(
            static_cast<float>(highest * facing * (0.3 + 0.7 * shade * height) * noise(random)));
    }
    return made;
}

} // namespace

int main(int count, char** arguments) {
    if (count != 4) {
        std::fputs("usage: bench_page CELLS STEPS FILE\n", stderr);
        return 2;
    }
    const City city = makeCity(std::strtoull(arguments[1], nullptr, 10));
    std::vector<ResultColumn> columns;
    columns.push_back(column(city, "total", "Wh/m2", 1.2e6, 0.0));
    columns.push_back(column(city, "beam", "Wh/m2", 7.0e5, 0.1));
    columns.push_back(column(city, "sky", "Wh/m2", 4.0e5, 0.2));
    columns.push_back(column(city, "ground", "Wh/m2", 1.0e5, 0.3));
    columns.push_back(column(city, "peak", "W/m2", 980.0, 0.4));
    columns.push_back(column(city, "sky_view", "%", 100.0, 0.5));
    columns.push_back(column(city, "direct_sun_hours", "h", 4300.0, 0.6));
    std::vector<ResultColumn> steps;
    for (long step = 0; step < std::strtol(arguments[2], nullptr, 10); ++step) {
        steps.push_back(column(city, "total", "Wh/m2", 1.4e5, 0.2 * static_cast<double>(step)));
    }
    PageResult result;
    result.name = "a made city";
    result.scene = &city.scene;
    result.field = &city.field;
    result.columns = columns;
    result.steps = steps;
    result.site = PageSite{47.0, 8.0, 1.0};
    const auto begin = std::chrono::steady_clock::now();
    OutputFile out(arguments[3], arguments[3]);
    writePage(out, {&result, 1});
    out.finish();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    std::printf("%zu cells, %zu steps: %.2f MB written in %.2f s\n", city.field.size(),
                steps.size(), static_cast<double>(std::filesystem::file_size(arguments[3])) / 1e6,
                took.count());
}
