#include <insolate/hourly/sensor_evaluation.h>

#include <insolate/geometry/vector_math.h>

#include <algorithm>

namespace insolate {

/// Weakens what comes through glass and crowns. Only cells that opaque triangles leave open and
/// translucent ones do not are asked ray by ray.
void SensorEvaluation::lookThrough(const FirstMasks& masks) {
    lookThroughAtGround(masks);
    std::array<SkyCellSet, 2> asked;
    std::array<SkyCellSet, 2> untouched;
    for (std::size_t half = 0; half < 2; ++half) {
        asked[half] = m_look.asked[half];
        asked[half] &= m_look.free[half];
    }
    if (m_shared.edges) {
        askBehindEdges(asked);
    }
    untouched = asked;
    m_light->translucent().visibleSkies(m_origin, m_shared.first.directions, untouched);
    SkyCellSet changed;
    for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
        changed.words[word] = (asked[0].words[word] ^ untouched[0].words[word]) |
                              (asked[1].words[word] ^ untouched[1].words[word]);
    }
    const auto cells = static_cast<std::size_t>(changed.count());
    const std::size_t sharesOfCell = 2 * m_shared.seasons.size();
    m_through.reserve(cells);
    m_throughShares.assign(cells * sharesOfCell, 0.0f);
    std::size_t j = 0;
    Rays::forEach(changed, [&](std::size_t cell, int, int) {
        while (j < m_shared.sky.sunCells.size() &&
               m_shared.sky.sunCells[j].cell < static_cast<int>(cell)) {
            ++j;
        }
        const bool hasSun = j < m_shared.sky.sunCells.size() &&
                            m_shared.sky.sunCells[j].cell == static_cast<int>(cell);
        const ThroughCell touched{cell, hasSun ? static_cast<int>(j) : -1, m_seen[cell],
                                  hasSun ? m_sunVisible[j] : 0.0f, sharesOfCell * m_through.size()};
        askThrough(touched, asked, untouched);
        weaken(touched);
        m_through.push_back(touched);
    });
}

/// Fills the cell's shares: of the sky the mean over its rays, of the sun weighted by what the rays
/// stand for.
/// @param untouched the cells whose ray meets nothing translucent
void SensorEvaluation::askThrough(const ThroughCell& touched,
                                  const std::array<SkyCellSet, 2>& asked,
                                  const std::array<SkyCellSet, 2>& untouched) {
    const auto azimuth = static_cast<int>(touched.cell % skyGrid::azimuthCount);
    const auto altitude = static_cast<int>(touched.cell / skyGrid::azimuthCount);
    const std::size_t seasons = m_shared.seasons.size();
    std::vector<float> through(seasons);
    float* const sky = m_throughShares.data() + touched.first;
    float* const suns = sky + seasons;
    float rays = 0.0f;
    float sunRays = 0.0f;
    for (std::size_t half = 0; half < 2; ++half) {
        if (!asked[half].contains(azimuth, altitude)) {
            continue;
        }
        if (untouched[half].contains(azimuth, altitude)) {
            std::fill(through.begin(), through.end(), 1.0f);
        } else {
            m_light->transmittances(
                m_origin, m_shared.first.directions[half].direction(azimuth, altitude), through);
        }
        // Of the other half too, where only this one has a ray.
        float sun = 0.0f;
        for (std::size_t other = 0; other < 2 && touched.sunCell >= 0; ++other) {
            if (other == half || !m_look.asked[other].contains(azimuth, altitude)) {
                const FirstRays::Sun& part = m_shared.first.sun[other];
                const auto j = static_cast<std::size_t>(touched.sunCell);
                const XYZf energy{part.energyX[j], part.energyY[j], part.energyZ[j]};
                sun += received(energy, vectorLength(energy));
            }
        }
        rays += 1.0f;
        sunRays += sun;
        for (std::size_t s = 0; s < seasons; ++s) {
            sky[s] += through[s];
            suns[s] += sun * through[s];
        }
    }
    for (std::size_t s = 0; s < seasons; ++s) {
        sky[s] /= rays;
        suns[s] = sunRays > 0.0f ? suns[s] / sunRays : sky[s];
    }
}

