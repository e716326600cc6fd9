/// Times that are known to be without sun.
#pragma once

#include <insolate/sunlight/sun_path.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace insolate {

/// A union of spans, kept sorted and apart. What comes closer than `closedGap` to a span joins it:
/// two triangles with a common edge leave no light between them, whatever rounding makes of the
/// edge. The order of adding does not change the result.
class SpanSet {
public:
    /// A fifteenth of a second [minutes]. The sun moves 4.4e-6 radians meanwhile, half a millimetre
    /// in a hundred metres: cracks in models are smaller, slits that matter larger.
    static constexpr double closedGap = 1.0e-3;

    void clear() { m_spans.clear(); }

    /// @return the span that the added one has become a part of
    TimeSpan add(TimeSpan span) {
        auto first =
            std::lower_bound(m_spans.begin(), m_spans.end(), span.begin - closedGap,
                             [](const TimeSpan& known, double time) { return known.end < time; });
        auto last = first;
        while (last != m_spans.end() && last->begin <= span.end + closedGap) {
            span.begin = std::min(span.begin, last->begin);
            span.end = std::max(span.end, last->end);
            ++last;
        }
        if (first == last) {
            m_spans.insert(first, span);
        } else {
            *first = span;
            m_spans.erase(first + 1, last);
        }
        return span;
    }

    bool covers(double begin, double end) const {
        const auto at =
            std::lower_bound(m_spans.begin(), m_spans.end(), begin,
                             [](const TimeSpan& known, double time) { return known.end < time; });
        return at != m_spans.end() && at->begin <= begin && at->end >= end;
    }

    /// Appends what lies between begin and end and is not in the set; gaps that count as closed
    /// are left out at the ends, too.
    void appendGaps(double begin, double end, std::vector<TimeSpan>& gaps) const {
        const auto append = [&](double from, double to) {
            if (to - from > closedGap) {
                gaps.push_back({from, to});
            }
        };
        double free = begin;
        for (const TimeSpan& span : m_spans) {
            if (span.end <= begin || span.begin >= end) {
                continue;
            }
            append(free, span.begin);
            free = std::max(free, span.end);
        }
        append(free, end);
    }

private:
    std::vector<TimeSpan> m_spans;
};

} // namespace insolate
