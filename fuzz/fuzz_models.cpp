// Any bytes as a model; the first chooses the format. The import program's reader works in this
// process, so that what it stumbles over is seen rather than contained.
#include "mesh_promises.h"

#include "study/files/input_file.h"
#include "study/model/assimp_reader.h"
#include "study/model/model_formats.h"

#include <new>

INSOLATE_FUZZ_TARGET(models)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::study;
    if (size == 0) {
        return 0;
    }
    const ModelFormat& format = modelFormats[bytes[0] % modelFormats.size()];
    const insolate::fuzz::MemoryFile file(bytes + 1, size - 1);
    // There is no such folder, so that nothing else can be opened.
    const std::filesystem::path name = "/none/model" + std::string(format.extension);
    try {
        InputFile in(file.name(), inputKinds::model);
        insolate::fuzz::checkMesh(format.extension == ".obj"
                                      ? readObj(file.name())
                                      : readWithAssimp(name, in.descriptor()),
                                  bytes[0] >= 128 ? UpAxis::y : UpAxis::z);
    } catch (const DataError& error) {
        insolate::fuzz::requireFix(error);
    } catch (const std::bad_alloc&) {
    }
    return 0;
}
