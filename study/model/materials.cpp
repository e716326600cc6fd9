#include "study/model/materials.h"

#include "study/files/toml_file.h"
#include "study/model/mesh.h"
#include "study/model/selection.h"
#include "study/support/closest_name.h"
#include "study/support/errors.h"
#include "study/support/period.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <tuple>
#include <unordered_map>

#include <fmt/format.h>

namespace insolate::study {

namespace {

constexpr std::array<std::string_view, 5> materialKeys = {"reflectance", "transmittance", "index",
                                                          "density", "leaf"};
/// A leaf area density means this extinction: leaves of all angles show half of their area
/// (Ross 1981, The Radiation Regime and Architecture of Plant Stands, spherical distribution).
constexpr float areaShown = 0.5f;
constexpr double mostIndex = 4.0;     // diamond has 2.4
constexpr double mostDensity = 100.0; // of a clipped hedge, some 10 [m2/m3]
constexpr std::size_t mostRules = 60'000;

/// Reads one table of a material.
class RuleReader {
public:
    RuleReader(const std::filesystem::path& file, const toml::key& pattern,
               const toml::table& table)
        : m_file(file), m_table(table) {
        m_rule.pattern = pattern.str();
        m_rule.line = pattern.source().begin.line;
        m_rule.column = pattern.source().begin.column;
    }

    MaterialRule read() {
        for (const auto& [key, value] : m_table) {
            if (std::find(materialKeys.begin(), materialKeys.end(), key.str()) ==
                materialKeys.end()) {
                const std::vector<std::string> names(materialKeys.begin(), materialKeys.end());
                const std::string close = didYouMean(key.str(), names);
                fail(key.source(),
                     fmt::format("a material has no {}{}", quoteText(key.str()),
                                 close.empty() ? fmt::format("; choose from {}",
                                                             fmt::join(materialKeys, ", "))
                                               : close));
            }
        }
        const toml::node* const transmittance = m_table.get("transmittance");
        const toml::node* const density = m_table.get("density");
        if (transmittance != nullptr && density != nullptr) {
            fail(density->source(), "a material has either a transmittance, of each surface, or a "
                                    "density, of a closed hull; keep one of them");
        }
        Material& material = m_rule.material;
        material.reflectance = static_cast<float>(MaterialRules::usualReflectance);
        if (transmittance != nullptr) {
            const bool isPane = transmittance->is_number();
            material.passage = isPane ? Material::Passage::Pane : Material::Passage::Leaves;
            material.passing = seasonalValue("transmittance", *transmittance, 1.0);
        } else if (density != nullptr) {
            material.passage = Material::Passage::Crown;
            material.passing = seasonalValue("density", *density, mostDensity).scaled(areaShown);
            material.reflectance = 0.0f;
            refuseBeside("reflectance", "a surface, and a hull with a density reflects nothing");
        } else {
            refuseBeside("leaf", "a transmittance or a density with leaf and bare");
        }
        readIndex();
        readReflectance();
        return std::move(m_rule);
    }

private:
    [[noreturn]] void fail(const toml::source_region& source, const std::string& what) const {
        throw DataError(fmt::format("{}: material {}: {}", tomlPlace(m_file, source),
                                    quoteText(m_rule.pattern), what));
    }

    void refuseBeside(std::string_view key, std::string_view needed) const {
        if (const toml::node* value = m_table.get(key); value != nullptr) {
            fail(value->source(), fmt::format("{} belongs to {}; leave it out", key, needed));
        }
    }

    float numberIn(std::string_view key, const toml::node& value, double least, double most) const {
        const std::optional<double> number = value.value<double>();
        if (!value.is_number() || !(*number >= least && *number <= most)) {
            fail(value.source(),
                 fmt::format("{} is {}; give a number from {} to {}", key,
                             value.is_number() ? fmt::format("{}", *number) : "no number", least,
                             most));
        }
        return static_cast<float>(*number);
    }

    /// A number, twelve of them, or one with leaves and one without.
    SeasonalValue seasonalValue(std::string_view key, const toml::node& value, double most) const {
        if (const toml::table* const seasons = value.as_table(); seasons != nullptr) {
            return leafValue(key, *seasons, most);
        }
        refuseBeside("leaf", fmt::format("{0} = {{ leaf = ..., bare = ... }}", key));
        if (const toml::array* const months = value.as_array(); months != nullptr) {
            std::array<float, 12> values{};
            if (months->size() != values.size()) {
                fail(value.source(), fmt::format("{} has {} values; give twelve, from January on",
                                                 key, months->size()));
            }
            for (std::size_t i = 0; i < values.size(); ++i) {
                values[i] = numberIn(key, *months->get(i), 0.0, most);
            }
            return SeasonalValue::monthly(values);
        }
        return numberIn(key, value, 0.0, most);
    }

