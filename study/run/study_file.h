/// Options from a study file (TOML): one key for each option, named as on the command line, and the
/// analyses over its scene.
///
///     weather = "lyon.epw"
///     scene = "theatre.obj"
///     out = "results"
///     [[analysis]]
///     name = "year"
///     [[analysis]]
///     name = "spring"
///     command = "sunhours"
///     dates = "3/21"
#pragma once

#include "study/export.h"

#include "study/run/option_table.h"

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

namespace insolate::study {

/// The options that a study file has given, "--grid", each with its place, "FILE:LINE".
using StudyKeys = std::map<std::string, std::string>;

/// A table [[analysis]]: what it gives holds beside the keys above all tables, and in their place.
struct StudyAnalysis {
    std::string name;            ///< good as the name of a folder, each once
    std::string command = "run"; ///< run, sky or sunhours
    std::size_t index = 0;       ///< among the analyses of the file
};

class INSOLATE_STUDY_EXPORT StudyFile {
public:
    /// @throws DataError with file and line when the file cannot be read or its analyses have no
    ///         names, names that are no folders, or keys that must stand above them: those of the
    ///         model, which is read once, and the folder; Stopped
    explicit StudyFile(std::filesystem::path file, const std::stop_token& stop = {});
    ~StudyFile();
    StudyFile(const StudyFile&) = delete;
    StudyFile& operator=(const StudyFile&) = delete;

    [[nodiscard]] const std::vector<StudyAnalysis>& analyses() const { return m_analyses; }

    /// Gives the keys of the file, and those of one analysis, to the options of the same names,
    /// unless these are given already: what is said beside the study file wins. Keys above the
    /// analyses may belong to other subcommands. File names are relative to the file's folder.
    /// @param given names of options that have their values
    /// @throws DataError with file and line
    StudyKeys apply(const OptionTable& table, const std::set<std::string>& given,
                    const StudyAnalysis* analysis = nullptr) const;

private:
    /// Gives the file itself to the option materials where it has tables of them.
    /// @param isOwn whether the analysis has an option of its own
    void giveMaterials(const OptionTable& table, const std::set<std::string>& given, bool isOwn,
                       StudyKeys& taken) const;

    struct Content;
    std::filesystem::path m_file;
    std::unique_ptr<Content> m_content;
    std::vector<StudyAnalysis> m_analyses;
};

/// Throws the error again: with the place of the option that it begins with, when a study file has
/// given that one.
[[noreturn]] INSOLATE_STUDY_EXPORT void failInStudy(const StudyKeys& keys, const UsageError& error);

} // namespace insolate::study
