#include "study/results/result_folder.h"

#include "study/files/input_file.h"
#include "study/results/table_records.h"
#include "study/results/vtp_reader.h"
#include "study/support/errors.h"
#include "study/support/fields.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* summaryName = "summary.json";
constexpr const char* tableName = "sensors.csv";
constexpr const char* cellsName = "sensors.vtp";
constexpr InputKind summaryKind = {.name = "summary of an earlier study", .mostBytes = 256U << 20U};

/// The value at a path of keys; null where there is none.
const Json* valueAt(const Json& json, std::initializer_list<const char*> keys) {
    const Json* value = &json;
    for (const char* const key : keys) {
        if (!value->is_object()) {
            return nullptr;
        }
        const auto found = value->find(key);
        if (found == value->end()) {
            return nullptr;
        }
        value = &*found;
    }
    return value;
}

std::string textAt(const Json& json, std::initializer_list<const char*> keys) {
    const Json* const value = valueAt(json, keys);
    return value != nullptr && value->is_string() ? value->get<std::string>() : std::string();
}

/// @param file that the record comes from, for the error about something else than a number
std::optional<double> numberAt(const Json& json, std::initializer_list<const char*> keys,
                               const std::filesystem::path& file) {
    const Json* const value = valueAt(json, keys);
    if (value == nullptr || value->is_null()) { // JSON has no NaN
        return std::nullopt;
    }
    if (!value->is_number()) {
        throw DataError(fmt::format(
            "{}: {}: {} is not a number; write the one that was there, or "
            "calculate the results again",
            place(file), fmt::join(keys, "."),
            quoteText(value->is_string() ? value->get<std::string>() : value->type_name())));
    }
    return value->get<double>();
}

std::vector<std::string> textsAt(const Json& json, std::initializer_list<const char*> keys) {
    std::vector<std::string> texts;
    if (const Json* const list = valueAt(json, keys); list != nullptr && list->is_array()) {
        for (const Json& text : *list) {
            if (text.is_string()) {
                texts.push_back(text.get<std::string>());
            }
        }
    }
    return texts;
}

std::string albedoOf(const Json& summary, const std::filesystem::path& file) {
    const Json* const months = valueAt(summary, {"hourly", "albedo"});
    if (months == nullptr || !months->is_array()) {
        const auto albedo = numberAt(summary, {"hourly", "albedo"}, file);
        return albedo ? fmt::format("{:g}", *albedo) : std::string();
    }
    double least = 1.0;
    double most = 0.0;
    for (const Json& month : *months) {
        if (month.is_number()) {
            least = std::min(least, month.get<double>());
            most = std::max(most, month.get<double>());
        }
    }
    return fmt::format("{:g} to {:g} by month", least, most);
}

StudyFacts factsOf(const Json& summary, const std::filesystem::path& file) {
    StudyFacts facts;
    const bool isSunHours = valueAt(summary, {"rule"}) != nullptr;
    facts.question = valueAt(summary, {"comparison"}) != nullptr ? StudyFacts::Question::comparison
                     : isSunHours                                ? StudyFacts::Question::sunHours
                                                                 : StudyFacts::Question::radiation;
    facts.version = textAt(summary, {"versions", "insolate"});
    const char* const site = isSunHours ? "site" : "weather";
    facts.site = textAt(summary, {site, isSunHours ? "text" : "site"});
    constexpr double unknown = std::numeric_limits<double>::quiet_NaN();
    facts.latitude = numberAt(summary, {site, "latitude_deg"}, file).value_or(unknown);
    facts.longitude = numberAt(summary, {site, "longitude_deg"}, file).value_or(unknown);
    facts.timeZone = numberAt(summary, {site, "time_zone_h"}, file).value_or(unknown);
    facts.elevation = numberAt(summary, {site, "elevation_m"}, file).value_or(unknown);
    facts.weather = textAt(summary, {"weather", "file"});
    facts.period = textAt(summary, {"period", "text"});
    const double days = numberAt(summary, {"period", "days"}, file).value_or(365.0);
    facts.days = days >= 1.0 && days <= 366.0 ? static_cast<int>(days) : 365;
    facts.method = textAt(summary, {"method"});
    facts.albedo = albedoOf(summary, file);
    if (valueAt(summary, {"hourly"}) != nullptr) {
        // Before surfaces could reflect, all were black.
        facts.reflectance =
            fmt::format("{:g}", numberAt(summary, {"hourly", "reflectance"}, file).value_or(0.0));
    }
    facts.grid = numberAt(summary, {"sensors", "grid_m"}, file).value_or(unknown);
    facts.madeA = textAt(summary, {"comparison", "a", "made_by"});
    facts.madeB = textAt(summary, {"comparison", "b", "made_by"});
    facts.rule = textAt(summary, {"rule", "text"});
    facts.preset = textAt(summary, {"rule", "preset", "title"});
    if (const Json* const passes = valueAt(summary, {"verdict", "passes"});
        passes != nullptr && passes->is_boolean()) {
        facts.verdict =
            fmt::format("{}: {:g} of {:g} groups", passes->get<bool>() ? "passes" : "does not pass",
                        numberAt(summary, {"verdict", "groups_that_pass"}, file).value_or(unknown),
                        numberAt(summary, {"verdict", "groups"}, file).value_or(unknown));
    }
    if (const auto year = numberAt(summary, {"sun", "year"}, file)) {
        facts.year = fmt::format("{:g}", *year);
    }
    facts.warnings = textsAt(summary, {"warnings"});
    return facts;
}

