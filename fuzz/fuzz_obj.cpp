// Any bytes as an OBJ model.
#include "mesh_promises.h"

INSOLATE_FUZZ_TARGET(obj)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::study;
    const insolate::fuzz::MemoryFile file(bytes, size);
    try {
        insolate::fuzz::checkMesh(readObj(file.name()), UpAxis::z);
    } catch (const DataError&) {
    }
    return 0;
}
