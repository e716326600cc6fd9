#include "study/model/assimp_reader.h"

#include "study/model/model_formats.h"
#include "study/model/whole_model.h"
#include "study/support/errors.h"
#include "study/support/file_name.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <assimp/BaseImporter.h>
#include <assimp/IOStream.hpp>
#include <assimp/IOSystem.hpp>
#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/importerdesc.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace insolate::study {

namespace {

/// A node's place in the model, accumulated in double precision.
struct Placement {
    std::array<double, 12> m = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};

    [[nodiscard]] Placement then(const aiMatrix4x4& child) const {
        const double c[3][4] = {{child.a1, child.a2, child.a3, child.a4},
                                {child.b1, child.b2, child.b3, child.b4},
                                {child.c1, child.c2, child.c3, child.c4}};
        Placement result;
        for (std::size_t row = 0; row < 3; ++row) {
            for (std::size_t column = 0; column < 4; ++column) {
                double sum = column == 3 ? m[row * 4 + 3] : 0.0;
                for (std::size_t k = 0; k < 3; ++k) {
                    sum += m[row * 4 + k] * c[k][column];
                }
                result.m[row * 4 + column] = sum;
            }
        }
        return result;
    }

    [[nodiscard]] Vector3 apply(const aiVector3D& p) const {
        const double x = p.x;
        const double y = p.y;
        const double z = p.z;
        return {m[0] * x + m[1] * y + m[2] * z + m[3], m[4] * x + m[5] * y + m[6] * z + m[7],
                m[8] * x + m[9] * y + m[10] * z + m[11]};
    }

    /// The most by which a length along one of the axes grows.
    [[nodiscard]] double largestScale() const {
        return std::max(
            {length({m[0], m[4], m[8]}), length({m[1], m[5], m[9]}), length({m[2], m[6], m[10]})});
    }

    /// A mirroring placement turns faces inside out.
    [[nodiscard]] bool mirrors() const {
        return dot({m[0], m[1], m[2]}, cross({m[4], m[5], m[6]}, {m[8], m[9], m[10]})) < 0.0;
    }
};

/// From a coordinate to the next one that single precision holds.
double stepAt(float coordinate) {
    return static_cast<double>(std::nextafter(coordinate, std::numeric_limits<float>::max())) -
           static_cast<double>(coordinate);
}

/// A file in memory, as the model library reads it. Only regular files are taken: reading anything
/// else may never end.
class MappedFile final : public Assimp::IOStream {
public:
    /// @param descriptor stays the caller's
    static std::unique_ptr<MappedFile> of(int descriptor) {
        struct stat status = {};
        if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
            return nullptr;
        }
        const auto size = static_cast<std::size_t>(status.st_size);
        void* bytes = nullptr;
        if (size > 0) {
            bytes = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
            if (bytes == MAP_FAILED) {
                return nullptr;
            }
        }
        return std::unique_ptr<MappedFile>(new MappedFile(static_cast<const char*>(bytes), size));
    }
    ~MappedFile() override {
        if (m_size > 0) {
            munmap(const_cast<char*>(m_bytes), m_size);
        }
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    [[nodiscard]] std::string_view bytes() const { return {m_bytes, m_size}; }

    /// Whole items only, as fread gives them.
    std::size_t Read(void* to, std::size_t itemSize, std::size_t count) override {
        if (itemSize == 0) {
            return 0;
        }
        count = std::min(count, (m_size - m_at) / itemSize);
        if (count > 0) {
            std::memcpy(to, m_bytes + m_at, count * itemSize);
        }
        m_at += count * itemSize;
        return count;
    }
    std::size_t Write(const void*, std::size_t, std::size_t) override { return 0; }
    aiReturn Seek(std::size_t offset, aiOrigin origin) override {
        // Offsets from the end or the present place may be negative, wrapped around.
        const std::size_t from = origin == aiOrigin_SET   ? 0
                                 : origin == aiOrigin_CUR ? m_at
                                                          : m_size;
        const std::size_t target = from + offset;
        if (target > m_size) {
            return aiReturn_FAILURE;
        }
        m_at = target;
        return aiReturn_SUCCESS;
    }
    [[nodiscard]] std::size_t Tell() const override { return m_at; }
    [[nodiscard]] std::size_t FileSize() const override { return m_size; }
    void Flush() override {}

private:
    MappedFile(const char* bytes, std::size_t size) : m_bytes(bytes), m_size(size) {}

    const char* m_bytes;
    std::size_t m_size;
    std::size_t m_at = 0;
};

