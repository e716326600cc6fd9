/// Small models, weather and folders for the tests of the command.
#pragma once

#include "study/support/progress.h"
#include "tests/support/temporary_folder.h"

#include <cmath>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <insolate/weather/weather_series.h>

namespace insolate::study::test {

using insolate::test::readFile;
using StudyFolder = insolate::test::TemporaryFolder;

/// What the action's exception says; "nothing is wrong" without one.
template <typename Action>
std::string messageOf(Action&& action) {
    try {
        action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "nothing is wrong";
}

/// Keeps what was said.
struct Heard final : Progress {
    void note(const std::string& text) override { notes.push_back(text); }
    void warn(const std::string& text) override { warnings.push_back(text); }
    std::vector<std::string> notes, warnings;
};

/// Fields of a table by line; quotes are not known.
inline std::vector<std::vector<std::string>> rowsOf(const std::filesystem::path& file) {
    std::vector<std::vector<std::string>> rows;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        rows.emplace_back();
        for (std::string field; std::getline(fields, field, ',');) {
            rows.back().push_back(field);
        }
    }
    return rows;
}

/// One hour's radiation [W/m2].
struct HourOfWeather {
    int direct = 0;
    int diffuse = 0;
};

/// Line number of an hour's record in weatherText; month, day and hour from 1.
inline std::size_t weatherLine(int month, int day, int hour) {
    return static_cast<std::size_t>(3 + dayIndex(month, day) * 24 + hour - 1);
}

/// A year of weather in the EPW format, of equal days: 2 header lines, 8,760 records. Hours are 1
/// to 24.
inline std::string weatherText(const std::function<HourOfWeather(int hour)>& hourOf) {
    std::string text = "LOCATION,Testville,-,TST,made,0,40.0,0.0,0.0,100.0\n"
                       "DATA PERIODS,1,1,Data,Sunday,1/1,12/31\n";
    for (int k = 0; k < 8760; ++k) {
        const MonthAndDay date = monthAndDay(k / 24);
        const HourOfWeather w = hourOf(k % 24 + 1);
        text += fmt::format("2001,{},{},{},0,?9,10.0,5.0,50,100000,0,0,300,0,{},{},0,0,0,0,0,2.0,0,"
                            "0,20,77777,9,999999999,10\n",
                            date.month, date.day, k % 24 + 1, w.direct, w.diffuse);
    }
    return text;
}

/// Clear days: the sun shines from 6 to 18, most at noon.
inline std::string clearYear() {
    return weatherText([](int hour) {
        if (hour <= 6 || hour > 18) {
            return HourOfWeather{};
        }
        const double height = std::sin((hour - 6.5) / 12.0 * 3.141592653589793);
        return HourOfWeather{static_cast<int>(800.0 * height), static_cast<int>(120.0 * height)};
    });
}

/// The text with a part of one line replaced; the part must be there.
inline std::string withLine(const std::string& text, std::size_t line, const std::string& part,
                            const std::string& replacement) {
    std::size_t start = 0;
    for (std::size_t i = 1; i < line; ++i) {
        start = text.find('\n', start) + 1;
    }
    const std::size_t at = text.find(part, start);
    if (at == std::string::npos || at > text.find('\n', start)) {
        throw std::runtime_error("the line does not hold " + part);
    }
    return std::string(text).replace(at, part.size(), replacement);
}

/// A box open above with walls of height 10 around a court of 10 by 10, all of it one group each.
inline std::string courtModel() {
    return "o court\n"
           "v 0 0 0\nv 10 0 0\nv 10 10 0\nv 0 10 0\n"
           "v 0 0 10\nv 10 0 10\nv 10 10 10\nv 0 10 10\n"
           "g floor\nusemtl stone\nf 1 2 3 4\n"
           "g walls\nusemtl brick\nf 1 5 6 2\nf 2 6 7 3\nf 3 7 8 4\nf 4 8 5 1\n";
}

} // namespace insolate::study::test
