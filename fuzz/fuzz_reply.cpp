// Any bytes as the import program's reply. A first byte that is odd has the beginning put right,
// which chance would never hit.
#include "mesh_promises.h"

#include "study/model/mesh_wire.h"

#include <algorithm>
#include <cstring>

namespace {

/// The reply ends before what it announces.
struct CutReply {};

} // namespace

INSOLATE_FUZZ_TARGET(reply)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::study;
    if (size == 0) {
        return 0;
    }
    std::string reply(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    if (bytes[0] % 2 == 1) {
        reply.insert(0, "INSOMSH1");
    }
    std::size_t at = 0;
    const auto source = [&](std::span<char> to) {
        if (to.size() > reply.size() - at) {
            throw CutReply();
        }
        std::copy_n(reply.data() + at, to.size(), to.data());
        at += to.size();
    };
    try {
        auto received = receiveReply(source, 1U << 20U);
        if (Mesh* mesh = std::get_if<Mesh>(&received)) {
            // What was received is sent as it came.
            std::string again;
            sendMesh(*mesh,
                     [&](std::span<const char> some) { again.append(some.begin(), some.end()); });
            insolate::fuzz::require(again == reply.substr(0, at), "a mesh has one form");
            insolate::fuzz::checkMesh(std::move(*mesh), UpAxis::z);
        }
    } catch (const CutReply&) {
    } catch (const BadReply&) {
    } catch (const DataError&) {
    }
    return 0;
}
