#include "study/results/vtp_reader.h"

#include "study/model/mesh.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// Text arrays hold a number for each byte; the names of a million objects stay below this.
constexpr std::size_t mostXmlBytes = 256U << 20U;

} // namespace

VtpReader::VtpReader(std::filesystem::path file, const std::stop_token& stop)
    : m_file(std::move(file)), m_in(m_file, inputKinds::ownResults, stop) {
    // What follows the mark is no XML; the document before it is closed here.
    constexpr std::string_view mark = "<AppendedData encoding=\"raw\">";
    constexpr std::size_t step = 64U << 10U;
    std::string head;
    std::size_t found = std::string::npos;
    while (found == std::string::npos) {
        const std::size_t before = head.size();
        head.resize(before + step);
        const std::size_t count = m_in.read({head.data() + before, step});
        head.resize(before + count);
        found = head.find(mark, before < mark.size() ? 0 : before - mark.size());
        if (found == std::string::npos && (count < step || head.size() > mostXmlBytes)) {
            refuse("has no appended data");
        }
    }
    const std::size_t underscore = head.find('_', found + mark.size());
    if (underscore == std::string::npos) {
        refuse("is cut off where its data begin");
    }
    m_data = underscore + 1;
    head.resize(found);
    head += "</VTKFile>";
    if (const pugi::xml_parse_result parsed = m_xml.load_buffer(head.data(), head.size());
        !parsed) {
        refuse(fmt::format("is no XML ({})", parsed.description()));
    }
    const pugi::xml_node top = m_xml.child("VTKFile");
    if (std::string_view(top.attribute("byte_order").value()) != "LittleEndian" ||
        std::string_view(top.attribute("header_type").value()) != "UInt64") {
        refuse("has another byte order or other sizes than insolate writes");
    }
    m_piece = top.child("PolyData").child("Piece");
    const std::size_t polygons = countOf("NumberOfPolys");
    m_hasPolygons = polygons > 0;
    m_cells = m_hasPolygons ? polygons : countOf("NumberOfVerts");
    m_points = countOf("NumberOfPoints");
    if (m_cells == 0 || (m_hasPolygons && countOf("NumberOfVerts") > 0)) {
        refuse("has no cells of one kind");
    }
}

void VtpReader::refuse(const std::string& what) const {
    throw DataError(fmt::format("{}: {}; calculate the results again, or give back the file that "
                                "insolate wrote",
                                place(m_file), what));
}

std::size_t VtpReader::countOf(const char* attribute) const {
    const auto count = parseNumber<std::uint32_t>(m_piece.attribute(attribute).value());
    if (!count) {
        refuse(fmt::format("does not say its {}", attribute));
    }
    return *count;
}

pugi::xml_node VtpReader::find(pugi::xml_node parent, std::string_view name) const {
    return parent.find_child([&](const pugi::xml_node& node) {
        return std::string_view(node.name()) == "DataArray" &&
               std::string_view(node.attribute("Name").value()) == name;
    });
}

template <typename Number>
std::vector<Number> VtpReader::numbers(pugi::xml_node array, const char* type, std::size_t count) {
    const std::string name = quoteText(array.attribute("Name").value());
    const auto offset = parseNumber<std::uint64_t>(array.attribute("offset").value());
    if (std::string_view(array.attribute("type").value()) != type || !offset ||
        *offset > m_in.size()) {
        refuse(fmt::format("has no array {} of {}", name, type));
    }
    const std::uintmax_t start = m_data + *offset;
    std::uint64_t bytes = 0;
    const std::uint64_t wanted = count * sizeof(Number);
    if (start + sizeof bytes + wanted > m_in.size()) {
        refuse(fmt::format("is cut off within {}", name));
    }
    m_in.seek(start);
    if (!m_in.readValue(bytes) || bytes != wanted) {
        refuse(fmt::format("has another number of values in {} than cells", name));
    }
    std::vector<Number> values(count);
    if (m_in.read({reinterpret_cast<char*>(values.data()), wanted}) != wanted) {
        refuse(fmt::format("is cut off within {}", name));
    }
    return values;
}

