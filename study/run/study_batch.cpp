#include "study/run/study_batch.h"

#include "study/run/run_option_table.h"
#include "study/run/run_sky.h"
#include "study/run/run_study.h"
#include "study/run/study_record.h"
#include "study/run/study_steps.h"
#include "study/run/sun_hours_steps.h"
#include "study/support/errors.h"
#include "study/support/handed_progress.h"

#include <algorithm>
#include <optional>
#include <set>
#include <string_view>
#include <type_traits>
#include <utility>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// Passes everything on, each warning once.
class OnceProgress final : public HandedProgress {
public:
    using HandedProgress::HandedProgress;

    void warn(const std::string& text) override {
        if (m_said.insert(text).second) {
            HandedProgress::warn(text);
        }
    }

private:
    std::set<std::string> m_said;
};

/// Options that no table has but every command.
constexpr const char* quietOption = "quiet";

/// The options of a subcommand, bound to values of their own.
template <typename Options>
OptionTable tableOf(Options& options, bool& quiet) {
    OptionTable table;
    if constexpr (std::is_same_v<Options, RunOptions>) {
        addRunOptions(table, options);
    } else if constexpr (std::is_same_v<Options, SkyOptions>) {
        addSkyOptions(table, options, methodNames(MethodsOf::aSky));
    } else if constexpr (std::is_same_v<Options, SunHoursOptions>) {
        addSunHoursOptions(table, options);
    } else if constexpr (std::is_same_v<Options, CompareRunOptions>) {
        addCompareOptions(table, options);
    } else {
        addPictureOptions(table, options);
    }
    table.flag(quietOption, quiet, "");
    return table;
}

template <typename Options>
StudyTask taskOf(const StudyFile& file, const StudyAnalysis* analysis) {
    Options options;
    bool quiet = false;
    const OptionTable table = tableOf(options, quiet);
    StudyTask task;
    task.keys = file.apply(table, {}, analysis);
    task.quiet = quiet;
    if (analysis != nullptr) {
        task.name = analysis->name;
        options.out = folderOf(options.out, analysis->name);
    }
    task.options = std::move(options);
    return task;
}

StudyTask taskOf(const StudyFile& file, const StudyAnalysis& analysis) {
    return analysis.command == "sky"        ? taskOf<SkyOptions>(file, &analysis)
           : analysis.command == "sunhours" ? taskOf<SunHoursOptions>(file, &analysis)
                                            : taskOf<RunOptions>(file, &analysis);
}

/// The error with the analyses whose results are written.
template <typename Fault>
[[noreturn]] void failAfter(const std::vector<std::string>& written, const Fault& error) {
    throw Fault(
        fmt::format("{}; the results of {} are written", error.what(), fmt::join(written, ", ")));
}

} // namespace

struct StudyBatch::State {
    State(Progress& heard, std::stop_token token) : progress(heard), stop(std::move(token)) {}

    OnceProgress progress;
    std::stop_token stop;
    std::optional<StudyInputs> inputs; ///< of the study before
    bool hasWritten = false;           ///< since the analysis began
    std::vector<std::string> written;  ///< analyses whose results are complete

    GivenInputs takeInputs() { return {.models = std::exchange(inputs, std::nullopt)}; }
};

StudyBatch::StudyBatch(Progress& progress, std::stop_token stop)
    : m_state(std::make_unique<State>(progress, std::move(stop))) {}

StudyBatch::~StudyBatch() = default;

void StudyBatch::run(const RunOptions& options) {
    runStudy(options, m_state->progress, m_state->stop, m_state->inputs);
    m_state->hasWritten = true;
}

void StudyBatch::run(const SkyOptions& options) {
    runSky(options, m_state->progress, m_state->stop);
    m_state->hasWritten = true;
}

void StudyBatch::run(const SunHoursOptions& options) {
    runSunHours(options, m_state->progress, m_state->stop, m_state->inputs);
    m_state->hasWritten = true;
}

void StudyBatch::run(const CompareRunOptions& options) {
    runCompare(options, m_state->progress, m_state->stop);
}

void StudyBatch::run(const PictureRunOptions& options) {
    runPicture(options, m_state->progress, m_state->stop);
}

void StudyBatch::analyse(const std::string& name, const StudyKeys& keys,
                         const std::function<void()>& work) {
    const std::vector<std::string>& written = m_state->written;
    m_state->hasWritten = false;
    try {
        try {
            work();
        } catch (const UsageError& error) {
            failInStudy(keys, error);
        }
    } catch (const Stopped& stopped) {
        constexpr std::string_view nothing = "no result was written";
        std::string text = stopped.what();
        const std::size_t at = text.find(nothing);
        if (written.empty() || at == std::string::npos) {
            throw;
        }
        throw Stopped(text.replace(at, nothing.size(),
                                   fmt::format("no result of {} was written, but those of {}", name,
                                               fmt::join(written, ", "))));
    } catch (const UsageError& error) {
        if (written.empty()) {
            throw;
        }
        failAfter(written, error);
    } catch (const OutputError& error) {
        if (written.empty()) {
            throw;
        }
        failAfter(written, error);
    } catch (const DataError& error) {
        if (written.empty()) {
            throw;
        }
        failAfter(written, error);
    }
    if (m_state->hasWritten && !name.empty()) {
        m_state->written.push_back(name);
    }
}

