// Any bytes as a file of materials: shares that surfaces can have, or an error that says where.
#include "memory_file.h"

#include "study/model/materials.h"
#include "study/support/errors.h"

#include <string>

namespace {

/// A pane reflects all light by its share of even light, so its balance is kept for even light.
float passesOfEvenLight(const insolate::Material& material) {
    using Passage = insolate::Material::Passage;
    switch (material.passage) {
    case Passage::Pane:
        return insolate::PaneGlass(material.passing.highest(), material.refractiveIndex)
            .hemispherical()
            .transmitted;
    case Passage::Leaves:
        return material.passing.highest();
    default:
        return 0.0f;
    }
}

} // namespace

INSOLATE_FUZZ_TARGET(materials)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::study;
    using insolate::fuzz::require;
    Scene scene;
    scene.vertices = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    scene.names = {"house", "glass"};
    scene.kinds = {{0, CellOrigin::unnamed, 1}};
    scene.kindOf = {0};
    try {
        const MaterialRules rules =
            parseMaterials(std::string(reinterpret_cast<const char*>(bytes), size), "m.toml");
        for (const MaterialRule& rule : rules.rules) {
            const insolate::Material& material = rule.material;
            require(material.reflectance >= 0.0f && material.passing.lowest() >= 0.0f &&
                        material.reflectance + passesOfEvenLight(material) <= 1.001f &&
                        material.refractiveIndex >= 1.0f,
                    "a material reflects and passes no more than it gets");
        }
        require(sceneMaterials(scene, &rules, 0.2).ofTriangle.size() == 1,
                "each triangle has a material");
    } catch (const Error& error) {
        insolate::fuzz::requireFix(error);
    }
    return 0;
}
