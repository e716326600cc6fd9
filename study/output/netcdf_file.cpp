#include "study/output/netcdf_file.h"

#include "study/support/errors.h"

#include <array>
#include <mutex>
#include <vector>

#include <fmt/format.h>
#include <netcdf.h>

namespace insolate::study {

namespace {

// The library keeps its open files in a list of the process that nothing guards.
std::mutex libraryMutex;

nc_type typeOf(NetcdfFile::Type type) {
    switch (type) {
    case NetcdfFile::Type::float64:
        return NC_DOUBLE;
    case NetcdfFile::Type::float32:
        return NC_FLOAT;
    case NetcdfFile::Type::int32:
        return NC_INT;
    case NetcdfFile::Type::uint16:
        return NC_USHORT;
    case NetcdfFile::Type::text:
        break;
    }
    return NC_STRING;
}

} // namespace

NetcdfFile::NetcdfFile(const OutputFile& place) : m_shownName(place.shownName()) {
    const std::lock_guard lock(libraryMutex);
    // The library empties the file and writes into it by name.
    check(nc_create(place.path().c_str(), NC_NETCDF4 | NC_CLOBBER, &m_file));
    m_open = true;
    int before = 0;
    check(nc_set_fill(m_file, NC_NOFILL, &before)); // every value is written
}

NetcdfFile::~NetcdfFile() {
    if (m_open) {
        const std::lock_guard lock(libraryMutex);
        nc_close(m_file);
    }
}

void NetcdfFile::check(int status) const {
    if (status != NC_NOERR) {
        throw OutputError(fmt::format("{}: cannot be written: {}; free some space, or choose "
                                      "another --out",
                                      printable(m_shownName), nc_strerror(status)));
    }
}

int NetcdfFile::addDimension(const char* name, std::size_t length) {
    const std::lock_guard lock(libraryMutex);
    int dimension = 0;
    check(nc_def_dim(m_file, name, length, &dimension));
    return dimension;
}

int NetcdfFile::addVariable(const char* name, Type type, std::initializer_list<int> dimensions) {
    const std::lock_guard lock(libraryMutex);
    int variable = 0;
    check(nc_def_var(m_file, name, typeOf(type), static_cast<int>(dimensions.size()),
                     dimensions.begin(), &variable));
    return variable;
}

void NetcdfFile::setText(int variable, const char* attribute, const std::string& value) {
    const std::lock_guard lock(libraryMutex);
    check(nc_put_att_text(m_file, variable == global ? NC_GLOBAL : variable, attribute,
                          value.size(), value.data()));
}

void NetcdfFile::setNumber(int variable, const char* attribute, double value) {
    const std::lock_guard lock(libraryMutex);
    check(nc_put_att_double(m_file, variable == global ? NC_GLOBAL : variable, attribute, NC_DOUBLE,
                            1, &value));
}

void NetcdfFile::setFill(int variable, std::uint16_t value) {
    const std::lock_guard lock(libraryMutex);
    check(nc_def_var_fill(m_file, variable, NC_FILL, &value));
}

void NetcdfFile::setChunks(int variable, std::initializer_list<std::size_t> lengths) {
    const std::lock_guard lock(libraryMutex);
    check(nc_def_var_chunking(m_file, variable, NC_CHUNKED, lengths.begin()));
    // The first level takes a third of the time of the usual one and a tenth more space.
    constexpr int level = 1;
    check(nc_def_var_deflate(m_file, variable, NC_SHUFFLE, 1, level));
}

void NetcdfFile::write(int variable, std::span<const double> values) {
    const std::lock_guard lock(libraryMutex);
    check(nc_put_var_double(m_file, variable, values.data()));
}

void NetcdfFile::write(int variable, std::span<const std::int32_t> values) {
    const std::lock_guard lock(libraryMutex);
    check(nc_put_var_int(m_file, variable, values.data()));
}

void NetcdfFile::write(int variable, std::span<const std::string> values) {
    const std::lock_guard lock(libraryMutex);
    std::vector<const char*> texts;
    for (const std::string& value : values) {
        texts.push_back(value.c_str());
    }
    if (!texts.empty()) {
        check(nc_put_var_string(m_file, variable, texts.data()));
    }
}

void NetcdfFile::writeRows(int variable, std::size_t first, std::size_t rows, std::size_t width,
                           std::span<const std::uint16_t> values) {
    const std::lock_guard lock(libraryMutex);
    const std::array<std::size_t, 2> start = {first, 0};
    const std::array<std::size_t, 2> count = {rows, width};
    check(nc_put_vara_ushort(m_file, variable, start.data(), count.data(), values.data()));
}

void NetcdfFile::finish() {
    const std::lock_guard lock(libraryMutex);
    m_open = false;
    check(nc_close(m_file));
}

} // namespace insolate::study
