#include <insolate/solar/solar_position.h>
#include <insolate/weather/number_text.h>
#include <insolate/weather/weather_data.h>
#include <insolate/weather/weather_file.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

using insolate::leadingDecimal;
using insolate::leadingInteger;
using insolate::toField;

namespace {

// A longer line is cut and its rest taken for the next line.
constexpr std::size_t maxLineLength = 1024;

// Of a longer field only so much is looked at.
constexpr std::size_t maxFieldLength = 255;

/// The lines of a file, each with its line feed. CR LF reads as LF, a byte order mark at the start
/// is skipped, a byte 0xFF ends the file, and a last line without a line feed is dropped.
class LineReader {
public:
    explicit LineReader(std::FILE* source) : file(source), block(new char[blockSize]) {
        refill();
        if (std::string_view(block.get(), size).substr(0, 3) == "\xEF\xBB\xBF") {
            position = 3;
        }
    }

    /// False at the end of the file. The line is valid until the next call.
    bool next(std::string_view& line) {
        // The byte after the longest line tells whether it ends in CR LF.
        if (size - position <= maxLineLength && !ended) {
            refill();
        }
        char* start = block.get() + position;
        const std::size_t inSight = std::min(size - position, maxLineLength + 1);
        if (auto* lineFeed = static_cast<char*>(std::memchr(start, '\n', inSight))) {
            auto length = static_cast<std::size_t>(lineFeed - start) + 1;
            const bool carriageReturn = length >= 2 && lineFeed[-1] == '\r';
            if (carriageReturn || length <= maxLineLength) {
                position += length;
                if (carriageReturn) {
                    lineFeed[-1] = '\n';
                    --length;
                }
                line = std::string_view(start, length);
                return true;
            }
        }
        if (inSight < maxLineLength) {
            return false;
        }
        position += maxLineLength;
        line = std::string_view(start, maxLineLength);
        return true;
    }

private:
    static constexpr std::size_t blockSize = 64 * 1024;

    // Moves what is left to the front and reads on.
    void refill() {
        size -= position;
        std::memmove(block.get(), block.get() + position, size);
        position = 0;
        const std::size_t wanted = blockSize - size;
        std::size_t got = std::fread(block.get() + size, 1, wanted, file);
        ended = got < wanted;
        if (const void* endMark = std::memchr(block.get() + size, 0xFF, got)) {
            got =
                static_cast<std::size_t>(static_cast<const char*>(endMark) - (block.get() + size));
            ended = true;
        }
        size += got;
    }

    std::FILE* file;
    std::unique_ptr<char[]> block;
    std::size_t position = 0;
    std::size_t size = 0;
    bool ended = false;
};

// A field of the LOCATION line without its quote characters and leading white space, cut to fit
// and filled up with zeros.
template <std::size_t capacity>
void copyLocationField(std::string_view line, int wanted, char (&text)[capacity]) {
    std::size_t length = 0;
    int field = 0;
    bool quoted = false;
    for (const char character : line) {
        if (character == '"') {
            quoted = !quoted;
        } else if (character == ',' && !quoted) {
            if (++field > wanted) {
                break;
            }
        } else if (field == wanted && length < capacity - 1 &&
                   (length > 0 || !insolate::isWhiteSpace(character))) {
            text[length++] = character;
        }
    }
    std::memset(text + length, 0, capacity - length);
}

float locationNumber(std::string_view line, int field) {
    char text[maxFieldLength + 1];
    copyLocationField(line, field, text);
    return static_cast<float>(leadingDecimal(text));
}

float toRadians(float degrees) {
    return degrees / 180.0f * 3.1415927f;
}

void readLocation(std::string_view line, EWeaFileFormatData& data, bool updateGlobalLocation) {
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

// What a data line has told so far about the hour it belongs to.
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
    bool quoted = false;
    int field = 0;
    std::size_t start = 0;
    for (std::size_t at = 0; at < line.size(); ++at) {
        const char character = line[at];
        if (character == '"') {
            quoted = !quoted;
        } else if (character == ',' && !quoted) {
            readDataField(field, line.substr(start, std::min(at - start, maxFieldLength)), hour,
                          weather);
            start = at + 1;
            if (++field > lastField) {
                return;
            }
        }
    }
    readDataField(field, line.substr(start, maxFieldLength), hour, weather);
}

} // namespace

bool EWeatherData::loadFile_EPW(const std::wstring& fileName, int updateGlobalLocation,
                                ResultLoadWeatherData& result) {
    const insolate::FileHandle file = insolate::openWeatherFile(fileName);
    if (file == nullptr) {
        result = ResultLoadWeatherData_CannotOpen;
        return false;
    }
    LineReader lines(file.get());
    std::string_view line;
    while (lines.next(line)) {
        switch (line.front()) {
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
            readDataLine(line, *this);
            break;
        }
    }
    return true;
}