std::vector<Vector3> VtpReader::points() {
    const std::vector<double> flat =
        numbers<double>(find(m_piece.child("Points"), "Points"), "Float64", 3 * m_points);
    std::vector<Vector3> points;
    points.reserve(m_points);
    for (std::size_t i = 0; i < flat.size(); i += 3) {
        points.push_back({flat[i], flat[i + 1], flat[i + 2]});
        if (!isFinite(points.back())) {
            refuse("has corners that are no places");
        }
    }
    return points;
}

std::vector<std::int64_t> VtpReader::indices(std::string_view name, std::size_t count) {
    return numbers<std::int64_t>(find(m_piece.child(m_hasPolygons ? "Polys" : "Verts"), name),
                                 "Int64", count);
}

std::vector<std::int64_t> VtpReader::ends() {
    std::vector<std::int64_t> ends = indices("offsets", m_cells);
    std::int64_t before = 0;
    for (const std::int64_t end : ends) {
        // Compared this way round because the sum of a negative and a large one may overflow.
        if (end < 3 || end - 3 < before) {
            refuse("has cells of fewer than three corners");
        }
        before = end;
    }
    return ends;
}

std::vector<std::int64_t> VtpReader::connectivity() {
    const auto last = static_cast<std::uint64_t>(ends().back());
    if (last > m_in.size() / sizeof(std::int64_t)) {
        refuse("is cut off within 'connectivity'");
    }
    std::vector<std::int64_t> corners = indices("connectivity", static_cast<std::size_t>(last));
    const auto count = static_cast<std::int64_t>(m_points);
    if (std::any_of(corners.begin(), corners.end(),
                    [&](std::int64_t corner) { return corner < 0 || corner >= count; })) {
        refuse("has cells with corners that are not there");
    }
    return corners;
}

std::optional<std::vector<float>> VtpReader::floats(std::string_view name, int components) {
    const pugi::xml_node array = find(m_piece.child("CellData"), name);
    if (!array) {
        return std::nullopt;
    }
    return numbers<float>(array, "Float32", m_cells * static_cast<std::size_t>(components));
}

std::optional<std::vector<std::int64_t>> VtpReader::wholeNumbers(std::string_view name) {
    const pugi::xml_node array = find(m_piece.child("CellData"), name);
    if (!array) {
        return std::nullopt;
    }
    const auto widened = [](const auto& values) {
        return std::vector<std::int64_t>(values.begin(), values.end());
    };
    const std::string_view type = array.attribute("type").value();
    if (type == "Int32") {
        return widened(numbers<std::int32_t>(array, "Int32", m_cells));
    }
    if (type == "UInt32") {
        return widened(numbers<std::uint32_t>(array, "UInt32", m_cells));
    }
    return numbers<std::int64_t>(array, "Int64", m_cells);
}

std::optional<std::vector<std::string>> VtpReader::texts(std::string_view name) const {
    const pugi::xml_node array =
        find(m_xml.child("VTKFile").child("PolyData").child("FieldData"), name);
    if (!array) {
        return std::nullopt;
    }
    std::vector<std::string> texts;
    std::string text;
    std::string_view rest = trimmed(array.text().get());
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find_first_of(" \n\r\t"), rest.size());
        const auto byte = parseNumber<unsigned>(rest.substr(0, end));
        if (!byte || *byte > 255) {
            refuse(fmt::format("has texts in {} that are no bytes", quoteText(name)));
        }
        if (*byte == 0) {
            texts.push_back(std::exchange(text, {}));
        } else {
            text += static_cast<char>(static_cast<unsigned char>(*byte));
        }
        rest = trimmed(rest.substr(end));
    }
    return texts;
}

} // namespace insolate::study
