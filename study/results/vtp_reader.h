/// Reads the XML PolyData that writeSensorsVtp() writes: raw appended data with 64-bit sizes.
#pragma once

#include "study/files/input_file.h"
#include "study/model/scene.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include <pugixml.hpp>

namespace insolate::study {

/// Every size is checked against the file's before memory is taken.
class VtpReader {
public:
    /// @throws DataError when the file is not such a one, Stopped; as all members here
    explicit VtpReader(std::filesystem::path file, const std::stop_token& stop = {});

    [[nodiscard]] std::size_t cellCount() const { return m_cells; }
    /// Whether the cells are polygons, not single points.
    [[nodiscard]] bool hasPolygons() const { return m_hasPolygons; }

    [[nodiscard]] std::vector<Vector3> points();
    /// Into points, of all cells one after the other.
    [[nodiscard]] std::vector<std::int64_t> connectivity();
    /// Where each cell ends in the connectivity.
    [[nodiscard]] std::vector<std::int64_t> ends();

    /// An array of floats of the cells; nothing where there is none of the name.
    [[nodiscard]] std::optional<std::vector<float>> floats(std::string_view name, int components);
    /// An array of whole numbers of the cells, of any width.
    [[nodiscard]] std::optional<std::vector<std::int64_t>> wholeNumbers(std::string_view name);
    /// Texts of the whole file.
    [[nodiscard]] std::optional<std::vector<std::string>> texts(std::string_view name) const;

private:
    [[noreturn]] void refuse(const std::string& what) const;
    [[nodiscard]] pugi::xml_node find(pugi::xml_node parent, std::string_view name) const;
    [[nodiscard]] std::size_t countOf(const char* attribute) const;
    template <typename Number>
    [[nodiscard]] std::vector<Number> numbers(pugi::xml_node array, const char* type,
                                              std::size_t count);
    [[nodiscard]] std::vector<std::int64_t> indices(std::string_view name, std::size_t count);

    std::filesystem::path m_file;
    InputFile m_in;
    pugi::xml_document m_xml;
    pugi::xml_node m_piece;
    std::uintmax_t m_data = 0; ///< where the appended data begin
    std::size_t m_cells = 0;
    std::size_t m_points = 0;
    bool m_hasPolygons = false;
};

} // namespace insolate::study
