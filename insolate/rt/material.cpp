#include <insolate/rt/material.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace insolate {
namespace {

constexpr int daysOfYear = 365;

} // namespace

SeasonalValue::SeasonalValue(float value) : m_days(1, value) {}

SeasonalValue SeasonalValue::leafSeason(float leaf, float bare, int firstDay, int lastDay) {
    SeasonalValue value;
    value.m_days.assign(daysOfYear, bare);
    for (int day = 1; day <= daysOfYear; ++day) {
        if (firstDay <= lastDay ? day >= firstDay && day <= lastDay
                                : day >= firstDay || day <= lastDay) {
            value.m_days[static_cast<std::size_t>(day - 1)] = leaf;
        }
    }
    return value;
}

SeasonalValue SeasonalValue::monthly(const std::array<float, 12>& values) {
    constexpr std::array<int, 12> length{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    SeasonalValue value;
    value.m_days.clear();
    for (std::size_t month = 0; month < values.size(); ++month) {
        value.m_days.insert(value.m_days.end(), static_cast<std::size_t>(length[month]),
                            values[month]);
    }
    return value;
}

float SeasonalValue::on(int day) const {
    return m_days.size() == 1
               ? m_days.front()
               : m_days[static_cast<std::size_t>(std::clamp(day, 1, daysOfYear)) - 1];
}

float SeasonalValue::lowest() const {
    return *std::min_element(m_days.begin(), m_days.end());
}

SeasonalValue SeasonalValue::scaled(float factor) const {
    SeasonalValue value = *this;
    for (float& day : value.m_days) {
        day *= factor;
    }
    return value;
}

float SeasonalValue::highest() const {
    return *std::max_element(m_days.begin(), m_days.end());
}

PaneGlass::PaneGlass(float transmittance, float refractiveIndex)
    : m_index(std::max(static_cast<double>(refractiveIndex), 1.0)) {
    // At normal incidence T = (1 - r)^2 a / (1 - r^2 a^2), a quadratic equation for a.
    const double ratio = (m_index - 1.0) / (m_index + 1.0);
    const double r = ratio * ratio;
    const double target = std::clamp(static_cast<double>(transmittance), 0.0, 1.0);
    const double b = (1.0 - r) * (1.0 - r);
    // The root without cancellation; r = 0 leaves a = T.
    const double a = 2.0 * target / (b + std::sqrt(b * b + 4.0 * r * r * target * target));
    m_absorption = a > 0.0 ? std::max(-std::log(a), 0.0) : std::numeric_limits<double>::infinity();
}

PaneGlass::Shares PaneGlass::at(float cosine) const {
    const double c1 = std::clamp(static_cast<double>(cosine), 0.0, 1.0);
    const double sine = std::sqrt(1.0 - c1 * c1) / m_index;
    const double c2 = std::sqrt(1.0 - sine * sine);
    if (!(c1 > 0.0) || !(c2 > 0.0)) {
        return {0.0f, 1.0f};
    }
    const double a = std::exp(-m_absorption / c2);
    const double rs = (c1 - m_index * c2) / (c1 + m_index * c2);
    const double rp = (c2 - m_index * c1) / (c2 + m_index * c1);
    double transmitted = 0.0;
    double reflected = 0.0;
    for (const double amplitude : {rs, rp}) {
        const double r = amplitude * amplitude;
        const double inner = 1.0 - r * r * a * a;
        if (inner > 0.0) {
            const double through = (1.0 - r) * (1.0 - r) * a / inner;
            transmitted += 0.5 * through;
            reflected += 0.5 * r * (1.0 + a * through);
        } else {
            reflected += 0.5; // a ray in the pane's own plane
        }
    }
    return {static_cast<float>(transmitted), static_cast<float>(reflected)};
}

PaneGlass::Shares PaneGlass::hemispherical() const {
    constexpr int rings = 256; // of equal projected solid angle
    double transmitted = 0.0;
    double reflected = 0.0;
    for (int ring = 0; ring < rings; ++ring) {
        const Shares shares = at(static_cast<float>(std::sqrt((ring + 0.5) / rings)));
        transmitted += static_cast<double>(shares.transmitted);
        reflected += static_cast<double>(shares.reflected);
    }
    return {static_cast<float>(transmitted / rings), static_cast<float>(reflected / rings)};
}

} // namespace insolate
