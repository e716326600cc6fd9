#include "study/run/study_session.h"

#include "study/files/folder_hold.h"
#include "study/files/output_folder.h"
#include "study/output/page.h"
#include "study/run/calculate_hours.h"
#include "study/run/calculate_sensors.h"
#include "study/run/reflected_sensors.h"
#include "study/run/result_files.h"
#include "study/run/run_files.h"
#include "study/run/study_page.h"
#include "study/run/study_record.h"
#include "study/run/study_steps.h"
#include "study/support/errors.h"
#include "study/support/kept_warnings.h"

#include <algorithm>
#include <mutex>
#include <numeric>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

struct OtherSensors::Content {
    Content(const PreparedStudy& theStudy, SensorField sensors)
        : study(theStudy), field(std::move(sensors)) {}

    [[nodiscard]] SensorWork work() const {
        return {field, *study.recentring, *study.masks, nullptr, reflected.get()};
    }

    const PreparedStudy& study;
    SensorField field;
    std::vector<ResultColumn> columns;
    std::shared_ptr<const ReflectedSensors> reflected;
};

struct StudySession::Content {
    PreparedStudy study;
    StudyResults results;
    /// The sensors that were calculated again for their hours, where the columns were given: those
    /// on which light is reflected together.
    std::mutex mutex;
    std::optional<OtherSensors> again;
    std::size_t firstAgain = 0;
};

StudySession::StudySession(const RunOptions& options, GivenInputs given, Progress& progress,
                           const std::stop_token& stop, const StudySession* earlier)
    : m_content(std::make_unique<Content>()) {
    checkRunOptions(options);
    KeptWarnings kept(progress);
    m_content->study = prepareStudy(options, std::move(given), kept, stop,
                                    earlier != nullptr ? &earlier->m_content->study : nullptr);
    m_content->study.mayBeFollowed = true;
    m_content->results.warnings = kept.warnings();
}

StudySession::~StudySession() = default;
StudySession::StudySession(StudySession&&) noexcept = default;
StudySession& StudySession::operator=(StudySession&&) noexcept = default;

const RunOptions& StudySession::options() const {
    return m_content->study.options;
}

const WeatherReport& StudySession::weather() const {
    return m_content->study.method->weather();
}

const Scene& StudySession::scene() const {
    return m_content->study.inputs.scene;
}

const SensorField& StudySession::field() const {
    return m_content->study.inputs.field;
}

template <typename Calculate>
void StudySession::finish(Calculate&& calculate, Progress& progress) {
    KeptWarnings kept(progress);
    std::vector<std::string> warnings = std::move(m_content->results.warnings);
    m_content->again.reset();
    m_content->results = calculate(kept);
    PreparedStudy& study = m_content->study;
    study.method->release();
    if (study.options.rays == RayMethod::octree && !study.options.masks) {
        // The octree is the process's, and this session may live long. What it is asked later is
        // answered by an index of its own, with the same answers.
        study.masks.reset();
        study.masks = makeRayMasks(study.inputs.scene, *study.recentring, RayMethod::fast, {});
    }
    reportResults(m_content->study, m_content->results, kept);
    const std::vector<std::string>& late = kept.warnings();
    warnings.insert(warnings.end(), late.begin(), late.end());
    m_content->results.warnings = std::move(warnings);
}

void StudySession::calculate(Progress& progress, const std::stop_token& stop) {
    finish([&](Progress& heard) { return calculateStudy(m_content->study, nullptr, heard, stop); },
           progress);
}

void StudySession::calculateSince(const StudySession& earlier, Progress& progress,
                                  const std::stop_token& stop) {
    finish(
        [&](Progress& heard) {
            return calculateStudySince(m_content->study, earlier.m_content->study,
                                       earlier.m_content->results, heard, stop);
        },
        progress);
}

void StudySession::take(std::vector<ResultColumn> columns, Progress& progress,
                        const std::stop_token& stop) {
    PreparedStudy& study = m_content->study;
    std::vector<ResultColumn> own = study.method->columns();
    const auto isOwn = [&](const ResultColumn& given, const ResultColumn& wanted) {
        return given.name == wanted.name && given.values.size() == study.inputs.field.size();
    };
    if (!std::equal(columns.begin(), columns.end(), own.begin(), own.end(), isOwn)) {
        throw DataError("the given columns are not those of this study; calculate them with its "
                        "options, for all of its sensors");
    }
    for (std::size_t i = 0; i < own.size(); ++i) {
        own[i].values = std::move(columns[i].values);
    }
    finish(
        [&](Progress& heard) {
            StudyResults results;
            results.columns = std::move(own);
            if (study.options.reflects() && study.options.hourly.hoursOf.any()) {
                std::vector<ResultColumn> again = results.columns;
                study.reflected = study.method->addReflected(study.work(), study.options.threads,
                                                             true, again, heard, stop);
            }
            completeResults(study, results, heard, stop);
            return results;
        },
        progress);
}

std::span<const ResultColumn> StudySession::columns() const {
    return m_content->results.columns;
}

std::span<const float> StudySession::areas() const {
    return m_content->results.areas;
}

std::size_t StudySession::enclosed() const {
    return m_content->results.enclosedCount;
}

std::span<const float> StudySession::enclosedSensors() const {
    return m_content->results.enclosed;
}

