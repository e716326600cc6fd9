#include <insolate/hourly/hourly_analysis.h>

#include <insolate/hourly/first_masks.h>
#include <insolate/hourly/hourly_preparation.h>
#include <insolate/hourly/sensor_evaluation.h>
#include <insolate/hourly/sensor_order.h>
#include <insolate/platform/processor_count.h>
#include <insolate/rt/occlusion_query.h>

#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/task_arena.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <mutex>
#include <optional>
#include <utility>

namespace insolate {
namespace {

/// Sensors that a thread evaluates in one go: a few milliseconds, far above what it costs to hand
/// them out, and often enough for a progress bar; enough to put neighbours together.
constexpr std::size_t sensorsPerBlock = 256;

bool isFinite(const XYZf& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

} // namespace

HourlyAnalysis::HourlyAnalysis(HourlySky sky, const HourlyAnalysisOptions& options)
    : HourlyAnalysis(std::move(sky), options, {}) {}
HourlyAnalysis::HourlyAnalysis(HourlySky sky, const HourlyAnalysisOptions& options,
                               const std::vector<HourlySky>& parts)
    : m_prepared(std::make_unique<HourlyPreparation>(std::move(sky), parts, options)) {}
HourlyAnalysis::HourlyAnalysis(HourlyAnalysis&&) noexcept = default;
HourlyAnalysis& HourlyAnalysis::operator=(HourlyAnalysis&&) noexcept = default;
HourlyAnalysis::~HourlyAnalysis() = default;

const HourlySky& HourlyAnalysis::sky() const {
    static const HourlySky none;
    return m_prepared != nullptr ? m_prepared->sky : none;
}

const HourlyAnalysisOptions& HourlyAnalysis::options() const {
    static const HourlyAnalysisOptions none;
    return m_prepared != nullptr ? m_prepared->options : none;
}

/// Whether there is anything to compute; results are 0 else.
bool HourlyAnalysis::canEvaluate(const LightScene* light, const Sensor& sensor) const {
    return sky().valid && isFinite(sensor.position) && isFinite(sensor.normal) &&
           (light == nullptr || light->seasons() == options().seasons);
}

SensorResult HourlyAnalysis::evaluate(GetTransparencyValueOnRay& rays, const LightScene* light,
                                      const Sensor& sensor, std::span<SensorPart> parts,
                                      SensorHours* hours) const {
    std::fill(parts.begin(), parts.end(), SensorPart());
    if (!canEvaluate(light, sensor)) {
        if (hours != nullptr) {
            SensorEvaluation::clear(*hours);
        }
        return {};
    }
    const bool looksThrough = light != nullptr && light->hasTranslucent();
    SensorEvaluation evaluation(*m_prepared, rays, looksThrough ? light : nullptr, sensor);
    FirstMasks masks = evaluation.wanted();
    evaluation.answer(masks);
    return evaluation.result(masks, hours, parts);
}

SensorResult HourlyAnalysis::evaluate(GetTransparencyValueOnRay& rays, const Sensor& sensor,
                                      SensorHours* hours) const {
    return evaluate(rays, nullptr, sensor, {}, hours);
}

std::vector<SkyDirections> HourlyAnalysis::firstRays() const {
    std::vector<SkyDirections> sets;
    if (m_prepared != nullptr) {
        sets.assign(m_prepared->first.directions.begin(), m_prepared->first.directions.end());
        for (const GroundRays& ground : m_prepared->ground) {
            sets.insert(sets.end(), ground.sets.begin(), ground.sets.end());
        }
    }
    return sets;
}

std::size_t HourlyAnalysis::partCount() const {
    return m_prepared != nullptr ? m_prepared->parts.size() : 0;
}

const HourlyAnalysis::PartLight& HourlyAnalysis::partLight(std::size_t part) const {
    return m_prepared->partLights[part];
}

SensorResult HourlyAnalysis::evaluate(GetTransparencyValueOnRay& rays, const Sensor& sensor,
                                      std::span<SensorPart> parts, SensorHours* hours) const {
    return evaluate(rays, nullptr, sensor, parts, hours);
}

SensorResult HourlyAnalysis::evaluate(const OcclusionIndex& scene, const Sensor& sensor,
                                      SensorHours* hours) const {
    FastRayTransparency rays(scene);
    return evaluate(rays, nullptr, sensor, {}, hours);
}

SensorResult HourlyAnalysis::evaluate(const LightScene& scene, const Sensor& sensor,
                                      SensorHours* hours) const {
    return evaluate(scene, sensor, {}, hours);
}

SensorResult HourlyAnalysis::evaluate(const LightScene& scene, const Sensor& sensor,
                                      std::span<SensorPart> parts, SensorHours* hours) const {
    FastRayTransparency rays(scene.opaque());
    return evaluate(rays, &scene, sensor, parts, hours);
}

bool HourlyAnalysis::evaluate(const OcclusionIndex& scene, std::span<const Sensor> sensors,
                              std::span<SensorResult> results, const EvaluateOptions& options,
                              std::span<SensorHours> hours, std::span<SensorPart> parts) const {
    FastRayTransparency rays(scene);
    return evaluate(rays, nullptr, {sensors, results, hours, parts}, options);
}

bool HourlyAnalysis::evaluate(const LightScene& scene, std::span<const Sensor> sensors,
                              std::span<SensorResult> results, const EvaluateOptions& options,
                              std::span<SensorHours> hours, std::span<SensorPart> parts) const {
    FastRayTransparency rays(scene.opaque());
    return evaluate(rays, &scene, {sensors, results, hours, parts}, options);
}

bool HourlyAnalysis::evaluate(GetTransparencyValueOnRay& rays, std::span<const Sensor> sensors,
                              std::span<SensorResult> results, const EvaluateOptions& options,
                              std::span<SensorHours> hours, std::span<SensorPart> parts) const {
    return evaluate(rays, nullptr, {sensors, results, hours, parts}, options);
}

bool HourlyAnalysis::evaluate(GetTransparencyValueOnRay& rays, const LightScene* light, Work work,
                              const EvaluateOptions& options) const {
    work.partCount = partCount();
    const std::size_t count = std::min(work.sensors.size(), work.results.size());
    std::size_t finished = 0;
    const int threads =
        options.threads > 0 ? std::min(options.threads, processorCount()) : processorCount();
    // A few sensors are shared out too: each may take milliseconds.
    const std::size_t blockSize = std::clamp(count / (4 * static_cast<std::size_t>(threads)),
                                             std::size_t{1}, sensorsPerBlock);
    std::mutex reporting; // guards finished, and lets one report after the other through
    const auto evaluateBlock = [&](std::size_t block) {
        const std::size_t first = block * blockSize;
        const std::size_t done = evaluateNeighbours(
            rays, light, work, first, std::min(first + blockSize, count), options.stop);
        if (done > 0) {
            const std::lock_guard lock(reporting);
            finished += done;
            if (options.progress) {
                options.progress(done);
            }
        }
    };
    const std::size_t blocks = (count + blockSize - 1) / blockSize;
    if (threads == 1 || blocks < 2) {
        for (std::size_t block = 0; block < blocks; ++block) {
            evaluateBlock(block);
        }
    } else {
        tbb::task_arena arena(threads);
        arena.execute([&] { tbb::parallel_for(std::size_t{0}, blocks, evaluateBlock); });
    }
    return finished == count;
}

/// Evaluates the sensors from begin to end on this thread, those that lie close together in one go;
/// how many before a stop was asked for.
std::size_t HourlyAnalysis::evaluateNeighbours(GetTransparencyValueOnRay& rays,
                                               const LightScene* light, const Work& work,
                                               std::size_t begin, std::size_t end,
                                               const std::stop_token& stop) const {
    std::size_t done = 0;
    std::vector<std::uint32_t> asked;
    std::vector<Sensor> finite;
    std::vector<std::uint32_t> places;
    for (std::size_t i = begin; i < end && !stop.stop_requested(); ++i) {
        if (canEvaluate(light, work.sensors[i])) {
            finite.push_back(work.sensors[i]);
            places.push_back(static_cast<std::uint32_t>(i));
        } else {
            work.results[i] =
                evaluate(rays, light, work.sensors[i], work.partsOf(i), work.hoursOf(i));
            ++done;
        }
    }
    for (const std::uint32_t place : alongCurve(finite)) {
        asked.push_back(places[place]);
    }
    const LightScene* through = light != nullptr && light->hasTranslucent() ? light : nullptr;
    std::vector<std::optional<SensorEvaluation>> evaluations(
        std::min(asked.size(), mostOriginsOfBlock));
    std::array<FirstMasks, mostOriginsOfBlock> masks;
    for (std::size_t first = 0; first < asked.size() && !stop.stop_requested();
         first += mostOriginsOfBlock) {
        const std::size_t some = std::min(mostOriginsOfBlock, asked.size() - first);
        for (std::size_t k = 0; k < some; ++k) {
            evaluations[k].emplace(*m_prepared, rays, through, work.sensors[asked[first + k]]);
            masks[k] = evaluations[k]->wanted();
        }
        SensorEvaluation::answerTogether(std::span(evaluations).first(some),
                                         std::span(masks).first(some));
        for (std::size_t k = 0; k < some; ++k) {
            const std::size_t i = asked[first + k];
            const std::span<SensorPart> parts = work.partsOf(i);
            std::fill(parts.begin(), parts.end(), SensorPart());
            work.results[i] = evaluations[k]->result(masks[k], work.hoursOf(i), parts);
        }
        done += some;
    }
    return done;
}

} // namespace insolate
