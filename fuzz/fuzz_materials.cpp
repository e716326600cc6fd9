// Any bytes as a file of materials: shares that surfaces can have, or an error that says where.
#include "memory_file.h"

#include "study/model/materials.h"
#include "study/support/errors.h"

#include <string>

INSOLATE_FUZZ_TARGET(materials)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::study;
    using insolate::fuzz::require;
    using Passage = insolate::Material::Passage;
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
            const float passes =
                material.passage == Passage::Crown ? 0.0f : material.passing.highest();
            require(material.reflectance >= 0.0f && material.passing.lowest() >= 0.0f &&
                        material.reflectance + passes <= 1.001f && material.refractiveIndex >= 1.0f,
                    "a material reflects and passes no more than it gets");
        }
        require(sceneMaterials(scene, &rules, 0.2).ofTriangle.size() == 1,
                "each triangle has a material");
    } catch (const Error& error) {
        insolate::fuzz::requireFix(error);
    }
    return 0;
}
