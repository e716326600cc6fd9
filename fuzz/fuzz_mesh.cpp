// What a model library may hand over: any coordinates, indices, faces, node trees and placements.
#include "mesh_promises.h"

#include "study/model/assimp_reader.h"

#include <cstring>
#include <memory>
#include <vector>

#include <assimp/scene.h>

namespace {

class Bytes {
public:
    Bytes(const std::uint8_t* bytes, std::size_t size) : m_at(bytes), m_left(size) {}
    std::uint8_t next() { return m_left == 0 ? std::uint8_t{0} : (--m_left, *m_at++); }
    unsigned below(unsigned limit) { return next() % limit; }
    /// Small whole numbers, or any bits.
    float number() {
        const std::uint8_t kind = next();
        if (kind < 200) {
            return static_cast<float>(kind) - 100.0f;
        }
        std::uint32_t bits = 0;
        for (int i = 0; i < 4; ++i) {
            bits = bits << 8U | next();
        }
        float value = 0.0f;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }

private:
    const std::uint8_t* m_at;
    std::size_t m_left;
};

aiMesh* makeMesh(Bytes& bytes) {
    auto* mesh = new aiMesh;
    mesh->mNumVertices = bytes.below(24);
    mesh->mVertices = new aiVector3D[mesh->mNumVertices];
    for (unsigned i = 0; i < mesh->mNumVertices; ++i) {
        mesh->mVertices[i] = {bytes.number(), bytes.number(), bytes.number()};
    }
    mesh->mNumFaces = bytes.below(16);
    mesh->mFaces = new aiFace[mesh->mNumFaces];
    for (unsigned i = 0; i < mesh->mNumFaces; ++i) {
        aiFace& face = mesh->mFaces[i];
        face.mNumIndices = bytes.below(12);
        face.mIndices = new unsigned[face.mNumIndices];
        for (unsigned k = 0; k < face.mNumIndices; ++k) {
            const unsigned index = bytes.next();
            face.mIndices[k] = index == 255 ? 0xFFFFFFFFU
                               : index > 250 || mesh->mNumVertices == 0
                                   ? index
                                   : index % mesh->mNumVertices;
        }
    }
    mesh->mMaterialIndex = bytes.below(3);
    mesh->mName.Set(std::string(bytes.below(4), static_cast<char>(bytes.next())));
    return mesh;
}

} // namespace

INSOLATE_FUZZ_TARGET(mesh)(const std::uint8_t* input, std::size_t size) {
    using namespace insolate::study;
    Bytes bytes(input, size);
    aiScene scene; // owns and frees what hangs on it
    const UpAxis up = bytes.below(2) == 0 ? UpAxis::y : UpAxis::z;
    scene.mNumMeshes = bytes.below(4);
    scene.mMeshes = new aiMesh*[scene.mNumMeshes];
    for (unsigned i = 0; i < scene.mNumMeshes; ++i) {
        scene.mMeshes[i] = makeMesh(bytes);
    }
    scene.mNumMaterials = 1;
    scene.mMaterials = new aiMaterial* [1] { new aiMaterial };

    // A chain of nodes, as deep as it is long. Children are freed one inside the other, so its
    // length is held.
    aiNode* parent = nullptr;
    for (unsigned depth = 0, count = 1 + bytes.below(64); depth < count; ++depth) {
        auto* node = new aiNode("n");
        if (const std::uint8_t kind = bytes.next(); kind % 4 == 0) {
            for (unsigned row = 0; row < 4; ++row) {
                for (unsigned column = 0; column < 4; ++column) {
                    node->mTransformation[row][column] = bytes.number();
                }
            }
        }
        node->mNumMeshes = bytes.below(3);
        node->mMeshes = new unsigned[node->mNumMeshes];
        for (unsigned i = 0; i < node->mNumMeshes; ++i) {
            node->mMeshes[i] = bytes.below(6);
        }
        if (parent == nullptr) {
            scene.mRootNode = node;
        } else {
            parent->addChildren(1, &node);
        }
        parent = node;
    }
    try {
        insolate::fuzz::checkMesh(meshFromAssimp(scene, "input"), up);
    } catch (const DataError&) {
    }
    return 0;
}
