/// The JSON of city models: documents one after the other, and what to ask of their values.
#pragma once

#include "study/files/input_file.h"
#include "study/model/mesh.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>

#include <nlohmann/json.hpp>

namespace insolate::study::cityjson {

using Json = nlohmann::json;

/// Whole JSON documents, one after the other, each from line to line as long as it needs.
class CityDocuments {
public:
    /// @throws DataError when it cannot be read; Stopped, as all that follow
    CityDocuments(const std::filesystem::path& file, std::stop_token stop);

    /// The next document; nothing at the end of the file.
    /// @throws DataError when it is no JSON, larger or deeper than any city model
    std::optional<Json> next();

    /// Refuses the document that was read last.
    /// @param object the id of the city object, where there is one
    [[noreturn]] void fail(const std::string& what, const std::string& object = {}) const;

    [[nodiscard]] const std::filesystem::path& file() const { return m_file; }

private:
    std::filesystem::path m_file;
    InputFile m_in;
    std::stop_token m_stop;
    std::string m_text;
    std::size_t m_line = 0;
    std::size_t m_firstLine = 1; ///< of the document
};

/// The member of an object; nullptr when there is none or it is null.
const Json* memberOf(const Json& object, const char* name);
/// The elements of a member that is a list; none of any other.
const Json& elementsOf(const Json& object, const char* name);
/// The text of a member, or nothing.
std::string textOf(const Json& object, const char* name);
std::optional<double> numberOf(const Json& value);
/// Three numbers, whatever follows them.
std::optional<Vector3> pointOf(const Json& value);

} // namespace insolate::study::cityjson