ResultModel::Reading readingOf(const Json& record, const std::filesystem::path& file) {
    ResultModel::Reading reading;
    const double metres = numberAt(record, {"metres_per_unit"}, file).value_or(1.0);
    const auto units = lengthUnits();
    const auto unit = std::find_if(units.begin(), units.end(), [&](const NamedUnit& one) {
        return std::abs(one.metres - metres) < 1.0e-9;
    });
    if (unit == units.end()) {
        throw DataError(fmt::format("{}: {} metres are no unit of a model that insolate reads; "
                                    "calculate the results again",
                                    place(file), metres));
    }
    reading.import.unit = unit->unit;
    if (const std::string up = textAt(record, {"up"}); !up.empty()) {
        reading.import.up = up == "y" ? UpAxis::y : UpAxis::z;
    }
    reading.import.lod = textAt(record, {"lod"});
    if (const std::string orient = textAt(record, {"orient"}); !orient.empty()) {
        try {
            reading.orient = parseOrient(orient);
        } catch (const UsageError& error) {
            throw DataError(fmt::format("{}: {}", place(file), error.what()));
        }
    }
    return reading;
}

ResultModel modelOf(const Json& summary, const std::filesystem::path& file) {
    ResultModel model;
    for (const std::string& path : textsAt(summary, {"scene", "files"})) {
        model.files.emplace_back(path);
    }
    const auto sensors = std::find(model.files.begin(), model.files.end(),
                                   std::filesystem::path(textAt(summary, {"sensors", "file"})));
    if (sensors != model.files.end()) {
        model.sensorFile = static_cast<std::size_t>(sensors - model.files.begin());
    }
    for (const std::string& path : textsAt(summary, {"scene", "files_from_here"})) {
        model.filesFromFolder.emplace_back(path);
    }
    if (model.filesFromFolder.size() != model.files.size()) {
        model.filesFromFolder.clear();
    }
    const Json* const each = valueAt(summary, {"scene", "files_read"});
    const Json* const scene = valueAt(summary, {"scene"});
    for (std::size_t i = 0; i < model.files.size(); ++i) {
        const bool hasOwn = each != nullptr && each->is_array() && i < each->size();
        model.readings.push_back(readingOf(hasOwn ? (*each)[i] : *scene, file));
    }
    model.north = numberAt(summary, {"scene", "north_deg"}, file).value_or(0.0);
    model.fingerprint = textAt(summary, {"scene", "fingerprint"});
    if (const auto count = numberAt(summary, {"scene", "triangles"}, file);
        count && *count >= 0.0 && *count < 1.0e15) {
        model.triangles = static_cast<std::size_t>(*count);
    }
    return model;
}

/// "total [Wh/m2]" as name and unit.
std::pair<std::string_view, std::string_view> headingOf(std::string_view heading) {
    const std::size_t bracket = heading.rfind(" [");
    if (bracket == std::string_view::npos || !heading.ends_with(']')) {
        return {heading, {}};
    }
    return {heading.substr(0, bracket), heading.substr(bracket + 2, heading.size() - bracket - 3)};
}

/// Reads sensors.csv into positions, normals and columns.
class TableReader {
public:
    TableReader(ResultFolder& results, const std::stop_token& stop)
        : m_results(results), m_file(results.folder / tableName),
          m_records(m_file, inputKinds::resultTable, stop) {}

    void read(const Json& summary) {
        readHeader(summary);
        while (readRecord()) {
            readSensor();
        }
        if (m_results.field.size() == 0) {
            throw DataError(fmt::format("{}: the table has no sensors; calculate the results again",
                                        place(m_file)));
        }
        const auto area =
            std::find_if(m_results.columns.begin(), m_results.columns.end(),
                         [](const ResultColumn& column) { return column.name == "area"; });
        if (area != m_results.columns.end()) {
            m_results.areas = std::move(area->values);
            m_results.columns.erase(area);
        }
    }

private:
    static constexpr std::size_t coordinates = 6;
    enum class Kind { quantity, given, origin };