    SeasonalValue leafValue(std::string_view key, const toml::table& seasons, double most) const {
        std::optional<float> leaf;
        std::optional<float> bare;
        for (const auto& [name, value] : seasons) {
            if (name.str() != "leaf" && name.str() != "bare") {
                fail(name.source(), fmt::format("{} has no {}; write {} = {{ leaf = ..., bare = "
                                                "... }}, or leaf alone for all of the year",
                                                key, quoteText(name.str()), key));
            }
            (name.str() == "leaf" ? leaf : bare) = numberIn(key, value, 0.0, most);
        }
        if (!leaf) {
            fail(seasons.source(), fmt::format("{} has no leaf; write {} = {{ leaf = ..., bare = "
                                               "... }}",
                                               key, key));
        }
        const toml::node* const dates = m_table.get("leaf");
        if (!bare) {
            refuseBeside("leaf", fmt::format("{} with leaf and bare", key));
            return *leaf; // conifers
        }
        if (dates == nullptr || !dates->is_string()) {
            fail(dates == nullptr ? seasons.source() : dates->source(),
                 "leaf says when there are leaves; write leaf = \"4/15-10/31\"");
        }
        try {
            const DateRange range = parseDateRange(dates->as_string()->get());
            return SeasonalValue::leafSeason(*leaf, *bare, range.first.day, range.last.day);
        } catch (const UsageError& error) {
            fail(dates->source(), fmt::format("leaf: {}", error.what()));
        }
    }

    void readIndex() {
        const bool isPane = m_rule.material.passage == Material::Passage::Pane;
        if (!isPane) {
            refuseBeside("index", "a pane, whose transmittance is one number");
        } else if (const toml::node* const index = m_table.get("index"); index != nullptr) {
            m_rule.material.refractiveIndex = numberIn("index", *index, 1.0, mostIndex);
        }
        if (isPane) {
            refuseClearerThanGlass();
        }
    }

    /// Both surfaces of a pane reflect, so that glass that absorbs nothing still keeps light back.
    void refuseClearerThanGlass() const {
        const Material& material = m_rule.material;
        const float most = PaneGlass(1.0f, material.refractiveIndex).at(1.0f).transmitted;
        constexpr float rounding = 1e-3f;
        if (const float given = material.passing.highest(); given > most + rounding) {
            fail(m_table.get("transmittance")->source(),
                 fmt::format("transmittance {} is more than glass of refractive index {:.4g} lets "
                             "through, {:.3g}; give less, or transmittance = {{ leaf = {} }} for "
                             "an opening or a net",
                             given, material.refractiveIndex, most, given));
        }
    }

    void readReflectance() {
        Material& material = m_rule.material;
        const bool isPane = material.passage == Material::Passage::Pane;
        if (const toml::node* const value = m_table.get("reflectance"); value != nullptr) {
            material.reflectance = numberIn("reflectance", *value, 0.0, 1.0);
            const float passes = material.passage == Material::Passage::Pane ||
                                         material.passage == Material::Passage::Leaves
                                     ? material.passing.highest()
                                     : 0.0f;
            constexpr float rounding = 1e-6f;
            if (material.reflectance + passes > 1.0f + rounding) {
                fail(value->source(), fmt::format("reflectance {} and transmittance {} add up to "
                                                  "more than 1; give less of one",
                                                  material.reflectance, passes));
            }
        } else if (isPane) {
            // Evenly to all sides, as no mirror is followed.
            material.reflectance = PaneGlass(material.passing.on(1), material.refractiveIndex)
                                       .hemispherical()
                                       .reflected;
        } else if (material.passage == Material::Passage::Leaves) {
            material.reflectance =
                std::min(material.reflectance, 1.0f - material.passing.highest());
        }
    }