/// Opens the model and what lies beside or below it; a model file cannot name others.
class FolderIo final : public Assimp::IOSystem {
public:
    FolderIo(const std::filesystem::path& model, int descriptor)
        : m_model(model.string()), m_descriptor(descriptor) {
        std::error_code problem;
        // The folder in which the name stands, and where a link leads.
        m_folder = std::filesystem::canonical(model, problem).parent_path();
    }

    bool Exists(const char* file) const override { return file == m_model || isInside(file); }
    [[nodiscard]] char getOsSeparator() const override { return '/'; }
    Assimp::IOStream* Open(const char* file, const char* mode) override {
        if (mode[0] != 'r') {
            return nullptr;
        }
        if (file == m_model) {
            return MappedFile::of(m_descriptor).release();
        }
        if (!isInside(file)) {
            return nullptr;
        }
        const int other = ::open(file, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
        if (other < 0) {
            return nullptr;
        }
        std::unique_ptr<MappedFile> stream = MappedFile::of(other);
        close(other);
        return stream.release();
    }
    void Close(Assimp::IOStream* stream) override { delete stream; }

private:
    [[nodiscard]] bool isInside(const char* file) const {
        std::error_code problem;
        const auto target =
            std::filesystem::weakly_canonical(std::filesystem::absolute(file, problem), problem);
        const auto [end, ignored] =
            std::mismatch(m_folder.begin(), m_folder.end(), target.begin(), target.end());
        return !problem && !m_folder.empty() && end == m_folder.end() &&
               std::filesystem::is_regular_file(target, problem);
    }

    std::string m_model;
    int m_descriptor;
    std::filesystem::path m_folder;
};

/// Leaves the readers for the file's own format: no other is tried on its content.
void keepReadersOf(const std::filesystem::path& file, Assimp::Importer& importer) {
    for (std::size_t i = importer.GetImporterCount(); i-- > 0;) {
        std::istringstream extensions(importer.GetImporterInfo(i)->mFileExtensions);
        bool keeps = false;
        for (std::string extension; extensions >> extension;) {
            keeps = keeps || hasExtension(file, {"." + extension});
        }
        if (!keeps) {
            Assimp::BaseImporter* reader = importer.GetImporter(i);
            importer.UnregisterLoader(reader);
            delete reader; // the library lets go of what it unregisters
        }
    }
}

class AssimpBuilder {
public:
    AssimpBuilder(const aiScene& scene, const std::filesystem::path& file)
        : m_scene(scene), m_file(file) {}