    bool readRecord() {
        if (!m_records.next(m_text)) {
            return false;
        }
        splitFields(m_text, ",", m_fields);
        return true;
    }

    void readHeader(const Json& summary) {
        static constexpr std::array<std::string_view, coordinates> wanted = {
            "x [m]", "y [m]", "z [m]", "nx", "ny", "nz"};
        if (!readRecord() || m_fields.size() < coordinates ||
            !std::equal(wanted.begin(), wanted.end(), m_fields.begin())) {
            throw DataError(fmt::format("{}: does not begin with the columns x, y, z [m], nx, ny, "
                                        "nz of a table of results; calculate the results again",
                                        place(m_file, 1)));
        }
        std::set<std::string> quantities;
        for (std::size_t i = coordinates; i < m_fields.size(); ++i) {
            const std::string heading = unquoted(m_fields[i]);
            const auto [name, unit] = headingOf(heading);
            ResultColumn column{std::string(name), std::string(unit), {}, {}};
            const bool isQuantity =
                !unit.empty() && (valueAt(summary, {"results", column.name.c_str()}) != nullptr ||
                                  heading == "area [m2]" || name == "enclosed");
            // The cells' file has these, without the marks that keep names from being formulas.
            const bool isOrigin = heading == "face" || heading == "object" || heading == "material";
            m_kinds.push_back(isQuantity ? Kind::quantity : isOrigin ? Kind::origin : Kind::given);
            if (isQuantity) {
                if (!quantities.insert(heading).second) {
                    throw DataError(fmt::format("{}: the column {} stands there twice; calculate "
                                                "the results again",
                                                place(m_file, 1), quoteText(heading)));
                }
                column.title = textAt(summary, {"results", column.name.c_str(), "title"});
                if (column.title.empty()) {
                    column.title = column.name;
                }
                m_results.columns.push_back(std::move(column));
            } else if (!isOrigin) {
                m_results.field.given.push_back({heading, {}});
            }
        }
    }

    void readSensor() {
        if (m_fields.size() != coordinates + m_kinds.size()) {
            throw DataError(fmt::format("{}: {} fields where the header has {}; calculate the "
                                        "results again",
                                        place(m_file, m_records.line()), m_fields.size(),
                                        coordinates + m_kinds.size()));
        }
        std::array<double, coordinates> numbers = {};
        for (std::size_t i = 0; i < coordinates; ++i) {
            numbers[i] = number<double>(i);
        }
        if (!std::all_of(numbers.begin(), numbers.end(),
                         [](double v) { return std::isfinite(v); })) {
            throw DataError(fmt::format("{}: a place or a normal that is none; calculate the "
                                        "results again",
                                        place(m_file, m_records.line())));
        }
        m_results.field.positions.push_back({numbers[0], numbers[1], numbers[2]});
        m_results.field.normals.push_back({numbers[3], numbers[4], numbers[5]});
        std::size_t quantity = 0;
        std::size_t given = 0;
        for (std::size_t i = 0; i < m_kinds.size(); ++i) {
            const std::size_t field = coordinates + i;
            if (m_kinds[i] == Kind::quantity) {
                ResultColumn& column = m_results.columns[quantity++];
                const auto value = number<float>(field);
                requirePossible(column, value, field);
                column.values.push_back(value);
            } else if (m_kinds[i] == Kind::given) {
                m_results.field.given[given++].values.push_back(unquoted(m_fields[field]));
            }
        }
    }

    /// Areas weigh what is averaged, and marks choose it: a wrong one spoils all sums in silence.
    void requirePossible(const ResultColumn& column, float value, std::size_t field) const {
        const bool isMark = column.name == "enclosed" || column.name == "passes";
        const bool isArea = column.unit == "m2";
        if ((isMark && value != 0.0F && value != 1.0F) ||
            (isArea && !(value >= 0.0F && std::isfinite(value)))) {
            throw DataError(fmt::format("{}: field {}: {} is no {}; calculate the results again",
                                        place(m_file, m_records.line()), field + 1,
                                        quoteText(m_fields[field]), isArea ? "area" : "mark"));
        }
    }

    template <typename Number>
    Number number(std::size_t field) const {
        const auto value = parseNumber<Number>(m_fields[field]);
        if (!value) {
            throw DataError(fmt::format("{}: field {}: {} is not a number; calculate the results "
                                        "again",
                                        place(m_file, m_records.line()), field + 1,
                                        quoteText(m_fields[field])));
        }
        return *value;
    }

