// Time and memory of the octree's build over a generated city, its package included.
//   bench_octree [triangles = 1000000] [threads = 2]
#include <bench/race.h>
#include <bench/scenes.h>

#include <insolate/rt/input_package_util.h>
#include <insolate/rt/spatial_tree_util.h>

#include <oneapi/tbb/global_control.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include <sys/resource.h>

namespace {

double peakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

} // namespace

int main(int argc, char** argv) {
    insolate::bench::prepareRaces(argc, argv, 3);
    const long triangles = argc > 1 ? std::atol(argv[1]) : 1000000;
    const long threads = argc > 2 ? std::atol(argv[2]) : 2;
    if (triangles < 1 || threads < 1) {
        std::fprintf(stderr, "bench_octree: give numbers of triangles and threads from 1 up\n");
        return 2;
    }
    const tbb::global_control control(tbb::global_control::max_allowed_parallelism,
                                      static_cast<std::size_t>(threads));
    {
        insolate::scenes::Scene city =
            insolate::scenes::city(static_cast<std::size_t>(triangles), 0);
        RT::InputPackageUitl::AddTriangles(city.coordinates.data(),
                                           static_cast<int>(city.coordinates.size()));
        RT::InputPackageUitl::InflateBoundingBox();
        std::printf("package of %zu triangles: peak %.0f MB\n", city.triangleCount(),
                    peakMegabytes());
    }
    const auto timings =
        insolate::bench::race({{"octree", RT::SpatialTreeUtil::GenerateSpatialTree}});
    std::printf("octree on %ld threads: %.2f s, peak of the process %.0f MB\n", threads,
                timings.front().median, peakMegabytes());
}
