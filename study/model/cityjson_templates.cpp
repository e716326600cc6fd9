#include "study/model/cityjson_templates.h"

#include <fmt/format.h>

namespace insolate::study::cityjson {

TemplatePlacement placementOf(const Json& instance, const Vector3& at, const CityDocuments& source,
                              const std::string& object) {
    TemplatePlacement placement;
    placement.at = at;
    if (const Json* matrix = memberOf(instance, "transformationMatrix")) {
        if (!matrix->is_array() || matrix->size() != 16) {
            source.fail("the transformationMatrix does not have 16 numbers; export the model again",
                        object);
        }
        for (std::size_t i = 0; i < 12; ++i) {
            const auto number = numberOf((*matrix)[i]);
            if (!number) {
                source.fail(
                    "the transformationMatrix does not have 16 numbers; export the model again",
                    object);
            }
            placement.matrix[i] = *number;
        }
    }
    return placement;
}

void CityTemplates::read(const Json& templates, const CityDocuments& source) {
    m_vertices.clear();
    for (const Json& vertex : elementsOf(templates, "vertices-templates")) {
        const auto p = pointOf(vertex);
        if (!p) {
            source.fail(
                fmt::format("vertex {} of the templates is not three numbers; export the model "
                            "again",
                            m_vertices.size()));
        }
        m_vertices.push_back(*p); // not transformed, as the format has it
    }
    m_templates = elementsOf(templates, "templates");
}

const Json& CityTemplates::surfacesOf(const Json& geometry) const {
    const Json* index = memberOf(geometry, "template");
    return textOf(geometry, "type") == "GeometryInstance" && index != nullptr &&
                   index->is_number_unsigned() && index->get<std::size_t>() < m_templates.size()
               ? m_templates[index->get<std::size_t>()]
               : geometry;
}

} // namespace insolate::study::cityjson
