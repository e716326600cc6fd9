#include "study/files/input_file.h"
#include "study/model/mesh_import.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <istream>
#include <optional>
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
    explicit LineSource(InputFile& in) : m_in(in) {}
    [[nodiscard]] std::size_t line() const { return m_firstLine; }
    [[nodiscard]] std::string_view text() const { return m_text; }

protected:
    int_type underflow() override {
        m_text.clear();
        m_firstLine = m_lastLine + 1;
        std::string& piece = m_piece;
        while (nextLine(piece)) {
            ++m_lastLine;
            while (!piece.empty() && (piece.back() == '\r' || piece.back() == '\0')) {
                piece.pop_back();
            }
            if (piece.empty() || piece.back() != '\\') {
                if (m_text.empty()) {
                    m_text.swap(piece);
                } else {
                    m_text += piece;
                }
                m_text += '\n';
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
        // The loader passes over a vertex or face that lost all of its numbers.
        if (const std::string_view word = trimmed(m_text); word == "v" || word == "f") {
            m_text.insert(m_text.size() - 1, " 0");
        }
        setg(m_text.data(), m_text.data(), m_text.data() + m_text.size());
        return traits_type::to_int_type(m_text.front());
    }

private:
    /// Lines end in "\n", "\r\n" or, as the loader takes them too, in "\r".
    bool nextLine(std::string& piece) {
        if (m_restAt >= m_rest.size()) {
            m_restAt = 0;
            if (!m_in.readLine(m_rest)) {
                return false;
            }
            if (std::min(m_rest.find('\r'), m_rest.size()) + 1 >=
                m_rest.size()) { // none, or the last
                piece.swap(m_rest);
                m_rest.clear();
                return true;
            }
        }
        const std::size_t end = std::min(m_rest.find('\r', m_restAt), m_rest.size());
        piece.assign(m_rest, m_restAt, end - m_restAt);
        m_restAt = end + 1;
        return true;
    }

    InputFile& m_in;
    std::string m_rest; ///< the file's line, and how far it was taken
    std::size_t m_restAt = 0;
    std::string m_piece;
    std::string m_text;
    std::size_t m_firstLine = 0;
    std::size_t m_lastLine = 0;
};

/// Takes the next word off the text; an empty one at its end.
std::string_view nextWord(std::string_view& text) {
    const auto isBlank = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    const char* const end = text.data() + text.size();
    const char* const first = std::find_if_not(text.data(), end, isBlank);
    const char* const last = std::find_if(first, end, isBlank);
    text.remove_prefix(static_cast<std::size_t>(last - text.data()));
    return {first, static_cast<std::size_t>(last - first)};
}

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
            const std::string_view word = nextWord(rest);
            const auto number = parseNumber<double>(word);
            if (!number || !std::isfinite(*number)) {
                fail(word.empty()
                         ? "the vertex has less than three coordinates; repair the model "
                           "and export it again"
                         : fmt::format("{} is not a coordinate; repair the model and export "
                                       "it again",
                                       quoteText(word)));
                return;
            }
            coordinate = *number;
        }
        mesh.vertices.push_back({coordinates[0], coordinates[1], coordinates[2]});
    }

    /// The vertex number of the next corner of a face, such as 7 of "7/1/2". The loader's own
    /// numbers wrap around where they are too large and end before whatever is no digit.
    std::optional<std::int64_t> nextIndex(std::string_view& rest) {
        const std::string_view corner = nextWord(rest);
        const std::string_view word = corner.substr(0, corner.find('/'));
        const auto number = parseNumber<std::int64_t>(word);
        if (!number) {
            fail(fmt::format("{} is no number of a vertex; repair the model and export it again",
                             quoteText(word)));
        }
        return number;
    }

    void addFace(int count) {
        if (!problem.empty()) {
            return;
        }
        const auto vertexCount = static_cast<std::int64_t>(mesh.vertices.size());
        if (std::max(mesh.vertices.size(), mesh.corners.size() + static_cast<std::size_t>(count)) >=
            0xFFFFFFFFU) {
            fail("the model has more vertices or corners than can be counted; split it into "
                 "several files");
            return;
        }
        if (count < 3) {
            fail("the face has less than three corners; repair the model and export it again");
            return;
        }
        Mesh::Face face;
        face.firstCorner = static_cast<std::uint32_t>(mesh.corners.size());
        std::string_view rest = trimmed(source.text()).substr(1);
        for (int i = 0; i < count; ++i) {
            const auto number = nextIndex(rest);
            if (!number) {
                return;
            }
            const std::int64_t index = *number;
            const std::int64_t vertex = index > 0 ? index - 1 : vertexCount + index;
            if (index == 0 || vertex < 0 || vertex >= vertexCount) {
                fail(fmt::format("the face names vertex {}, but {} {} before it; fix "
                                 "the model and export it again",
                                 index, vertexCount,
                                 counted(static_cast<std::size_t>(vertexCount), "vertex stands",
                                         "vertices stand")));
                return;
            }
            mesh.corners.push_back(static_cast<std::uint32_t>(vertex));
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

Mesh readObj(const std::filesystem::path& file, const std::stop_token& stop) {
    InputFile bytes(file, inputKinds::model, stop);
    LineSource source(bytes);
    std::istream in(&source);
    in.exceptions(std::ios::badbit); // hands on what the file's reader throws
    ObjBuilder state{.mesh = {}, .file = file, .source = source, .problem = {}};

    tinyobj::callback_t callbacks;
    callbacks.vertex_cb = [](void* data, double, double, double, double) {
        builder(data).addVertex();
    };
    callbacks.index_cb = [](void* data, tinyobj::index_t*, int count) {
        builder(data).addFace(count);
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
    if (!good) {
        throw DataError(fmt::format("{}: cannot be read as OBJ ({}); export the model again",
                                    place(file), foreignReason(error)));
    }
    return std::move(state.mesh);
}

} // namespace insolate::study