    const std::filesystem::path& m_file;
    const toml::table& m_table;
    MaterialRule m_rule;
};

/// What surfaces of a material are taken for.
std::string textOf(const Material& material) {
    const float least = material.passing.lowest();
    const float most = material.passing.highest();
    const auto range = [&](float factor) {
        return least == most ? fmt::format("{:.3g}", factor * least)
                             : fmt::format("{:.3g} to {:.3g}", factor * least, factor * most);
    };
    switch (material.passage) {
    case Material::Passage::Pane:
        return fmt::format("glass, {} passes straight on, refractive index {:.4g}, reflects {:.2g}",
                           range(1.0f), material.refractiveIndex, material.reflectance);
    case Material::Passage::Leaves:
        return fmt::format("leaves, {} passes at each crossing, reflects {:.2g}", range(1.0f),
                           material.reflectance);
    case Material::Passage::Crown:
        return fmt::format("crown, leaf area of {} m2/m3, reflects nothing",
                           range(1.0f / areaShown));
    default:
        return fmt::format("opaque, reflects {:.4g}", material.reflectance);
    }
}

double albedoIn(const toml::node& ground, const std::filesystem::path& file) {
    const toml::table* const table = ground.as_table();
    const toml::node* const albedo = table != nullptr ? table->get("albedo") : nullptr;
    if (table == nullptr || table->size() != 1 || albedo == nullptr) {
        throw DataError(fmt::format("{}: [ground] has one key, albedo = 0.2; ground that the "
                                    "model has is a material like others",
                                    tomlPlace(file, ground.source())));
    }
    const std::optional<double> value = albedo->value<double>();
    if (!albedo->is_number() || !(*value >= 0.0 && *value <= 1.0)) {
        throw DataError(fmt::format("{}: albedo is out of range; give a number from 0 to 1",
                                    tomlPlace(file, albedo->source())));
    }
    return *value;
}

/// Whether a file of materials is a study file too: it then has keys that only a study has.
bool isStudy(const toml::table& table, std::span<const std::string> otherKeys) {
    constexpr std::array<std::string_view, 3> ofLight = {"reflectance", "albedo", "bounces"};
    return std::any_of(table.begin(), table.end(), [&](const auto& entry) {
        const std::string_view name = entry.first.str();
        return !entry.second.is_table() &&
               std::find(otherKeys.begin(), otherKeys.end(), name) != otherKeys.end() &&
               std::find(ofLight.begin(), ofLight.end(), name) == ofLight.end();
    });
}

MaterialRules rulesIn(const toml::table& table, const std::filesystem::path& file,
                      std::span<const std::string> otherKeys) {
    MaterialRules result;
    result.file = file;
    if (!isStudy(table, otherKeys)) {
        otherKeys = {};
    }
    for (const auto& [key, value] : table) {
        const std::string name(key.str());
        if (name == "ground") {
            result.albedo = albedoIn(value, file);
        } else if (name == "material") {
            const toml::table* const materials = value.as_table();
            if (materials == nullptr) {
                throw DataError(fmt::format("{}: materials are tables; begin each with a line "
                                            "[material.\"NAME\"]",
                                            tomlPlace(file, key.source())));
            }
            for (const auto& [pattern, keys] : *materials) {
                if (!keys.is_table()) {
                    throw DataError(fmt::format(
                        "{}: material {} is no table; begin it with a line [material.\"NAME\"]",
                        tomlPlace(file, pattern.source()), quoteText(pattern.str())));
                }
                result.rules.push_back(RuleReader(file, pattern, *keys.as_table()).read());
            }
        } else if (value.is_table() ||
                   std::find(otherKeys.begin(), otherKeys.end(), name) == otherKeys.end()) {
            const std::vector<std::string> names = {"material", "ground"};
            const std::string close = didYouMean(name, names);
            throw DataError(fmt::format(
                "{}: no material and no [ground]: {}{}", tomlPlace(file, key.source()),
                quoteText(name),
                !close.empty()     ? close
                : value.is_table() ? "; write [material.\"NAME\"]"
                                   : "; write it below a line [material.\"NAME\"], or in a study "
                                     "file"));
        }
    }
    if (result.rules.size() > mostRules) {
        throw DataError(fmt::format("{}: {} materials are more than {}; give those alike one name "
                                    "with a *",
                                    place(file), result.rules.size(), mostRules));
    }
    std::stable_sort(result.rules.begin(), result.rules.end(),
                     [](const MaterialRule& a, const MaterialRule& b) {
                         return std::tie(a.line, a.column) < std::tie(b.line, b.column);
                     });
    return result;
}

/// By kind of the scene's triangles the first rule that takes it; their number where none does.
std::vector<std::uint16_t> rulesOfKinds(const Scene& scene, const MaterialRules* rules) {
    // Names are the same for many triangles: each combination is looked at once.
    Mesh kinds;
    kinds.names = scene.names;
    for (const TriangleNames& names : scene.kinds) {
        kinds.faces.push_back(
            {.object = names.object, .group = names.group, .material = names.material});
    }
    const std::size_t count = rules != nullptr ? rules->rules.size() : 0;
    std::vector<std::uint16_t> ofKind(kinds.faces.size(), static_cast<std::uint16_t>(count));
    const auto take = [&](std::size_t kind, std::size_t rule) {
        ofKind[kind] = std::min(ofKind[kind], static_cast<std::uint16_t>(rule));
    };
    // Most patterns of many are plain names, whose kinds stand in a table: a city that has a
    // material for each building would else be walked once for each of them.
    std::unordered_map<std::string_view, std::vector<std::size_t>> kindsOf;
    for (const std::string& name : kinds.names) {
        kindsOf.try_emplace(name);
    }
    for (std::size_t i = 0; i < kinds.faces.size(); ++i) {
        const Mesh::Face& face = kinds.faces[i];
        for (const std::uint32_t name : {face.object, face.group, face.material}) {
            if (name != Mesh::unnamed) {
                kindsOf[kinds.names[name]].push_back(i);
            }
        }
    }
    for (std::size_t r = 0; r < count; ++r) {
        const MaterialRule& rule = rules->rules[r];
        if (const auto named = kindsOf.find(rule.pattern); named != kindsOf.end()) {
            for (const std::size_t kind : named->second) {
                take(kind, r);
            }
            continue;
        }
        const std::vector<bool> taken =
            facesTaken(kinds, rule.pattern, "the material", place(rules->file, rule.line));
        for (std::size_t i = 0; i < taken.size(); ++i) {
            if (taken[i]) {
                take(i, r);
            }
        }
    }
    return ofKind;
}

double areaOf(const Scene& scene, std::size_t triangle) {
    const Vector3* const p = scene.vertices.data() + 3 * triangle;
    return 0.5 * length(cross(p[1] - p[0], p[2] - p[0]));
}

} // namespace

MaterialRules readMaterials(const std::filesystem::path& file,
                            std::span<const std::string> otherKeys, const std::stop_token& stop) {
    MaterialRules rules = rulesIn(readToml(file, inputKinds::materials, stop), file, otherKeys);
    if (rules.rules.empty() && !rules.albedo) {
        throw DataError(fmt::format("{}: has no material; begin one with a line "
                                    "[material.\"NAME\"]",
                                    place(file)));
    }
    return rules;
}

MaterialRules parseMaterials(const std::string& text, const std::filesystem::path& name,
                             std::span<const std::string> otherKeys) {
    return rulesIn(parseToml(text, name), name, otherKeys);
}

SceneMaterials sceneMaterials(const Scene& scene, const MaterialRules* rules, double others) {
    SceneMaterials result;
    const std::size_t count = rules != nullptr ? rules->rules.size() : 0;
    const std::vector<std::uint16_t> ofKind = rulesOfKinds(scene, rules);
    for (std::size_t r = 0; r < count; ++r) {
        result.materials.push_back(rules->rules[r].material);
        result.uses.push_back({rules->rules[r].pattern, {}});
    }
    result.materials.emplace_back().reflectance = static_cast<float>(others);
    result.uses.emplace_back();
    for (std::size_t m = 0; m < result.materials.size(); ++m) {
        Material& material = result.materials[m];
        material.reflectance = others > 0.0 ? material.reflectance : 0.0f;
        result.uses[m].text = textOf(material);
    }
    const std::size_t triangles = scene.triangleCount();
    result.ofTriangle.assign(triangles, static_cast<std::uint16_t>(count));
    for (std::size_t i = 0; i < std::min(triangles, scene.kindOf.size()); ++i) {
        result.ofTriangle[i] = ofKind[scene.kindOf[i]];
    }
    for (std::size_t i = 0; i < triangles; ++i) {
        MaterialUse& use = result.uses[result.ofTriangle[i]];
        ++use.triangles;
        use.area += areaOf(scene, i);
    }
    return result;
}

} // namespace insolate::study
