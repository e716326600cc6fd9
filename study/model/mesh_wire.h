/// How the import program hands over what it has read: a mesh or the reason why there is none.
///
/// The receiver trusts nothing: counts are held against what the sender may use, memory is taken as
/// bytes arrive, and every index is checked. Numbers stand as in memory, little-endian; both ends
/// belong to one build.
#pragma once

#include "study/model/mesh.h"

#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <variant>

namespace insolate::study {

/// Why the importer made no mesh, in a sentence without the file's name.
struct ImportRefusal {
    std::string reason;
    bool outOfMemory = false;
};

/// What is wrong with a reply that does not keep to the form.
class BadReply : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Takes all of the bytes, or throws.
using ByteSink = std::function<void(std::span<const char>)>;
/// Fills all of the span, or throws.
using ByteSource = std::function<void(std::span<char>)>;

void sendMesh(const Mesh& mesh, const ByteSink& sink);
void sendRefusal(const ImportRefusal& refusal, const ByteSink& sink);

/// @param mostBytes what the mesh may take
/// @throws BadReply, and what the source throws
std::variant<Mesh, ImportRefusal> receiveReply(const ByteSource& source, std::uintmax_t mostBytes);

} // namespace insolate::study