/// A second look may have found something open in a cell whose first rays are blocked: these
/// stand for what is in its way all the same.
void SensorEvaluation::askBehindEdges(std::array<SkyCellSet, 2>& asked) const {
    SkyCellSet left;
    for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
        left.words[word] = (m_look.asked[0].words[word] | m_look.asked[1].words[word]) &
                           ~(asked[0].words[word] | asked[1].words[word]);
    }
    SkyCellSet open;
    Rays::forEach(left, [&](std::size_t cell, int azimuth, int altitude) {
        if (m_seen[cell] > 0.0f) {
            open.insert(azimuth, altitude);
        }
    });
    for (std::size_t j = 0; j < m_shared.sky.sunCells.size(); ++j) {
        const int cell = m_shared.sky.sunCells[j].cell;
        if (m_sunVisible[j] > 0.0f) {
            open.insert(cell % skyGrid::azimuthCount, cell / skyGrid::azimuthCount);
        }
    }
    open &= left;
    for (std::size_t half = 0; half < 2; ++half) {
        for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
            asked[half].words[word] |= m_look.asked[half].words[word] & open.words[word];
        }
    }
}

void SensorEvaluation::weaken(const ThroughCell& touched) {
    const auto patch = static_cast<std::size_t>(skyPatches::ofCell(static_cast<int>(touched.cell)));
    float sky = 0.0f;
    float sun = 0.0f;
    for (std::size_t s = 0; s < m_shared.seasons.size(); ++s) {
        const HourlyPreparation::Season& season = m_shared.seasons[s];
        sky += season.patches[patch] * skyThrough(touched)[s];
        if (touched.sunCell >= 0) {
            sun +=
                season.sunCells[static_cast<std::size_t>(touched.sunCell)] * sunThrough(touched)[s];
        }
    }
    const float lost = m_seen[touched.cell] * (1.0f - sky);
    m_seen[touched.cell] -= lost;
    m_view = std::max(m_view - lost, 0.0f);
    const float first =
        0.5f * m_weight[touched.cell] * (m_visible[0][touched.cell] + m_visible[1][touched.cell]);
    m_firstView = std::max(m_firstView - first * (1.0f - sky), 0.0f);
    m_sky = std::max(m_sky - lost * m_shared.sky.diffuse[touched.cell], 0.0f);
    if (touched.sunCell >= 0) {
        const auto j = static_cast<std::size_t>(touched.sunCell);
        m_beam = std::max(m_beam - m_sunWeight[j] * m_sunVisible[j] * (1.0f - sun), 0.0f);
        m_sunHours = std::max(m_sunHours - sunHoursOf(j) * (1.0f - sun), 0.0f);
        m_sunVisible[j] *= sun;
    }
}

/// Puts what is seen in one season in the place of the means over all.
void SensorEvaluation::takeSeason(std::size_t season) {
    for (const ThroughCell& touched : m_through) {
        m_seen[touched.cell] = touched.seen * skyThrough(touched)[season];
        if (touched.sunCell >= 0) {
            m_sunVisible[static_cast<std::size_t>(touched.sunCell)] =
                touched.sunVisible * sunThrough(touched)[season];
        }
    }
}

/// Weakens what comes of the ground's light through glass and crowns.
void SensorEvaluation::lookThroughAtGround(const FirstMasks& masks) {
    if (masks.ground == nullptr) {
        return;
    }
    // Pieces whose first ray was blocked have light too where further rays found some.
    std::vector<SkyCellSet> seenCells(masks.groundCells.size());
    for (std::size_t i = 0; i < m_groundWeights.size(); ++i) {
        if (m_groundWeights[i] > 0.0f && m_groundVisible[i] > 0.0f) {
            const GroundRays::Cell& cell = masks.ground->cells[i];
            seenCells[cell.set].insert(cell.azimuth, cell.altitude);
        }
    }
    std::vector<SkyCellSet> untouched = seenCells;
    m_light->translucent().visibleSkies(m_origin, masks.ground->sets, untouched);
    for (std::size_t i = 0; i < m_groundWeights.size(); ++i) {
        const GroundRays::Cell& cell = masks.ground->cells[i];
        if (m_groundWeights[i] > 0.0f && m_groundVisible[i] > 0.0f &&
            !untouched[cell.set].contains(cell.azimuth, cell.altitude)) {
            const float seen = m_groundScale * m_groundWeights[i] * m_groundVisible[i];
            m_groundView -= seen * (1.0f - groundThrough(masks.ground->pieces[i].direction, seen));
        }
    }
    m_groundView = std::max(m_groundView, 0.0f);
}

/// What comes through of the ground's light over the period.
float SensorEvaluation::groundThrough(const XYZf& direction, float weight) {
    std::vector<float> through(m_shared.seasons.size());
    m_light->transmittances(m_origin, direction, through);
    m_groundThrough.resize(through.size(), 0.0f);
    float share = 0.0f;
    for (std::size_t s = 0; s < through.size(); ++s) {
        share += m_shared.seasons[s].ground * through[s];
        m_groundThrough[s] += weight * through[s];
    }
    return share;
}

} // namespace insolate
