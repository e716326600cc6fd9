/// What the surfaces of a scene do with light, by the names that they have: tables of a TOML file.
///
///     [material."glass*"]
///     transmittance = 0.72                          # of a pane at normal incidence
///     [material.tree]
///     transmittance = { leaf = 0.12, bare = 0.55 }  # of a surface of leaves, at each crossing
///     leaf = "4/15-10/31"
///     [material.crown]
///     density = { leaf = 1.2, bare = 0.3 }          # leaf area of a closed hull [m2/m3]
///     leaf = "4/15-10/31"
///     [material."facade*"]
///     reflectance = 0.35
///     [ground]
///     albedo = 0.2
#pragma once

#include "study/export.h"
#include "study/model/scene.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include <insolate/insolate.h>

namespace insolate::study {

/// The names of a material's keys stand in docs/files.md.
struct MaterialRule {
    /// A name, or several, as for FaceSelection.
    std::string pattern;
    std::size_t line = 0; ///< in the file
    std::size_t column = 0;
    /// Of a crown, `passing` is the extinction for each metre.
    Material material;
};

struct INSOLATE_STUDY_EXPORT MaterialRules {
    std::filesystem::path file;
    /// In the order of the file: of several that fit a surface, the first one holds.
    std::vector<MaterialRule> rules;
    std::optional<double> albedo; ///< of the open ground, 0..1

    /// Of surfaces that no rule fits.
    static constexpr double usualReflectance = 0.2;
};

/// @param otherKeys top-level keys of a study file, which may hold the materials: a file with any
///        but those that speak of light (reflectance, albedo, bounces) is taken for one
/// @throws DataError with file and line for an unknown key, a value out of its range, shares that
///         add up to more than 1, glass clearer than glass can be, no material at all; Stopped
INSOLATE_STUDY_EXPORT MaterialRules readMaterials(const std::filesystem::path& file,
                                                  std::span<const std::string> otherKeys = {},
                                                  const std::stop_token& stop = {});
/// The same of a text.
/// @param name stands in messages in the place of a file
INSOLATE_STUDY_EXPORT MaterialRules parseMaterials(const std::string& text,
                                                   const std::filesystem::path& name,
                                                   std::span<const std::string> otherKeys = {});

/// What became of one rule, or of the surfaces that none fits.
struct MaterialUse {
    std::string pattern; ///< empty: all other surfaces
    std::string text;    ///< what they were taken for, "glass, 0.72 passes straight on"
    std::size_t triangles = 0;
    double area = 0.0; ///< [m2]
};

struct SceneMaterials {
    std::vector<Material> materials;       ///< the rules', in their order, and that of the others
    std::vector<std::uint16_t> ofTriangle; ///< into materials
    std::vector<MaterialUse> uses;         ///< by material
};

/// @param rules null: no surface has one of its own
/// @param others reflectance of surfaces that no rule fits, 0..1; 0: nothing reflects, whatever the
///        rules say
/// @throws DataError when a rule fits no name of the scene, with the nearest one
INSOLATE_STUDY_EXPORT SceneMaterials sceneMaterials(const Scene& scene, const MaterialRules* rules,
                                                    double others);

} // namespace insolate::study
