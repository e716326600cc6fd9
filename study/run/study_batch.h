/// Several studies over one scene: the analyses of a study file, one after the other.
#pragma once

#include "study/export.h"

#include "study/run/run_compare.h"
#include "study/run/run_options.h"
#include "study/run/run_picture.h"
#include "study/run/study_estimate.h"
#include "study/run/study_file.h"
#include "study/run/sun_hours.h"
#include "study/support/progress.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <variant>
#include <vector>

namespace insolate::study {

/// Runs studies whose options of the model are all the same: scene and sensors are read with the
/// first one. A warning is said once, however many studies it holds for.
class INSOLATE_STUDY_EXPORT StudyBatch {
public:
    explicit StudyBatch(Progress& progress, std::stop_token stop = {});
    ~StudyBatch();
    StudyBatch(const StudyBatch&) = delete;
    StudyBatch& operator=(const StudyBatch&) = delete;

    /// As runStudy(), runSky() and runSunHours() do.
    /// @throws Error
    void run(const RunOptions& options);
    void run(const SkyOptions& options);
    void run(const SunHoursOptions& options);

    /// As runCompare() and runPicture() do.
    /// @throws Error
    void run(const CompareRunOptions& options);
    void run(const PictureRunOptions& options);

    /// As estimateStudy() does.
    /// @throws Error
    [[nodiscard]] StudyEstimate estimate(const RunOptions& options);

    /// Does the work of one analysis: calls of the functions above. An error is given the place of
    /// the option that it begins with, and says which analyses have left their results before it.
    /// @param name empty where the study is one question
    /// @throws Error
    void analyse(const std::string& name, const StudyKeys& keys, const std::function<void()>& work);

    /// Goes as far as it goes without a calculation: options, weather and sky, scene and sensors.
    /// Writes nothing.
    /// @throws Error
    void check(const RunOptions& options);
    void check(const SkyOptions& options);
    void check(const SunHoursOptions& options);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

/// One question of a study file.
struct StudyTask {
    std::string name; ///< of the analysis; empty where the whole file is one question
    std::variant<RunOptions, SkyOptions, SunHoursOptions> options;
    StudyKeys keys;     ///< where the file gives which option
    bool quiet = false; ///< whether the file asks for warnings and errors alone
};

/// The analyses of a study file; a file without any is one question of `insolate run`. The results
/// of an analysis go into a folder of its name within `out`.
/// @throws DataError with file and line, Stopped
INSOLATE_STUDY_EXPORT std::vector<StudyTask> readStudyTasks(const std::filesystem::path& file,
                                                            const std::stop_token& stop = {});

/// Runs the analyses of a study file in its order.
/// @param estimated gets what those would take that ask for no more (`dry-run`), with their names
/// @throws Error; what earlier analyses have written stays
INSOLATE_STUDY_EXPORT void runStudyTasks(
    const std::vector<StudyTask>& tasks, Progress& progress,
    const std::function<void(const std::string& name, const StudyEstimate& estimate)>& estimated,
    const std::stop_token& stop = {});

/// What is wrong with a study file, a line each, as a run would say it; empty when nothing is.
/// Reads all of its inputs and writes nothing.
/// @throws DataError when the file is no study at all, Stopped
INSOLATE_STUDY_EXPORT std::vector<std::string> checkStudyFile(const std::filesystem::path& file,
                                                              Progress& progress,
                                                              const std::stop_token& stop = {});

/// The folder of an analysis within that of the study; the latter for an empty name or folder.
INSOLATE_STUDY_EXPORT std::filesystem::path folderOf(const std::filesystem::path& out,
                                                     const std::string& analysis);

/// The names of the options that some subcommand takes from a study file.
INSOLATE_STUDY_EXPORT std::vector<std::string> studyFileKeys();

} // namespace insolate::study
