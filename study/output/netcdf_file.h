/// A NetCDF-4 file under construction. All failures are OutputErrors. Several threads may each have
/// one of their own.
#pragma once

#include "study/files/output_folder.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>

namespace insolate::study {

class NetcdfFile {
public:
    enum class Type { float64, float32, int32, uint16, text };

    /// Begins the file in the place of a staged one, whose folder gives it its name later.
    explicit NetcdfFile(const OutputFile& place);
    ~NetcdfFile(); ///< closes without a check; a file that matters is ended by finish()
    NetcdfFile(const NetcdfFile&) = delete;
    NetcdfFile& operator=(const NetcdfFile&) = delete;

    static constexpr int global = -1; ///< stands for the file among variables

    int addDimension(const char* name, std::size_t length);
    int addVariable(const char* name, Type type, std::initializer_list<int> dimensions);
    void setText(int variable, const char* attribute, const std::string& value);
    void setNumber(int variable, const char* attribute, double value);
    /// What stands where nothing was written.
    void setFill(int variable, std::uint16_t value);
    /// Pieces that are compressed, and read, as a whole.
    void setChunks(int variable, std::initializer_list<std::size_t> lengths);

    void write(int variable, std::span<const double> values);
    void write(int variable, std::span<const std::int32_t> values);
    void write(int variable, std::span<const std::string> values);
    /// Rows of a table, one after the other.
    void writeRows(int variable, std::size_t first, std::size_t rows, std::size_t width,
                   std::span<const std::uint16_t> values);

    void finish();

private:
    void check(int status) const;

    std::string m_shownName;
    int m_file = 0;
    bool m_open = false;
};

} // namespace insolate::study