    ResultFolder& m_results;
    std::filesystem::path m_file;
    TableRecords m_records;
    std::string m_text; ///< of a record
    std::vector<std::string_view> m_fields;
    std::vector<Kind> m_kinds; ///< of the columns behind the coordinates
};

/// Adds the cells of sensors.vtp, and sees to it that both files have the same sensors.
class CellReader {
public:
    CellReader(ResultFolder& results, const std::stop_token& stop)
        : m_results(results), m_file(results.folder / cellsName), m_vtp(m_file, stop) {}

    void read() {
        const std::size_t sensors = m_results.field.size();
        if (m_vtp.cellCount() != sensors) {
            refuse(fmt::format("has {} {}, but {} has {} sensors", groupedDigits(m_vtp.cellCount()),
                               counted(m_vtp.cellCount(), "cell", "cells"), tableName,
                               groupedDigits(sensors)));
        }
        checkValues();
        if (m_vtp.hasPolygons()) {
            readPolygons();
        }
        readOrigins();
        if (const auto made = m_vtp.texts("made_by"); made && !made->empty()) {
            m_results.facts.madeBy = made->front();
        }
    }

private:
    [[noreturn]] void refuse(const std::string& what) const {
        throw DataError(fmt::format("{}: {}; one of the two was changed: calculate the results "
                                    "again",
                                    place(m_file), what));
    }

    /// A table that was sorted or cut since would give the cells the values of others.
    void checkValues() {
        const SensorField& field = m_results.field;
        const auto refuseAt = [&](std::size_t sensor) {
            refuse(fmt::format("does not agree with {} on sensor {}", tableName, sensor));
        };
        if (const auto normals = m_vtp.floats("normal", 3)) {
            for (std::size_t i = 0; i < field.size(); ++i) {
                const Vector3& n = field.normals[i];
                const std::array<double, 3> table = {n.x, n.y, n.z};
                for (std::size_t k = 0; k < 3; ++k) {
                    const double cell = static_cast<double>((*normals)[3 * i + k]);
                    if (!(std::abs(cell - table[k]) < 1.0e-4)) {
                        refuseAt(i);
                    }
                }
            }
        }
        if (m_results.columns.empty()) {
            return;
        }
        const ResultColumn& first = m_results.columns.front();
        if (const auto values = m_vtp.floats(first.name, 1)) {
            for (std::size_t i = 0; i < field.size(); ++i) {
                const double cell = static_cast<double>((*values)[i]);
                const double table = static_cast<double>(first.values[i]);
                // Spreadsheets cut digits off.
                if (!(std::abs(cell - table) <= 1.0e-3 * std::abs(cell)) &&
                    !(std::isnan(cell) && std::isnan(table))) {
                    refuseAt(i);
                }
            }
        }
    }

    void readPolygons() {
        SensorField& field = m_results.field;
        const std::vector<Vector3> points = m_vtp.points();
        const std::vector<std::int64_t> corners = m_vtp.connectivity();
        if (corners.size() > std::numeric_limits<std::uint32_t>::max()) {
            refuse("has more corners than can be counted");
        }
        field.corners.reserve(corners.size());
        for (const std::int64_t corner : corners) {
            field.corners.push_back(points[static_cast<std::size_t>(corner)]);
        }
        field.cellStart.reserve(field.size() + 1);
        field.cellStart.push_back(0);
        for (const std::int64_t end : m_vtp.ends()) {
            field.cellStart.push_back(static_cast<std::uint32_t>(end));
        }
    }

    /// What the cells belong to; results of older versions do not say.
    void readOrigins() {
        const auto faces = m_vtp.wholeNumbers("face");
        const auto objects = m_vtp.wholeNumbers("object");
        const auto materials = m_vtp.wholeNumbers("material");
        if (!faces || !objects || !materials) {
            return;
        }
        const std::vector<std::uint32_t> objectNames = nameIndices("object_names");
        const std::vector<std::uint32_t> materialNames = nameIndices("material_names");
        const auto nameOf = [&](std::int64_t index, const std::vector<std::uint32_t>& names) {
            if (index < 0) {
                return CellOrigin::unnamed;
            }
            if (static_cast<std::size_t>(index) >= names.size()) {
                refuse("has cells with names that are not there");
            }
            return names[static_cast<std::size_t>(index)];
        };
        for (std::size_t i = 0; i < m_results.field.size(); ++i) {
            m_results.field.origins.push_back({static_cast<std::uint32_t>((*faces)[i]),
                                               nameOf((*objects)[i], objectNames),
                                               nameOf((*materials)[i], materialNames)});
        }
    }