StudyEstimate StudyBatch::estimate(const RunOptions& options) {
    checkRunOptions(options);
    PreparedStudy study =
        prepareStudy(options, m_state->takeInputs(), m_state->progress, m_state->stop);
    StudyEstimate estimate = estimateStudy(study, m_state->stop);
    m_state->inputs = std::move(study.inputs);
    return estimate;
}

void StudyBatch::check(const RunOptions& options) {
    checkRunOptions(options);
    checkOutFolder(options.out);
    PreparedStudy study =
        prepareStudy(options, m_state->takeInputs(), m_state->progress, m_state->stop);
    m_state->inputs = std::move(study.inputs);
}

void StudyBatch::check(const SkyOptions& options) {
    checkSkyOptions(options);
    checkOutFolder(options.out);
    const auto method = makeRadiationMethod(options, 0.0);
    reportStudy(options, method->weather(), m_state->progress);
}

void StudyBatch::check(const SunHoursOptions& options) {
    checkOutFolder(options.out);
    SunHoursStudy study =
        prepareSunHours(options, m_state->takeInputs().models, m_state->progress, m_state->stop);
    m_state->inputs = std::move(study.inputs);
}

std::filesystem::path folderOf(const std::filesystem::path& out, const std::string& analysis) {
    return out.empty() || analysis.empty() ? out : out / analysis;
}

std::vector<std::string> studyFileKeys() {
    std::vector<std::string> names = {quietOption, "analysis"};
    const auto collect = [&](const OptionTable& table) {
        for (std::string& name : table.names()) {
            if (std::find(names.begin(), names.end(), name) == names.end()) {
                names.push_back(std::move(name));
            }
        }
    };
    bool quiet = false;
    RunOptions run;
    SkyOptions sky;
    SunHoursOptions sunHours;
    CompareRunOptions compare;
    PictureRunOptions picture;
    collect(tableOf(run, quiet));
    collect(tableOf(sky, quiet));
    collect(tableOf(sunHours, quiet));
    collect(tableOf(compare, quiet));
    collect(tableOf(picture, quiet));
    return names;
}

std::vector<StudyTask> readStudyTasks(const std::filesystem::path& file,
                                      const std::stop_token& stop) {
    const StudyFile study(file, stop);
    std::vector<StudyTask> tasks;
    if (study.analyses().empty()) {
        tasks.push_back(taskOf<RunOptions>(study, nullptr));
    }
    for (const StudyAnalysis& analysis : study.analyses()) {
        tasks.push_back(taskOf(study, analysis));
    }
    return tasks;
}

void runStudyTasks(
    const std::vector<StudyTask>& tasks, Progress& progress,
    const std::function<void(const std::string& name, const StudyEstimate& estimate)>& estimated,
    const std::stop_token& stop) {
    StudyBatch batch(progress, stop);
    std::size_t number = 0;
    for (const StudyTask& task : tasks) {
        if (!task.name.empty()) {
            progress.note(fmt::format("analysis {} ({} of {})", task.name, ++number, tasks.size()));
        }
        const auto work = [&](const auto& options) {
            if constexpr (std::is_same_v<std::remove_cvref_t<decltype(options)>, RunOptions>) {
                if (options.dryRun) {
                    estimated(task.name, batch.estimate(options));
                    return;
                }
            }
            batch.run(options);
        };
        batch.analyse(task.name, task.keys, [&] { std::visit(work, task.options); });
    }
}

std::vector<std::string> checkStudyFile(const std::filesystem::path& file, Progress& progress,
                                        const std::stop_token& stop) {
    const StudyFile study(file, stop);
    StudyBatch batch(progress, stop);
    std::vector<std::string> faults;
    const auto note = [&](auto&& work) {
        try {
            work();
        } catch (const Stopped&) {
            throw;
        } catch (const Error& error) {
            if (std::find(faults.begin(), faults.end(), error.what()) == faults.end()) {
                faults.emplace_back(error.what());
            }
        }
    };
    const auto check = [&](const StudyTask& task) {
        batch.analyse(task.name, task.keys, [&] {
            std::visit([&](const auto& options) { batch.check(options); }, task.options);
        });
    };
    if (study.analyses().empty()) {
        note([&] { check(taskOf<RunOptions>(study, nullptr)); });
    }
    for (const StudyAnalysis& analysis : study.analyses()) {
        note([&] { check(taskOf(study, analysis)); });
    }
    return faults;
}

} // namespace insolate::study