    Mesh build() {
        struct Visit {
            const aiNode* node;
            Placement placement;
        };
        // A stack of its own: node trees may be deeper than the call stack.
        std::vector<Visit> open = {{m_scene.mRootNode, Placement()}};
        while (!open.empty()) {
            const Visit visit = open.back();
            open.pop_back();
            if (visit.node == nullptr) {
                continue;
            }
            const Placement placement = visit.placement.then(visit.node->mTransformation);
            for (unsigned i = 0; i < visit.node->mNumMeshes; ++i) {
                if (const unsigned index = visit.node->mMeshes[i]; index < m_scene.mNumMeshes) {
                    add(*m_scene.mMeshes[index], placement, visit.node->mName.C_Str());
                }
            }
            for (unsigned i = visit.node->mNumChildren; i-- > 0;) {
                open.push_back({visit.node->mChildren[i], placement});
            }
        }
        return std::move(m_mesh);
    }

private:
    void add(const aiMesh& part, const Placement& placement, const char* nodeName) {
        std::size_t corners = m_mesh.corners.size();
        for (unsigned i = 0; i < part.mNumFaces; ++i) {
            corners += part.mFaces[i].mNumIndices;
        }
        if (m_mesh.vertices.size() + part.mNumVertices >= 0xFFFFFFFFU || corners >= 0xFFFFFFFFU) {
            throw DataError(
                fmt::format("{}: the model has more vertices or corners than can be counted; "
                            "split it into several files",
                            place(m_file)));
        }
        const auto firstVertex = static_cast<std::uint32_t>(m_mesh.vertices.size());
        float farthest = 0.0f;
        for (unsigned i = 0; i < part.mNumVertices; ++i) {
            const aiVector3D& p = part.mVertices[i];
            m_mesh.vertices.push_back(placement.apply(p));
            farthest = std::max({farthest, std::abs(p.x), std::abs(p.y), std::abs(p.z)});
        }
        if (const double step = stepAt(farthest) * placement.largestScale(); std::isfinite(step)) {
            m_mesh.coordinateStep = std::max(m_mesh.coordinateStep, step);
        }
        Mesh::Face face;
        face.object = m_mesh.nameIndex(nodeName);
        face.group = m_mesh.nameIndex(part.mName.C_Str());
        if (part.mMaterialIndex < m_scene.mNumMaterials) {
            aiString name;
            m_scene.mMaterials[part.mMaterialIndex]->Get(AI_MATKEY_NAME, name);
            face.material = m_mesh.nameIndex(name.C_Str());
        }
        const bool mirrored = placement.mirrors();
        for (unsigned i = 0; i < part.mNumFaces; ++i) {
            const aiFace& source = part.mFaces[i];
            if (source.mNumIndices < 3) {
                continue; // a point or a line
            }
            face.firstCorner = static_cast<std::uint32_t>(m_mesh.corners.size());
            face.cornerCount = source.mNumIndices;
            for (unsigned k = 0; k < source.mNumIndices; ++k) {
                const unsigned corner = source.mIndices[mirrored ? source.mNumIndices - 1 - k : k];
                if (corner >= part.mNumVertices) {
                    throw DataError(fmt::format("{}: a face names vertex {}, but its part has {}; "
                                                "repair the model and export it again",
                                                place(m_file), corner, part.mNumVertices));
                }
                m_mesh.corners.push_back(firstVertex + corner);
            }
            m_mesh.faces.push_back(face);
        }
    }

    const aiScene& m_scene;
    const std::filesystem::path& m_file;
    Mesh m_mesh;
};

} // namespace

Mesh meshFromAssimp(const aiScene& scene, const std::filesystem::path& file) {
    return AssimpBuilder(scene, file).build();
}

Mesh readWithAssimp(const std::filesystem::path& file, int descriptor) {
    const ModelFormat& format = *modelFormatOf(file);
    if (const auto whole = MappedFile::of(descriptor)) {
        checkIsWhole(whole->bytes(), file, format);
    }
    Assimp::Importer importer;
    keepReadersOf(file, importer);
    // Only what shapes the surfaces is read.
    importer.SetPropertyInteger(
        AI_CONFIG_PP_RVC_FLAGS,
        aiComponent_NORMALS | aiComponent_TANGENTS_AND_BITANGENTS | aiComponent_COLORS |
            aiComponent_TEXCOORDS | aiComponent_BONEWEIGHTS | aiComponent_ANIMATIONS |
            aiComponent_TEXTURES | aiComponent_LIGHTS | aiComponent_CAMERAS);
    importer.SetIOHandler(new FolderIo(file, descriptor)); // the importer owns it
    const aiScene* scene = importer.ReadFile(file.string(), aiProcess_RemoveComponent);
    if (scene == nullptr) {
        const std::string_view reason = importer.GetErrorString();
        if (reason.find("bad_alloc") != std::string_view::npos) { // all that is left of it
            throw std::bad_alloc();
        }
        throw DataError(fmt::format(
            "{}: cannot be read as {} ({}); {}: export the model again, or as OBJ", place(file),
            format.name, foreignReason(reason),
            format.extension == ".gltf"
                ? "the file may be cut off, or lack the files that it names beside it or below"
                : "the file may be cut off or damaged"));
    }
    return meshFromAssimp(*scene, file);
}

} // namespace insolate::study
