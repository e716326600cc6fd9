/// The formats of models that are read, by the ending of the file's name.
#pragma once

#include "study/support/file_name.h"

#include <array>
#include <filesystem>
#include <string_view>

namespace insolate::study {

/// The axis that points up in files of a format.
enum class FormatUp { y, z, namedInFile };

struct ModelFormat {
    std::string_view extension; ///< in lower case, with its dot
    std::string_view name;      ///< "glTF"
    FormatUp up = FormatUp::z;
    /// The reader turns files with z up, so that they arrive with y up.
    bool isTurnedByReader = false;
};

/// OBJ is read by this library, all others by assimp in a process of its own. Of assimp's some
/// fifty readers these are for buildings, terrain and machine parts; those for games and animation
/// stay switched off.
inline constexpr std::array<ModelFormat, 13> modelFormats = {
    {{".obj", "OBJ"},
     {".stl", "STL"},
     {".ply", "PLY"},
     {".gltf", "glTF", FormatUp::y},
     {".glb", "glTF", FormatUp::y},
     {".dae", "Collada", FormatUp::namedInFile, true},
     {".3ds", "3DS", FormatUp::z, true},
     {".fbx", "FBX"},
     {".dxf", "DXF", FormatUp::z, true},
     {".off", "OFF"},
     {".3mf", "3MF"},
     {".amf", "AMF"},
     {".ifc", "IFC", FormatUp::z, true}}};

/// The format of the file's name, nullptr for any other.
inline const ModelFormat* modelFormatOf(const std::filesystem::path& file) {
    for (const ModelFormat& format : modelFormats) {
        if (hasExtension(file, {format.extension})) {
            return &format;
        }
    }
    return nullptr;
}

} // namespace insolate::study
