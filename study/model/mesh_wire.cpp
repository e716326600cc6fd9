#include "study/model/mesh_wire.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <type_traits>

namespace insolate::study {

namespace {

static_assert(std::endian::native == std::endian::little, "numbers are sent as memory stands");
static_assert(std::is_trivially_copyable_v<Vector3> && sizeof(Vector3) == 24);
static_assert(std::is_trivially_copyable_v<Mesh::Face> && sizeof(Mesh::Face) == 20);

/// The version changes with the form, so that a program of another release is noticed.
constexpr std::array<char, 8> wireMagic = {'I', 'N', 'S', 'O', 'M', 'S', 'H', '1'};
constexpr std::size_t longestReason = 4096;

enum class ReplyKind : std::uint32_t { mesh = 1, refusal = 2, outOfMemory = 3 };

/// For a refusal all counts but nameBytes, the length of its reason, are 0.
struct ReplyHeader {
    std::array<char, 8> magic = wireMagic;
    ReplyKind kind = ReplyKind::mesh;
    std::uint32_t names = 0;
    std::uint64_t vertices = 0;
    std::uint64_t corners = 0;
    std::uint64_t faces = 0;
    std::uint64_t nameBytes = 0; ///< of all names, a '\0' after each
    double coordinateStep = 0.0;
};
static_assert(sizeof(ReplyHeader) == 56);

template <typename Value>
void sendAll(const std::vector<Value>& values, const ByteSink& sink) {
    sink({reinterpret_cast<const char*>(values.data()), values.size() * sizeof(Value)});
}

/// Memory is taken as bytes arrive: a count alone costs nothing.
template <typename Container>
void receiveAll(Container& values, std::uint64_t count, const ByteSource& source) {
    constexpr std::uint64_t atOnce = 1U << 20U;
    while (values.size() < count) {
        const auto before = values.size();
        values.resize(static_cast<std::size_t>(std::min<std::uint64_t>(count, before + atOnce)));
        source({reinterpret_cast<char*>(values.data() + before),
                (values.size() - before) * sizeof(values[0])});
    }
}

void require(bool holds, const char* fault) {
    if (!holds) {
        throw BadReply(fault);
    }
}

void checkFaces(const Mesh& mesh) {
    const auto isName = [&](std::uint32_t name) {
        return name == Mesh::unnamed || name < mesh.names.size();
    };
    std::uint64_t next = 0; // corners stand face by face, so that none costs more than its bytes
    for (const Mesh::Face& face : mesh.faces) {
        require(face.cornerCount >= 3 && face.firstCorner == next, "corners are not in order");
        require(isName(face.object) && isName(face.group) && isName(face.material),
                "a face has a name that is not there");
        next += face.cornerCount;
    }
    require(next == mesh.corners.size(), "corners are left over or missing");
    require(std::all_of(mesh.corners.begin(), mesh.corners.end(),
                        [&](std::uint32_t corner) { return corner < mesh.vertices.size(); }),
            "a corner is no vertex");
}

} // namespace

void sendMesh(const Mesh& mesh, const ByteSink& sink) {
    std::string names;
    for (const std::string& name : mesh.names) {
        names += name;
        names += '\0';
    }
    const ReplyHeader header = {.names = static_cast<std::uint32_t>(mesh.names.size()),
                                .vertices = mesh.vertices.size(),
                                .corners = mesh.corners.size(),
                                .faces = mesh.faces.size(),
                                .nameBytes = names.size(),
                                .coordinateStep = mesh.coordinateStep};
    sink({reinterpret_cast<const char*>(&header), sizeof header});
    sendAll(mesh.vertices, sink);
    sendAll(mesh.corners, sink);
    sendAll(mesh.faces, sink);
    sink(names);
}

void sendRefusal(const ImportRefusal& refusal, const ByteSink& sink) {
    const std::string reason = refusal.reason.substr(0, longestReason);
    const ReplyHeader header = {.kind = refusal.outOfMemory ? ReplyKind::outOfMemory
                                                            : ReplyKind::refusal,
                                .nameBytes = reason.size()};
    sink({reinterpret_cast<const char*>(&header), sizeof header});
    sink(reason);
}

std::variant<Mesh, ImportRefusal> receiveReply(const ByteSource& source, std::uintmax_t mostBytes) {
    ReplyHeader header;
    source({reinterpret_cast<char*>(&header), sizeof header});
    require(header.magic == wireMagic, "it does not begin as one of this release");
    if (header.kind == ReplyKind::refusal || header.kind == ReplyKind::outOfMemory) {
        require(header.nameBytes <= longestReason, "the reason is too long");
        ImportRefusal refusal{.reason = {}, .outOfMemory = header.kind == ReplyKind::outOfMemory};
        receiveAll(refusal.reason, header.nameBytes, source);
        return refusal;
    }
    require(header.kind == ReplyKind::mesh, "it is of no known kind");
    // Each count is small enough for the sum to be exact.
    constexpr std::uint64_t mostIndices = 0xFFFFFFFFU;
    require(header.vertices < mostIndices && header.corners < mostIndices &&
                header.faces < mostIndices && header.names < mostIndices &&
                header.nameBytes <= mostBytes,
            "a count is too large");
    require(header.vertices * sizeof(Vector3) + header.corners * sizeof(std::uint32_t) +
                    header.faces * sizeof(Mesh::Face) + header.nameBytes <=
                mostBytes,
            "the mesh is too large");
    require(std::isfinite(header.coordinateStep) && header.coordinateStep >= 0.0,
            "the precision is no distance");
    Mesh mesh;
    mesh.coordinateStep = header.coordinateStep;
    receiveAll(mesh.vertices, header.vertices, source);
    receiveAll(mesh.corners, header.corners, source);
    receiveAll(mesh.faces, header.faces, source);
    std::string names;
    receiveAll(names, header.nameBytes, source);
    std::size_t at = 0;
    for (std::uint32_t i = 0; i < header.names; ++i) {
        const std::size_t end = names.find('\0', at);
        require(end != std::string::npos, "a name is missing");
        require(mesh.nameIndex(names.substr(at, end - at)) == i, "a name is empty or comes twice");
        at = end + 1;
    }
    require(at == names.size(), "there are more names than counted");
    checkFaces(mesh);
    return mesh;
}

} // namespace insolate::study
