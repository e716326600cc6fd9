/// A folder that an earlier study left, read back: what was asked, the sensors and their results.
#pragma once

#include "study/export.h"
#include "study/model/mesh_import.h"
#include "study/model/scene.h"
#include "study/model/winding.h"
#include "study/results/result_column.h"

#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace insolate::study {

/// What a study was about and what made it, as its summary has it. Texts are empty and numbers NaN
/// where the summary, of an older version perhaps, does not say.
struct StudyFacts {
    /// Of `insolate run`, of `insolate sunhours`, of `insolate compare`.
    enum class Question { radiation, sunHours, comparison };

    Question question = Question::radiation;
    std::string version; ///< of insolate
    std::string site;
    double latitude = std::numeric_limits<double>::quiet_NaN();  ///< degrees, north positive
    double longitude = std::numeric_limits<double>::quiet_NaN(); ///< degrees, east positive
    double timeZone = std::numeric_limits<double>::quiet_NaN();  ///< hours from UTC
    double elevation = std::numeric_limits<double>::quiet_NaN(); ///< of the site [m]
    std::string weather;                                         ///< the file, as it was given
    std::string period; ///< "1 June to 31 August, 8:00 to 18:00"
    int days = 365;     ///< of the period; a year where the summary does not say
    std::string method; ///< "hourly"
    std::string albedo; ///< of the ground: "0.2", "0.15 to 0.6 by month"
    /// Of surfaces that have no material, where the method knows of reflected light: "0.2".
    std::string reflectance;
    double grid = std::numeric_limits<double>::quiet_NaN(); ///< longest edge of a cell [m]
    std::string rule;                                       ///< of sun hours, in words
    std::string preset;  ///< of sun hours: the published rule that it is, "EN 17037, medium"
    std::string verdict; ///< of sun hours, where the rule has a threshold, in words
    std::string year;    ///< of sun hours
    std::string madeBy;  ///< all of it in one line, as pictures have it below their title
    std::string madeA;   ///< of a comparison: the same line of what is taken off
    std::string madeB;   ///< and of what it is taken off from
    std::vector<std::string> warnings; ///< that the study gave
};

/// Where the models of a study lie and how they were read.
struct ResultModel {
    /// The files that cast shadows: as the study named them, and from the folder of the results.
    std::vector<std::filesystem::path> files;
    std::vector<std::filesystem::path> filesFromFolder; ///< as many, or none
    /// The one of the files whose faces the sensors were cut from, as a place in them; absent for
    /// sensors of another model, a table or a plane.
    std::optional<std::size_t> sensorFile;
    struct Reading {
        MeshImportOptions import;
        Orient orient = Orient::outward;
    };
    std::vector<Reading> readings; ///< of each of the files
    double north = 0.0;            ///< from the model's +Y clockwise to true north [degrees]
    std::string fingerprint;   ///< of the triangles, as sceneFingerprint() gives it; may be empty
    std::size_t triangles = 0; ///< 0 where the summary does not say
};

struct INSOLATE_STUDY_EXPORT ResultFolder {
    std::filesystem::path folder;
    StudyFacts facts;
    ResultModel model;
    /// With cells and, where the results have them, the names of their origins. Columns of
    /// sensors.csv that are no quantities, as names and dates, are given ones here.
    SensorField field;
    /// The quantities of sensors.csv in their order, "area" and "enclosed" aside; titles come from
    /// the summary. Values of sensors that the study leaves out of means are NaN.
    std::vector<ResultColumn> columns;
    std::vector<float> areas; ///< of the cells [m2]; empty for sensors without
    /// By sensor: 0 leaves it out of means and colours, as it is enclosed; empty: all count.
    std::vector<std::uint8_t> included;
    std::string summary; ///< summary.json, which is JSON in UTF-8

    /// The quantity of that name, or null.
    [[nodiscard]] const ResultColumn* find(std::string_view name) const;
    /// The names of all quantities.
    [[nodiscard]] std::vector<std::string> columnNames() const;
};

/// Reads summary.json, sensors.csv and sensors.vtp of a folder that `insolate run` or `insolate
/// sunhours` has left complete, of this version or an older one.
/// @throws DataError when one of the files is missing, damaged, or not of the same study as the
///         others, and for a summary with a text in the place of a number; Stopped
INSOLATE_STUDY_EXPORT ResultFolder readResultFolder(const std::filesystem::path& folder,
                                                    const std::stop_token& stop = {});

/// The files that are read of a folder, by readResultFolder() and for the page: what is made from
/// them must not replace them.
INSOLATE_STUDY_EXPORT std::vector<std::filesystem::path>
resultFilesRead(const std::filesystem::path& folder);

/// Results that never were in a folder, as what reads folders takes them; `folder` stays empty.
/// @param summary what summary.json would say
/// @throws DataError when it does not say what a comparison needs
INSOLATE_STUDY_EXPORT ResultFolder resultsInMemory(std::string summary, SensorField field,
                                                   std::vector<ResultColumn> columns,
                                                   std::vector<float> areas);

} // namespace insolate::study