    /// Adds the texts to the names, each once.
    std::vector<std::uint32_t> nameIndices(std::string_view texts) {
        std::vector<std::uint32_t> indices;
        for (std::string& name : m_vtp.texts(texts).value_or(std::vector<std::string>())) {
            const auto next = static_cast<std::uint32_t>(m_results.field.names.size());
            const auto [known, isNew] = m_names.emplace(name, next);
            if (isNew) {
                m_results.field.names.push_back(std::move(name));
            }
            indices.push_back(known->second);
        }
        return indices;
    }

    ResultFolder& m_results;
    std::filesystem::path m_file;
    VtpReader m_vtp;
    std::map<std::string, std::uint32_t> m_names; ///< indices into the field's names
};

void requireFolder(const std::filesystem::path& folder) {
    std::error_code problem;
    if (!std::filesystem::is_directory(folder, problem)) {
        throw DataError(fmt::format("{}: no such folder; give one that 'insolate run' or 'insolate "
                                    "sunhours' has left",
                                    place(folder)));
    }
    for (const char* const name : {summaryName, tableName, cellsName}) {
        if (!std::filesystem::exists(folder / name, problem)) {
            throw DataError(fmt::format("{}: no such file; give a folder that 'insolate run' or "
                                        "'insolate sunhours' has left complete",
                                        place(folder / name)));
        }
    }
}

/// Takes the marks of enclosed sensors out of the quantities, and their values, as the study did.
void leaveOutEnclosed(ResultFolder& results, const Json& summary) {
    const auto enclosed = std::find_if(results.columns.begin(), results.columns.end(),
                                       [](const auto& c) { return c.name == "enclosed"; });
    if (enclosed == results.columns.end()) {
        return;
    }
    const std::vector<float> marks = std::move(enclosed->values);
    results.columns.erase(enclosed);
    const Json* const keeps = valueAt(summary, {"sensors", "enclosed_in_means"});
    if ((keeps != nullptr && *keeps == true) ||
        std::find(marks.begin(), marks.end(), 1.0f) == marks.end()) {
        return;
    }
    for (const float mark : marks) {
        results.included.push_back(mark == 1.0f ? 0 : 1);
    }
    for (ResultColumn& column : results.columns) {
        for (std::size_t i = 0; i < marks.size(); ++i) {
            if (results.included[i] == 0) {
                column.values[i] = std::numeric_limits<float>::quiet_NaN();
            }
        }
    }
}

} // namespace

const ResultColumn* ResultFolder::find(std::string_view name) const {
    const auto found = std::find_if(columns.begin(), columns.end(),
                                    [&](const ResultColumn& one) { return one.name == name; });
    return found == columns.end() ? nullptr : &*found;
}

std::vector<std::string> ResultFolder::columnNames() const {
    std::vector<std::string> names;
    names.reserve(columns.size());
    for (const ResultColumn& column : columns) {
        names.push_back(column.name);
    }
    return names;
}

ResultFolder readResultFolder(const std::filesystem::path& folder, const std::stop_token& stop) {
    requireFolder(folder);
    ResultFolder results;
    results.folder = folder;
    const std::filesystem::path file = folder / summaryName;
    results.summary = InputFile(file, summaryKind, stop).readAll();
    const Json summary = Json::parse(results.summary, nullptr, false);
    if (summary.is_discarded() || textAt(summary, {"versions", "insolate"}).empty()) {
        throw DataError(fmt::format("{}: is no summary that insolate wrote; calculate the results "
                                    "again",
                                    place(file)));
    }
    results.facts = factsOf(summary, file);
    results.model = modelOf(summary, file);
    TableReader(results, stop).read(summary);
    CellReader(results, stop).read();
    leaveOutEnclosed(results, summary);
    return results;
}

std::vector<std::filesystem::path> resultFilesRead(const std::filesystem::path& folder) {
    return {folder / summaryName, folder / "sensors.csv", folder / "sensors.vtp",
            folder / "hours.csv"};
}

ResultFolder resultsInMemory(std::string summary, SensorField field,
                             std::vector<ResultColumn> columns, std::vector<float> areas) {
    ResultFolder results;
    const Json record = Json::parse(summary);
    results.facts = factsOf(record, summaryName);
    results.model = modelOf(record, summaryName);
    results.summary = std::move(summary);
    results.field = std::move(field);
    results.columns = std::move(columns);
    results.areas = std::move(areas);
    leaveOutEnclosed(results, record);
    return results;
}

} // namespace insolate::study
