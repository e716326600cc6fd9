#include "study/files/input_file.h"
#include "study/model/mesh_import.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <istream>
#include <streambuf>
#include <string>

#include <fmt/format.h>
#define TINYOBJLOADER_USE_DOUBLE // as the library in use is built
#include <tiny_obj_loader.h>

namespace insolate::study {

namespace {

/// Hands a file on line by line, so that the callbacks know where they are. Lines that end in a
/// backslash are joined with the next.
class LineSource : public std::streambuf {
public:
    explicit LineSource(std::istream& in) : m_in(in) {}
    [[nodiscard]] std::size_t line() const { return m_firstLine; }
    [[nodiscard]] std::string_view text() const { return m_text; }

protected:
    int_type underflow() override {
        m_text.clear();
        m_firstLine = m_lastLine + 1;
        std::string piece;
        while (std::getline(m_in, piece)) {
            ++m_lastLine;
            while (!piece.empty() && (piece.back() == '\r' || piece.back() == '\0')) {
                piece.pop_back();
            }
            if (piece.empty() || piece.back() != '\\') {
                m_text += piece + '\n';
                break;
            }
            piece.back() = ' ';
            m_text += piece;
        }
        if (m_text.empty()) {
            return traits_type::eof();
        }
        if (m_text.back() != '\n') { // a file that ends in a backslash
            m_text += '\n';
        }
        setg(m_text.data(), m_text.data(), m_text.data() + m_text.size());
        return traits_type::to_int_type(m_text.front());
    }

private:
    std::istream& m_in;
    std::string m_text;
    std::size_t m_firstLine = 0;
    std::size_t m_lastLine = 0;
};

struct ObjBuilder {
    Mesh mesh;
    const std::filesystem::path& file;
    const LineSource& source;
    std::uint32_t object = Mesh::unnamed;
    std::uint32_t group = Mesh::unnamed;
    std::uint32_t material = Mesh::unnamed;
    std::string problem; ///< the first one, thrown when the loader has returned

    void fail(const std::string& what) {
        if (problem.empty()) {
            problem = fmt::format("{}: {}", place(file, source.line()), what);
        }
    }

    /// The loader takes text that is not a number as 0, so the coordinates are read from the line.
    void addVertex() {
        std::string_view rest = trimmed(source.text()).substr(1);
        double coordinates[3] = {};
        for (double& coordinate : coordinates) {
            rest = trimmed(rest);
            const std::string_view word = rest.substr(0, rest.find_first_of(" \t"));
            rest.remove_prefix(word.size());
            const auto number = parseNumber<double>(word);
            if (!number || !std::isfinite(*number)) {
                fail(word.empty() ? "the vertex has less than three coordinates; mend the model "
                                    "and export it again"
                                  : fmt::format("{} is not a coordinate; mend the model and export "
                                                "it again",
                                                quoteText(word)));
                return;
            }
            coordinate = *number;
        }
        mesh.vertices.push_back({coordinates[0], coordinates[1], coordinates[2]});
    }

    void addFace(const tinyobj::index_t* indices, int count) {
        if (!problem.empty()) {
            return;
        }
        const auto vertexCount = static_cast<long>(mesh.vertices.size());
        if (std::max(mesh.vertices.size(), mesh.corners.size() + static_cast<std::size_t>(count)) >=
            0xFFFFFFFFU) {
            fail("the model has more vertices or corners than can be counted; split it into "
                 "several files");
            return;
        }
        Mesh::Face face;
        face.firstCorner = static_cast<std::uint32_t>(mesh.corners.size());
        for (int i = 0; i < count; ++i) {
            const long index = indices[i].vertex_index;
            const long vertex = index > 0 ? index - 1 : vertexCount + index;
            if (index == 0 || vertex < 0 || vertex >= vertexCount) {
                fail(fmt::format("the face names vertex {}, but {} {} before it; mend "
                                 "the model and export it again",
                                 index, vertexCount,
                                 counted(static_cast<std::size_t>(vertexCount), "vertex stands",
                                         "vertices stand")));
                return;
            }
            mesh.corners.push_back(static_cast<std::uint32_t>(vertex));
        }
        if (count < 3) {
            fail("the face has less than three corners; mend the model and export it again");
            return;
        }
        face.cornerCount = static_cast<std::uint32_t>(count);
        face.object = object;
        face.group = group;
        face.material = material;
        mesh.faces.push_back(face);
    }
};

ObjBuilder& builder(void* data) {
    return *static_cast<ObjBuilder*>(data);
}

std::string nameText(const char* name) {
    return std::string(trimmed(name));
}

} // namespace

Mesh readObj(const std::filesystem::path& file) {
    std::ifstream bytes = openInput(file, "model");
    LineSource source(bytes);
    std::istream in(&source);
    ObjBuilder state{.mesh = {}, .file = file, .source = source, .problem = {}};

    tinyobj::callback_t callbacks;
    callbacks.vertex_cb = [](void* data, double, double, double, double) {
        builder(data).addVertex();
    };
    callbacks.index_cb = [](void* data, tinyobj::index_t* indices, int count) {
        builder(data).addFace(indices, count);
    };
    callbacks.usemtl_cb = [](void* data, const char* name, int) {
        builder(data).material = builder(data).mesh.nameIndex(nameText(name));
    };
    callbacks.group_cb = [](void* data, const char** names, int count) {
        builder(data).group =
            builder(data).mesh.nameIndex(count > 0 ? nameText(names[0]) : std::string());
    };
    callbacks.object_cb = [](void* data, const char* name) {
        builder(data).object = builder(data).mesh.nameIndex(nameText(name));
    };
    // No material reader: colours do not matter, and no file that the model names is opened.
    std::string warning;
    std::string error;
    const bool good =
        tinyobj::LoadObjWithCallback(in, callbacks, &state, nullptr, &warning, &error);
    if (!state.problem.empty()) {
        throw DataError(state.problem);
    }
    if (!good || bytes.bad()) {
        throw DataError(fmt::format("{}: cannot be read as OBJ ({}); export the model again",
                                    place(file), printable(trimmed(error))));
    }
    return std::move(state.mesh);
}

} // namespace insolate::study
