/// hours.nc: the hours of sensors or of groups as NetCDF-4 after the CF conventions.
#pragma once

#include "study/export.h"
#include "study/files/output_folder.h"
#include "study/model/scene.h"
#include "study/results/hour_rows.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace insolate::study {

class NetcdfFile;

/// What all rows have in common.
struct HoursHead {
    std::vector<int> hours; ///< of the year, 0..8,759, ascending
    double timeZone = 0.0;  ///< of the site, hours from UTC
    std::string provenance; ///< site, period, method and version
    bool reflected = false; ///< whether rows have that part
};

/// A file of discrete samples (featureType timeSeries): a row for each sensor or group, a column
/// for each hour, the variables beam, sky, ground and, where surfaces reflect, reflected in Wh/m2.
///
/// Values are steps of 0.1 Wh/m2 in 16 bits. What rounding takes from an hour the next one gets, so
/// that a row's sum is right to 0.1 Wh/m2. Chunks of 2,048 rows by 336 hours suit both who reads a
/// row and who reads an hour. Rows are written as they come: no more than 2,048 are held.
class INSOLATE_STUDY_EXPORT HoursFile {
public:
    /// Rows are the sensors of these numbers.
    HoursFile(OutputFile& out, HoursHead head, const SensorField& field,
              std::span<const float> areas, std::span<const std::size_t> sensors);
    /// Rows are the groups, grouping by grouping.
    HoursFile(OutputFile& out, HoursHead head, std::span<const SensorGroups> groupings);
    ~HoursFile();
    HoursFile(const HoursFile&) = delete;
    HoursFile& operator=(const HoursFile&) = delete;

    /// The next row.
    /// @throws OutputError, as all of it
    void add(const SensorHours& row);
    /// Writes what is left; all rows were added.
    void finish();

private:
    void addTime();
    void addValues(const char* coordinates);
    void writeBlock();

    HoursHead m_head;
    std::unique_ptr<NetcdfFile> m_file;
    std::size_t m_rows = 0;
    std::size_t m_written = 0; ///< rows in the file
    std::size_t m_held = 0;    ///< rows that wait
    int m_row = 0;             ///< the rows' dimension
    int m_time = 0;
    int m_timeVariable = 0;
    int m_timeBounds = 0;
    std::vector<int> m_variables; ///< of the parts
    std::vector<std::vector<std::uint16_t>> m_block;
};

/// By its signature and our mark.
INSOLATE_STUDY_EXPORT bool isOurHoursFile(const std::filesystem::path& file);

} // namespace insolate::study
