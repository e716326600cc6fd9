/// Masks by Embree, in each of the ways that it offers.
#pragma once

#include <insolate/geometry/sky_grid.h>
#include <insolate/geometry/xyzf.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace insolate::bench {

class EmbreeMasks {
public:
    /// How a mask's rays are cast: any hit, rays of neighbouring cells together.
    struct Mode {
        std::string name;
        int packet;      ///< 1, 4, 8, 16, or 0 for one stream of all rays
        int tileSectors; ///< a packet's cells: so many sectors, packet / tileSectors bands
        bool coherent;   ///< tells the library that the rays are coherent
    };
    static const std::vector<Mode>& modes();

    /// configuration: what rtcNewDevice takes, e.g. "threads=1,isa=avx2".
    EmbreeMasks(const std::vector<double>& coordinates,
                const std::array<XYZf, skyGrid::cellCount>& directions,
                const std::string& configuration);
    ~EmbreeMasks();

    double buildBytes() const; ///< that the library had allocated at most after the build

    /// Casts a mask's 1,296 rays; the number of blocked cells.
    int blockedCells(const XYZf& origin, const Mode& mode);

private:
    struct Parts;
    std::unique_ptr<Parts> parts;
};

} // namespace insolate::bench
