// What it costs that models of foreign formats are read in a process of their own: the same files
// read by the same reader in this process and by the import program.
//   bench_import [triangles = 1000000]
#include <bench/race.h>
#include <bench/scenes.h>

#include "study/files/input_file.h"
#include "study/model/assimp_reader.h"
#include "study/model/import_process.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stop_token>
#include <string>
#include <utility>

#include <unistd.h>

namespace {

using namespace insolate::study;
using Triangles = insolate::scenes::Scene;

template <typename Value>
void put(std::ofstream& out, const Value& value) {
    out.write(reinterpret_cast<const char*>(&value), sizeof value);
}

void putPoint(std::ofstream& out, const double* point) {
    for (int axis = 0; axis < 3; ++axis) {
        put(out, static_cast<float>(point[axis]));
    }
}

void writeStl(const Triangles& scene, std::ofstream& out) {
    out.write(std::string(80, ' ').data(), 80);
    put(out, static_cast<std::uint32_t>(scene.triangleCount()));
    const double noNormal[3] = {0, 0, 0};
    for (std::size_t i = 0; i < scene.triangleCount(); ++i) {
        putPoint(out, noNormal);
        for (std::size_t corner = 0; corner < 3; ++corner) {
            putPoint(out, &scene.coordinates[9 * i + 3 * corner]);
        }
        put(out, std::uint16_t{0});
    }
}

void writePly(const Triangles& scene, std::ofstream& out) {
    out << "ply\nformat binary_little_endian 1.0\nelement vertex " << 3 * scene.triangleCount()
        << "\nproperty float x\nproperty float y\nproperty float z\nelement face "
        << scene.triangleCount() << "\nproperty list uchar int vertex_indices\nend_header\n";
    for (std::size_t i = 0; i < scene.coordinates.size(); i += 3) {
        putPoint(out, &scene.coordinates[i]);
    }
    for (std::size_t i = 0; i < scene.triangleCount(); ++i) {
        put(out, std::uint8_t{3});
        for (std::size_t corner = 0; corner < 3; ++corner) {
            put(out, static_cast<std::int32_t>(3 * i + corner));
        }
    }
}

bool areSame(const Mesh& a, const Mesh& b) {
    return a.faces.size() == b.faces.size() && a.corners == b.corners &&
           a.vertices.size() == b.vertices.size() &&
           std::memcmp(a.vertices.data(), b.vertices.data(), a.vertices.size() * sizeof(Vector3)) ==
               0;
}

bool raceReaders(const std::filesystem::path& file) {
    Mesh here;
    Mesh there;
    const auto bytes = std::filesystem::file_size(file);
    const auto timings = insolate::bench::race(
        {{"in this process",
          [&] {
              const InputFile in(file, inputKinds::model);
              here = readWithAssimp(file, in.descriptor());
          }},
         {"by the import program", [&] {
              const InputFile in(file, inputKinds::model);
              there = readInProcess(file, in.descriptor(), *modelFormatOf(file), {},
                                    defaultImportLimits(bytes), std::stop_token());
          }}});
    std::printf("%s of %.0f MB, %zu triangles: %.2f s in this process, %.2f s by the import "
                "program\n",
                file.extension().c_str(), static_cast<double>(bytes) / 1e6, there.faces.size(),
                timings[0].median, timings[1].median);
    return areSame(here, there);
}

} // namespace

int main(int argc, char** argv) {
    insolate::bench::prepareRaces(argc, argv, 5);
    const long triangles = argc > 1 ? std::atol(argv[1]) : 1000000;
    if (triangles < 1) {
        std::fprintf(stderr, "bench_import: give a number of triangles from 1 up\n");
        return 2;
    }
    const Triangles model = insolate::scenes::city(static_cast<std::size_t>(triangles), 0);
    const std::filesystem::path folder = std::filesystem::temp_directory_path() /
                                         ("insolate-bench-import-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    bool isSame = true;
    for (const auto& [name, write] : {std::pair{"city.stl", &writeStl}, {"city.ply", &writePly}}) {
        std::ofstream out(folder / name, std::ios::binary);
        write(model, out);
        out.close();
        isSame = out.good() && raceReaders(folder / name) && isSame;
    }
    std::filesystem::remove_all(folder);
    if (!isSame) {
        std::fprintf(
            stderr,
            "bench_import: the files cannot be written, or the two ways give different meshes\n");
        return 1;
    }
}
