// A foreign program in a few lines: a cube is read, and its faces are cut into cells.
#include <study/study.h>

#include <cstdio>
#include <fstream>

int main() {
    using namespace insolate::study;
    std::ofstream("cube.obj")
        << "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\nv 1 0 1\nv 1 1 1\nv 0 1 1\n"
           "f 4 3 2 1\nf 5 6 7 8\nf 1 2 6 5\nf 2 3 7 6\nf 3 4 8 7\nf 4 1 5 8\n";
    const Mesh mesh = importMesh("cube.obj", {});
    const SensorGrid grid =
        cutIntoSensors(mesh, selectFaces(mesh, {}, 0.0, "cube.obj").faces, {.spacing = 0.5});
    std::printf("%zu sensors\n", grid.field.size());
    try {
        importMesh("none.obj", {});
    } catch (const DataError& error) { // thrown by the library, caught here
        std::printf("%s\n", error.what());
        return grid.field.size() == 24 ? 0 : 1;
    }
    return 1;
}
