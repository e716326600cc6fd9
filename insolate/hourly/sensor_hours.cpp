#include <insolate/hourly/sensor_evaluation.h>

#include <insolate/geometry/vector_math.h>
#include <insolate/hourly/peak_search.h>

#include <algorithm>

namespace insolate {
namespace {

using sensorKernels::cellCount;
using sensorKernels::patchCount;
using sensorKernels::sumOfProducts;

} // namespace

void SensorEvaluation::evaluateParts(std::span<SensorPart> parts) {
    std::vector<float> timeThrough;
    if (!m_through.empty()) {
        timeThrough.assign(m_shared.sky.sunCells.size(), 1.0f);
        for (const ThroughCell& touched : m_through) {
            if (touched.sunCell >= 0) { // of several seasons each part has its own
                timeThrough[static_cast<std::size_t>(touched.sunCell)] = *sunThrough(touched);
            }
        }
    }
    const float ofCells = sumOfProducts(m_seen.data(), m_shared.sky.diffuse.data(), cellCount);
    const float skyScale = ofCells > 0.0f ? m_sky / ofCells : 0.0f;
    const std::span<const CellValues> shares =
        m_sunShares.empty() ? std::span<const CellValues>(m_visible) : m_sunShares;
    const std::array<std::vector<float>, 2>& times = sunTimes();
    const SkyParts::Seen seen{.sides = m_sides,
                              .normal = m_normal,
                              .cells = m_seen.data(),
                              .skyScale = skyScale,
                              .sunShares = {shares[0].data(), shares[1].data()},
                              .sunTimes = {times[0].data(), times[1].data()},
                              .sunWeight = m_sunWeight.data(),
                              .sunVisible = m_sunVisible.data(),
                              .timeThrough = timeThrough.empty() ? nullptr : timeThrough.data(),
                              .groundView = m_groundView};
    if (m_shared.partSeasons.empty() || (m_through.empty() && m_groundThrough.empty())) {
        m_shared.parts.evaluate(seen, 0, parts);
        return;
    }
    // What is seen in each part is a mean over the part's own days.
    const CellValues cells = m_seen;
    const SunCellValues suns = m_sunVisible;
    for (std::size_t p = 0; p < std::min(parts.size(), m_shared.partSeasons.size()); ++p) {
        const std::vector<HourlyPreparation::PartSeason>& seasons = m_shared.partSeasons[p];
        for (const ThroughCell& touched : m_through) {
            float sky = 0.0f;
            float sun = 0.0f;
            const auto j = static_cast<std::size_t>(std::max(touched.sunCell, 0));
            const auto patch =
                static_cast<std::size_t>(skyPatches::ofCell(static_cast<int>(touched.cell)));
            for (std::size_t s = 0; s < seasons.size(); ++s) {
                sky += seasons[s].patches[patch] * skyThrough(touched)[s];
                sun +=
                    touched.sunCell >= 0 ? seasons[s].sunCells[j] * sunThrough(touched)[s] : 0.0f;
            }
            m_seen[touched.cell] = touched.seen * sky;
            if (touched.sunCell >= 0) {
                m_sunVisible[j] = touched.sunVisible * sun;
                timeThrough[j] = sun;
            }
        }
        SkyParts::Seen ofPart = seen;
        for (std::size_t s = 0; s < m_groundThrough.size(); ++s) {
            ofPart.groundView +=
                (seasons[s].ground - m_shared.seasons[s].ground) * m_groundThrough[s];
        }
        m_shared.parts.evaluate(ofPart, p, parts.subspan(p, 1));
    }
    m_seen = cells;
    m_sunVisible = suns;
}

/// What is seen of the patches in each season (one, where the sensor sees no difference),
/// scaled so that the hours' diffuse adds up to that of the cells.
void SensorEvaluation::gatherPatches() {
    const std::size_t count = m_through.empty() ? 1 : m_shared.seasons.size();
    m_patchWeights.resize(count);
    double all = 0.0;
    for (std::size_t s = 0; s < count; ++s) {
        if (count > 1) {
            takeSeason(s);
        }
        sumPatches(m_patchWeights[s]);
        PatchValues totals = m_shared.patchTotals;
        for (std::size_t p = 0; p < patchCount && count > 1; ++p) {
            totals[p] *= m_shared.seasons[s].patches[p];
        }
        all +=
            static_cast<double>(sumOfProducts(m_patchWeights[s].data(), totals.data(), patchCount));
    }
    const auto whole = static_cast<float>(all);
    m_patchScale = whole > 0.0f ? m_sky / whole : 0.0f;
    for (PatchValues& weights : m_patchWeights) {
        for (float& weight : weights) {
            weight *= m_patchScale;
        }
    }
}

void SensorEvaluation::sumPatches(PatchValues& weights) const {
    weights.fill(0.0f);
    float* patch = weights.data();
    for (std::size_t row = 0; row < skyGrid::altitudeCount / 2; ++row) {
        const float* lower = m_seen.data() + 2 * row * skyGrid::azimuthCount;
        const float* upper = lower + skyGrid::azimuthCount;
        std::array<float, skyGrid::azimuthCount> both;
        for (std::size_t sector = 0; sector < both.size(); ++sector) {
            both[sector] = lower[sector] + upper[sector];
        }
        const std::size_t width = skyPatches::sectorsWide(row);
        for (std::size_t first = 0; first < both.size(); first += width) {
            float sum = both[first] + both[first + 1];
            for (std::size_t sector = first + 2; sector < first + width; ++sector) {
                sum += both[sector];
            }
            *patch++ = sum;
        }
    }
}

float SensorEvaluation::beamOf(const SkyHour& hour) const {
    float beam = 0.0f;
    for (int b = 0; b < hour.beamCount; ++b) {
        const BeamPart& part = m_shared.sky.beams[static_cast<std::size_t>(hour.firstBeam + b)];
        beam += m_sunVisible[static_cast<std::size_t>(part.sunCell)] * receivedOf(part);
    }
    return beam;
}

float SensorEvaluation::receivedOf(const BeamPart& part) const {
    return received(part.energy, vectorLength(part.energy));
}

/// The sums take the energy of half a cell as one vector, the hours take their own parts. The
/// same comes of it unless the surface's plane cuts the cell. There the hours' parts are scaled
/// down to what the sums have, and what these have more is shared by energy.
std::vector<SensorEvaluation::CellShare> SensorEvaluation::sharesOfSunCells() const {
    std::vector<CellShare> shares(m_shared.sky.sunCells.size());
    for (const BeamPart& part : m_shared.sky.beams) {
        CellShare& share = shares[static_cast<std::size_t>(part.sunCell)];
        share.received += static_cast<double>(receivedOf(part));
        share.energy += static_cast<double>(vectorLength(part.energy));
    }
    for (std::size_t j = 0; j < shares.size(); ++j) {
        CellShare& share = shares[j];
        const double seen = static_cast<double>(m_sunWeight[j] * m_sunVisible[j]);
        share.factor = share.received > 0.0 ? std::min(seen / share.received, 1.0) : 0.0;
        share.extra =
            share.energy > 0.0 ? std::max(seen - share.received, 0.0) / share.energy : 0.0;
    }
    return shares;
}

float SensorEvaluation::skyOf(std::size_t skyHour) const {
    const std::size_t season =
        m_patchWeights.size() > 1 ? m_shared.seasonOf(m_shared.sky.skyHours[skyHour]) : 0;
    return sumOfProducts(m_patchWeights[season].data(), m_shared.patchesOf(skyHour), patchCount);
}

void SensorEvaluation::findPeak(SensorResult& result) {
    if (m_sides == Sides::One) {
        findPeakOfOneSide(result);
        return;
    }
    for (std::size_t h = 0; h < m_shared.sky.skyHours.size(); ++h) {
        const SkyHour& hour = m_shared.sky.skyHours[h];
        const float value =
            (beamOf(hour) + skyOf(h) + m_groundView * hour.groundReflected) / hour.share;
        if (value > result.peak) {
            result.peak = value;
            result.peakHour = hour.hour;
        }
    }
}

void SensorEvaluation::findPeakOfOneSide(SensorResult& result) {
    PeakSensor sensor;
    sensor.normal = m_normal;
    sensor.sunVisible = m_sunVisible.data();
    sensor.openScale = m_patchScale;
    sensor.groundView = m_groundView;
    float highest = 0.0f;
    for (std::size_t s = 0; s < m_shared.seasons.size(); ++s) {
        const bool differs = m_patchWeights.size() > 1;
        if (differs) {
            takeSeason(s);
        }
        sensor.patchWeight = m_patchWeights[differs ? s : 0].data();
        sensor.view = (differs ? seenView() : m_view) * m_patchScale;
        const HourlyPreparation::Season& season = m_shared.seasons[s];
        const Peak peak = highestHour(season.peakHours, sensor);
        if (peak.hour >= 0 && peak.value > highest) {
            highest = peak.value;
            result.peak = peak.value;
            const int skyHour = season.peakHours.hours[static_cast<std::size_t>(peak.hour)].skyHour;
            result.peakHour = season.hours[static_cast<std::size_t>(skyHour)];
        }
    }
}

float SensorEvaluation::seenView() const {
    float view = 0.0f;
    for (const float seen : m_seen) {
        view += seen;
    }
    return view;
}

void SensorEvaluation::clear(SensorHours& hours) {
    for (std::vector<float>* series : {&hours.beam, &hours.sky, &hours.ground}) {
        series->assign(hoursPerYear, 0.0f);
    }
    hours.reflected.clear();
}

void SensorEvaluation::fill(SensorHours& hours) {
    clear(hours);
    const bool seasonal = m_patchWeights.size() > 1;
    std::vector<std::vector<CellShare>> sharesOfSeason(m_patchWeights.size());
    for (std::size_t s = 0; s < sharesOfSeason.size(); ++s) {
        if (seasonal) {
            takeSeason(s);
        }
        sharesOfSeason[s] = sharesOfSunCells();
    }
    for (std::size_t h = 0; h < m_shared.sky.skyHours.size(); ++h) {
        const SkyHour& hour = m_shared.sky.skyHours[h];
        const std::vector<CellShare>& shares =
            sharesOfSeason[seasonal ? m_shared.seasonOf(hour) : 0];
        const auto k = static_cast<std::size_t>(hour.hour);
        double beam = 0.0;
        for (int b = 0; b < hour.beamCount; ++b) {
            const BeamPart& part = m_shared.sky.beams[static_cast<std::size_t>(hour.firstBeam + b)];
            const CellShare& share = shares[static_cast<std::size_t>(part.sunCell)];
            beam += share.factor * static_cast<double>(receivedOf(part)) +
                    share.extra * static_cast<double>(vectorLength(part.energy));
        }
        hours.beam[k] = static_cast<float>(beam);
        hours.sky[k] = skyOf(h);
        hours.ground[k] = hour.groundReflected * m_groundView;
    }
}

} // namespace insolate