namespace {

void requireHours(const RunOptions& options) {
    if (!methodUse(options.method).takesHourlyOptions) {
        throw UsageError(
            fmt::format("--method {} has no hours; take --method hourly", options.method));
    }
}

} // namespace

SensorHours StudySession::hoursOf(std::size_t sensor) const {
    const PreparedStudy& study = m_content->study;
    requireHours(study.options);
    if (sensor >= study.inputs.field.size()) {
        throw UsageError(fmt::format("there is no sensor {}; give numbers from 0 to {}", sensor,
                                     study.inputs.field.size() - 1));
    }
    if (study.reflected == nullptr && study.options.reflects()) { // the columns were given
        constexpr std::size_t together = ReflectedSensors::blockSize;
        const std::size_t first = sensor / together * together;
        const std::lock_guard lock(m_content->mutex);
        Progress silent;
        if (!m_content->again || m_content->firstAgain != first) {
            const SensorField& all = study.inputs.field;
            SensorField block;
            for (std::size_t i = first; i < std::min(first + together, all.size()); ++i) {
                block.positions.push_back(all.positions[i]);
                block.normals.push_back(all.normals[i]);
            }
            m_content->again.emplace(calculateOthers(std::move(block), silent));
            m_content->firstAgain = first;
        }
        SensorHours hours;
        m_content->again->hoursOf(
            sensor - first, sensor - first + 1,
            [&](std::size_t, std::span<const SensorHours> made) { hours = made.front(); }, silent);
        return hours;
    }
    return study.method->hoursOf(study.work(), sensor);
}

OtherSensors StudySession::calculateOthers(SensorField sensors, Progress& progress,
                                           const std::stop_token& stop) const {
    const PreparedStudy& study = m_content->study;
    auto others = std::make_unique<OtherSensors::Content>(study, std::move(sensors));
    const SensorWork work = others->work();
    const int threads = study.options.threads;
    others->columns = calculateSensors(*study.method, work, threads, nullptr, progress, stop);
    others->reflected =
        study.method->addReflected(work, threads, true, others->columns, progress, stop);
    return OtherSensors(std::move(others));
}

OtherSensors::OtherSensors(std::unique_ptr<Content> content) : m_content(std::move(content)) {}
OtherSensors::~OtherSensors() = default;
OtherSensors::OtherSensors(OtherSensors&&) noexcept = default;
OtherSensors& OtherSensors::operator=(OtherSensors&&) noexcept = default;

std::span<const ResultColumn> OtherSensors::columns() const {
    return m_content->columns;
}

void OtherSensors::hoursOf(
    std::size_t first, std::size_t end,
    const std::function<void(std::size_t, std::span<const SensorHours>)>& take, Progress& progress,
    const std::stop_token& stop) const {
    const PreparedStudy& study = m_content->study;
    requireHours(study.options);
    if (first > end || end > m_content->field.size()) {
        throw UsageError(fmt::format("there are no sensors {} to {}; there are {}", first, end,
                                     m_content->field.size()));
    }
    std::vector<std::size_t> sensors(end - first);
    std::iota(sensors.begin(), sensors.end(), first);
    calculateHours(*study.method, m_content->work(), sensors, study.options.threads, take, progress,
                   stop);
}

const Recentring& StudySession::recentring() const {
    return *m_content->study.recentring;
}

std::string StudySession::summary() const {
    const PreparedStudy& study = m_content->study;
    Stopwatch watch = study.watch;
    return summaryRecord({study.options, watch, study, m_content->results})
        .dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

SensorGroups StudySession::groups(const GroupBy& by) const {
    const StudyResults& results = m_content->results;
    return groupSensors(field(), results.columns, results.areas, by,
                        groupingOf(m_content->study, results));
}

void StudySession::save(const std::filesystem::path& out, Progress& progress,
                        const std::stop_token& stop) const {
    checkOutFolder(out);
    const PreparedStudy& study = m_content->study;
    RunOptions options = study.options;
    options.out = out;
    Stopwatch watch = study.watch;
    OutputFolder folder(out, filesRead(options));
    const FolderHold hold(progress, folder);
    requireFreeFolder<RunAnswer>(folder, options);
    writeResults(folder, RunAnswer{options, watch, study, m_content->results}, progress, stop);
}

void StudySession::savePage(const std::filesystem::path& file, Progress& progress,
                            const std::stop_token& stop) const {
    const std::filesystem::path parent =
        file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
    const PreparedStudy& study = m_content->study;
    RunOptions options = study.options;
    options.out = parent;
    Stopwatch watch = study.watch;
    OutputFolder folder(parent, filesRead(options), place(file));
    const FolderHold hold(progress, folder);
    writeStudyPage(folder.stage({file.filename().string(), isOurPage}),
                   {options, watch, study, m_content->results}, progress, stop);
    throwIfStopped(stop);
    folder.commit();
}

ResultFolder StudySession::results() const {
    const StudyResults& results = m_content->results;
    std::vector<ResultColumn> columns = results.columns;
    columns.push_back(
        {"enclosed", "0 or 1", "Whether it looks into closed geometry", results.enclosed});
    ResultFolder folder = resultsInMemory(summary(), field(), std::move(columns), results.areas);
    folder.facts.madeBy = studySubtitle(options(), weather());
    return folder;
}

} // namespace insolate::study
