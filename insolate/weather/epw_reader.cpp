// The store's reader of EPW files. The lines and their fields are those of every EPW reader
// (epw_text.h). What it does otherwise, and keeps because results and other programs rest on it:
//
//   - a line longer than 1,024 bytes is cut, and its rest is a line of its own;
//   - a byte 0xFF ends the file, and a last line without a line feed is not read;
//   - lines are known by their first letter alone, capitals only: every line that does not begin
//     with C, D, G, H, L or T is a line of data;
//   - a text of the LOCATION line loses all its quote characters and its leading blanks only; the
//     last one keeps the line feed;
//   - a field of data keeps its quote characters, and its first 255 bytes are looked at;
//   - numbers are what a field begins with (number_text.h), 0 where it begins with none, and
//     wrap to 16 bits; marks for missing values are numbers;
//   - days beyond the month's end are its last day, the calendar ends at day 364, and the records
//     of an hour replace one another;
//   - wind speed is taken as whole m/s, unscaled; the sky cover is cleared by complete lines.
#include <insolate/solar/solar_position.h>
#include <insolate/weather/epw_text.h>
#include <insolate/weather/number_text.h>
#include <insolate/weather/text_lines.h>
#include <insolate/weather/weather_data.h>
#include <insolate/weather/weather_file.h>

#include <cstring>
#include <string_view>

using insolate::leadingDecimal;
using insolate::leadingInteger;
using insolate::toField;

namespace {

constexpr insolate::TextLineRules storeRules{
    .longestLine = 1024, .byteFFEnds = true, .dropsUnfinishedLine = true};

// Of a longer field only so much is looked at.
constexpr std::size_t maxFieldLength = 255;

// A text of the LOCATION line, cut to fit and filled up with zeros.
template <std::size_t capacity>
void copyLocationField(const insolate::TextLine& line, int wanted, char (&text)[capacity]) {
    insolate::FieldSplitter fields(line.text);
    std::string_view field;
    bool present = true;
    for (int i = 0; i <= wanted && present; ++i) {
        present = fields.next(field);
    }
    std::size_t length = 0;
    const auto append = [&](char character) {
        if (character != '"' && length < capacity - 1 &&
            (length > 0 || !insolate::isWhiteSpace(character))) {
            text[length++] = character;
        }
    };
    if (present) {
        for (const char character : field) {
            append(character);
        }
        if (fields.atEnd() && line.ended) {
            append('\n');
        }
    }
    std::memset(text + length, 0, capacity - length);
}

float locationNumber(const insolate::TextLine& line, int field) {
    char text[maxFieldLength + 1];
    copyLocationField(line, field, text);
    return static_cast<float>(leadingDecimal(text));
}

float toRadians(float degrees) {
    return degrees / 180.0f * 3.1415927f;
}

void readLocation(const insolate::TextLine& line, EWeaFileFormatData& data,
                  bool updateGlobalLocation) {
    copyLocationField(line, 1, data.name);
    copyLocationField(line, 2, data.state);
    data.latitude = locationNumber(line, 6);
    data.longitude = locationNumber(line, 7);
    data.timeZone = locationNumber(line, 8) * 15.0f;
    data.altitude = locationNumber(line, 9);
    if (data.loaded == 0) {
        data.loaded = 1;
    }
    if (updateGlobalLocation) {
        ESolarPosition::Global.setLocation(static_cast<double>(toRadians(data.latitude)),
                                           static_cast<double>(toRadians(data.longitude)),
                                           static_cast<double>(toRadians(data.timeZone)));
        ESolarPosition::Global.setName(data.name);
    }
}

// What a data line has said so far about the hour it belongs to.
struct HourOfLine {
    int month = 0;
    int day = 0;
    EHourlyData* record = nullptr; // null until a valid date has been read
};

void readDataField(int field, std::string_view text, HourOfLine& hour, EWeatherData& weather) {
    switch (field) {
    case 1:
        hour.month = leadingInteger(text);
        return;
    case 2: {
        ESolarPosition::ESolarDayAndTime date;
        date.day = leadingInteger(text);
        // The same wrap as that of the 32-bit number itself.
        date.month = static_cast<std::int32_t>(static_cast<std::uint32_t>(hour.month) - 1U);
        hour.day = ESolarPosition::Global.calculateDayOfTheYear(date) - 1;
        return;
    }
    case 3: {
        const auto index =
            static_cast<std::int32_t>(static_cast<std::uint32_t>(leadingInteger(text)) - 1U);
        hour.record = weather.getHourlyDataAsPointer(hour.day, index);
        return;
    }
    default:
        break;
    }
    if (hour.record == nullptr) {
        return;
    }
    switch (field) {
    case 6:
        hour.record->temp = toField(leadingDecimal(text) * 10.0);
        break;
    case 8:
        hour.record->humidity = toField(leadingInteger(text));
        break;
    case 14:
        hour.record->directRad = toField(leadingInteger(text));
        break;
    case 15:
        hour.record->diffuseRad = toField(leadingInteger(text));
        break;
    case 20:
        hour.record->windDirection = toField(leadingInteger(text));
        break;
    case 21:
        // Whole m/s, unscaled: the getter gives a tenth. Existing results rest on it.
        hour.record->windSpeed = toField(leadingInteger(text));
        break;
    case 22:
        hour.record->cloud = toField(leadingInteger(text));
        break;
    case 28:
        hour.record->cloud = 0;
        break;
    default:
        break;
    }
}

void readDataLine(std::string_view line, EWeatherData& weather) {
    constexpr int lastField = 28;
    HourOfLine hour;
    insolate::FieldSplitter fields(line);
    std::string_view field;
    for (int i = 0; i <= lastField && fields.next(field); ++i) {
        readDataField(i, field.substr(0, maxFieldLength), hour, weather);
    }
}

} // namespace

bool EWeatherData::loadFile_EPW(const std::wstring& fileName, int updateGlobalLocation,
                                ResultLoadWeatherData& result) {
    const insolate::FileHandle file = insolate::openWeatherFile(fileName);
    if (file == nullptr) {
        result = ResultLoadWeatherData_CannotOpen;
        return false;
    }
    insolate::TextLines lines(file.get(), storeRules);
    insolate::TextLine line;
    while (lines.next(line)) {
        switch (line.text.empty() ? '\0' : line.text.front()) {
        case 'C': // COMMENTS
        case 'D': // DATA PERIODS, DESIGN CONDITIONS
        case 'G': // GROUND TEMPERATURES
        case 'H': // HOLIDAYS/DAYLIGHT SAVINGS
        case 'T': // TYPICAL/EXTREME PERIODS
            break;
        case 'L': // LOCATION
            readLocation(line, data, updateGlobalLocation >= 1);
            break;
        default:
            readDataLine(line.text, *this);
            break;
        }
    }
    return true;
}
