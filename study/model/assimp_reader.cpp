#include "study/model/assimp_scene.h"
#include "study/model/mesh_import.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include <assimp/DefaultIOSystem.h>
#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <fmt/format.h>

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

    /// A mirroring placement turns faces inside out.
    [[nodiscard]] bool mirrors() const {
        return dot({m[0], m[1], m[2]}, cross({m[4], m[5], m[6]}, {m[8], m[9], m[10]})) < 0.0;
    }
};

/// Opens the model and what lies beside or below it; a model file cannot name others.
class FolderIo : public Assimp::DefaultIOSystem {
public:
    explicit FolderIo(const std::filesystem::path& model)
        : m_folder(
              std::filesystem::weakly_canonical(std::filesystem::absolute(model)).parent_path()) {}

    bool Exists(const char* file) const override {
        return isInside(file) && Assimp::DefaultIOSystem::Exists(file);
    }
    Assimp::IOStream* Open(const char* file, const char* mode) override {
        return isInside(file) ? Assimp::DefaultIOSystem::Open(file, mode) : nullptr;
    }

private:
    [[nodiscard]] bool isInside(const char* file) const {
        std::error_code problem;
        const auto target =
            std::filesystem::weakly_canonical(std::filesystem::absolute(file, problem), problem);
        const auto [end, ignored] =
            std::mismatch(m_folder.begin(), m_folder.end(), target.begin(), target.end());
        return !problem && end == m_folder.end();
    }

    std::filesystem::path m_folder;
};

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
        for (unsigned i = 0; i < part.mNumVertices; ++i) {
            m_mesh.vertices.push_back(placement.apply(part.mVertices[i]));
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
                                                "mend the model and export it again",
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

Mesh readWithAssimp(const std::filesystem::path& file) {
    Assimp::Importer importer;
    // Only what shapes the surfaces is read.
    importer.SetPropertyInteger(
        AI_CONFIG_PP_RVC_FLAGS,
        aiComponent_NORMALS | aiComponent_TANGENTS_AND_BITANGENTS | aiComponent_COLORS |
            aiComponent_TEXCOORDS | aiComponent_BONEWEIGHTS | aiComponent_ANIMATIONS |
            aiComponent_TEXTURES | aiComponent_LIGHTS | aiComponent_CAMERAS);
    importer.SetIOHandler(new FolderIo(std::filesystem::canonical(file))); // the importer owns it
    const aiScene* scene = importer.ReadFile(file.string(), aiProcess_RemoveComponent);
    if (scene == nullptr) {
        const std::string reason = printable(trimmed(importer.GetErrorString()));
        throw DataError(fmt::format("{}: cannot be read as a model ({}); give OBJ, STL, PLY, glTF "
                                    "or another format that assimp reads",
                                    place(file), reason));
    }
    return meshFromAssimp(*scene, file);
}

} // namespace insolate::study
