// Any bytes as a city model, in the highest level of detail and in one that is asked for.
#include "mesh_promises.h"

#include "study/model/cityjson_reader.h"
#include "study/model/coplanar.h"
#include "study/model/winding.h"

INSOLATE_FUZZ_TARGET(cityjson)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::study;
    using insolate::fuzz::require;
    const insolate::fuzz::MemoryFile file(bytes, size);
    for (const char* lod : {"", "1.2"}) {
        try {
            Mesh mesh = readCityJson(file.name(), lod);
            const std::size_t faces = mesh.faces.size();
            orientFaces(mesh, Orient::outward);
            const Bodies bodies = findBodies(mesh);
            require(bodies.count(Winding::inward) == 0 && bodies.count(Winding::mixed) == 0,
                    "what was turned outwards stays so");
            require(mergeCoplanarTriangles(mesh).mesh.faces.size() <= faces,
                    "merging makes faces fewer");
            insolate::fuzz::checkMesh(std::move(mesh), UpAxis::z);
        } catch (const DataError&) {
        }
    }
    return 0;
}
