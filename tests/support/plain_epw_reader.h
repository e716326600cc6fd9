/// A second EPW reader that is written as slowly and plainly as the format's rules read: character
/// by character, every field as a text of its own, numbers by the C library. The library's reader
/// must fill the store with the same bytes.
#pragma once

#include <insolate/solar/solar_position.h>
#include <insolate/weather/weather_data.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace insolate::test {

class PlainEpwReader {
public:
    PlainEpwReader(const std::string& bytes, EWeatherData& store) : weather(store) {
        std::string line;
        for (std::size_t at = bytes.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0; at < bytes.size();
             ++at) {
            if (bytes[at] == '\r' && at + 1 < bytes.size() && bytes[at + 1] == '\n') {
                continue; // text mode: CR LF is a line feed
            }
            if (static_cast<unsigned char>(bytes[at]) == 255) {
                return;
            }
            line += bytes[at];
            if (bytes[at] == '\n' || line.size() == 1024) {
                if (line[0] == 'L') {
                    location(line);
                } else if (std::strchr("CDGHT", line[0]) == nullptr || line[0] == '\0') {
                    data(line);
                }
                line.clear();
            }
        }
    }

private:
    static std::vector<std::string> split(const std::string& line) {
        std::vector<std::string> fields(1);
        bool quoted = false;
        for (const char character : line) {
            if (character == '"') {
                quoted = !quoted;
            }
            if (character == ',' && !quoted) {
                fields.emplace_back();
            } else {
                fields.back() += character;
            }
        }
        return fields;
    }

    static std::int32_t integer(const std::string& field) {
        return static_cast<std::int32_t>(std::strtoll(field.c_str(), nullptr, 10));
    }

    static double decimal(const std::string& field) {
        // The C library also takes "nan", "inf" and hexadecimal numbers.
        std::string number = field.c_str();
        number.erase(0, number.find_first_not_of(" \t\n\v\f\r"));
        const std::size_t sign = !number.empty() && (number[0] == '-' || number[0] == '+') ? 1 : 0;
        number.resize(std::min(number.find_first_not_of("0123456789.eE+-", sign), number.size()));
        return number.size() > sign ? std::strtod(number.c_str(), nullptr) : 0.0;
    }

    static std::int16_t stored(double value) {
        return std::abs(value) < 2147483648.0
                   ? static_cast<std::int16_t>(static_cast<std::int64_t>(value))
                   : std::int16_t{0};
    }

    static std::string locationField(const std::vector<std::string>& fields, std::size_t field,
                                     std::size_t length) {
        std::string result;
        if (field < fields.size()) {
            for (const char character : fields[field]) {
                const bool leading =
                    result.empty() && std::strchr(" \t\n\v\f\r", character) && character != '\0';
                if (character != '"' && !leading && result.size() < length) {
                    result += character;
                }
            }
        }
        return result;
    }

    void location(const std::string& line) {
        EWeaFileFormatData& record = weather.getDataForWrite();
        const std::vector<std::string> fields = split(line);
        std::string name = locationField(fields, 1, 31);
        std::string state = locationField(fields, 2, 31);
        name.resize(32);
        state.resize(32);
        std::memcpy(record.name, name.data(), 32);
        std::memcpy(record.state, state.data(), 32);
        record.latitude = static_cast<float>(decimal(locationField(fields, 6, 255)));
        record.longitude = static_cast<float>(decimal(locationField(fields, 7, 255)));
        record.timeZone = static_cast<float>(decimal(locationField(fields, 8, 255))) * 15.0f;
        record.altitude = static_cast<float>(decimal(locationField(fields, 9, 255)));
        record.loaded = std::max<std::uint16_t>(record.loaded, 1);
    }

    void data(const std::string& line) {
        std::vector<std::string> fields = split(line);
        if (fields.size() < 4) {
            return;
        }
        for (std::string& field : fields) {
            field.resize(std::min<std::size_t>(field.size(), 255));
        }
        ESolarPosition::ESolarDayAndTime date;
        const std::uint32_t month = static_cast<std::uint32_t>(integer(fields[1])) - 1;
        date.month = static_cast<std::int32_t>(month);
        date.day = integer(fields[2]);
        const int day = ESolarPosition().calculateDayOfTheYear(date) - 1;
        const std::uint32_t hour = static_cast<std::uint32_t>(integer(fields[3])) - 1;
        if (hour > 23 || day < 0 || day > 364) {
            return;
        }
        EHourlyData& record = weather.getDataForWrite().hourly[day][hour];
        const auto take = [&fields](std::size_t field, std::int16_t& target) {
            if (field < fields.size()) {
                target = static_cast<std::int16_t>(integer(fields[field]));
            }
        };
        if (fields.size() > 6) {
            record.temp = stored(decimal(fields[6]) * 10.0);
        }
        take(8, record.humidity);
        take(14, record.directRad);
        take(15, record.diffuseRad);
        take(20, record.windDirection);
        take(21, record.windSpeed);
        take(22, record.cloud);
        if (fields.size() > 28) {
            record.cloud = 0;
        }
    }

    EWeatherData& weather;
};

} // namespace insolate::test
