#include <bench/embree_masks.h>

#include <embree3/rtcore.h>

#include <atomic>
#include <cstring>
#include <limits>

namespace insolate::bench {

namespace {

constexpr float nearest = 0.01f;
constexpr float infinity = std::numeric_limits<float>::infinity();

template <int width>
struct PacketOf;
template <>
struct PacketOf<4> {
    using Ray = RTCRay4;
    static void cast(const int* valid, RTCScene scene, RTCIntersectContext* context, Ray* ray) {
        rtcOccluded4(valid, scene, context, ray);
    }
};
template <>
struct PacketOf<8> {
    using Ray = RTCRay8;
    static void cast(const int* valid, RTCScene scene, RTCIntersectContext* context, Ray* ray) {
        rtcOccluded8(valid, scene, context, ray);
    }
};
template <>
struct PacketOf<16> {
    using Ray = RTCRay16;
    static void cast(const int* valid, RTCScene scene, RTCIntersectContext* context, Ray* ray) {
        rtcOccluded16(valid, scene, context, ray);
    }
};

/// The packets of a mask, ready but for their origins and lengths.
template <int width>
struct PacketSet {
    using Ray = typename PacketOf<width>::Ray;
    std::vector<Ray> packets;
    struct alignas(64) Valid {
        int lanes[width];
    };
    std::vector<Valid> valid;

    PacketSet(const std::array<XYZf, skyGrid::cellCount>& directions, int tileSectors) {
        const int tileBands = width / tileSectors;
        for (int band = 0; band < skyGrid::altitudeCount; band += tileBands) {
            for (int sector = 0; sector < skyGrid::azimuthCount; sector += tileSectors) {
                Ray& ray = packets.emplace_back();
                std::memset(&ray, 0, sizeof(ray));
                Valid& active = valid.emplace_back();
                for (int lane = 0; lane < width; ++lane) {
                    const int a = sector + lane % tileSectors;
                    const int b = band + lane / tileSectors;
                    const bool real = skyGrid::isCell(a, b);
                    active.lanes[lane] = real ? -1 : 0;
                    const XYZf d =
                        real ? directions[static_cast<std::size_t>(skyGrid::cellIndex(a, b))]
                             : XYZf{0, 0, 1};
                    ray.dir_x[lane] = d.x;
                    ray.dir_y[lane] = d.y;
                    ray.dir_z[lane] = d.z;
                    ray.tnear[lane] = nearest;
                    ray.mask[lane] = ~0U;
                }
            }
        }
    }

    int cast(RTCScene scene, RTCIntersectContext& context, const XYZf& origin) {
        int blocked = 0;
        for (std::size_t i = 0; i < packets.size(); ++i) {
            Ray& ray = packets[i];
            for (int lane = 0; lane < width; ++lane) {
                ray.org_x[lane] = origin.x;
                ray.org_y[lane] = origin.y;
                ray.org_z[lane] = origin.z;
                ray.tfar[lane] = infinity;
            }
            PacketOf<width>::cast(valid[i].lanes, scene, &context, &ray);
            for (int lane = 0; lane < width; ++lane) {
                blocked += ray.tfar[lane] < 0 ? 1 : 0;
            }
        }
        return blocked;
    }
};

} // namespace

struct EmbreeMasks::Parts {
    RTCDevice device = nullptr;
    RTCScene scene = nullptr;
    std::atomic<long> bytes{0};
    long bytesAfterBuild = 0;
    std::array<XYZf, skyGrid::cellCount> directions;
    PacketSet<4> four;
    PacketSet<8> eight4;
    PacketSet<8> eight8;
    PacketSet<16> sixteen4;
    PacketSet<16> sixteen8;
    std::vector<RTCRay> stream;

    explicit Parts(const std::array<XYZf, skyGrid::cellCount>& d)
        : directions(d), four(d, 2), eight4(d, 4), eight8(d, 8), sixteen4(d, 4), sixteen8(d, 8),
          stream(d.size()) {}
};

const std::vector<EmbreeMasks::Mode>& EmbreeMasks::modes() {
    static const std::vector<Mode> all = {
        {"single rays", 1, 1, false},
        {"packets of 4", 4, 2, true},
        {"packets of 8 (4x2)", 8, 4, true},
        {"packets of 8 (8x1)", 8, 8, true},
        {"packets of 16 (4x4)", 16, 4, true},
        {"packets of 16 (8x2)", 16, 8, true},
        {"packets of 16 (8x2), incoherent", 16, 8, false},
        {"stream", 0, 1, true},
    };
    return all;
}

EmbreeMasks::EmbreeMasks(const std::vector<double>& coordinates,
                         const std::array<XYZf, skyGrid::cellCount>& directions,
                         const std::string& configuration)
    : parts(std::make_unique<Parts>(directions)) {
    parts->device = rtcNewDevice(configuration.c_str());
    rtcSetDeviceMemoryMonitorFunction(
        parts->device,
        [](void* user, ssize_t bytes, bool /*post*/) {
            static_cast<Parts*>(user)->bytes += bytes;
            return true;
        },
        parts.get());
    parts->scene = rtcNewScene(parts->device);
    rtcSetSceneBuildQuality(parts->scene, RTC_BUILD_QUALITY_MEDIUM);
    RTCGeometry geometry = rtcNewGeometry(parts->device, RTC_GEOMETRY_TYPE_TRIANGLE);
    const std::size_t vertices = coordinates.size() / 3;
    auto* positions = static_cast<float*>(rtcSetNewGeometryBuffer(
        geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 3 * sizeof(float), vertices));
    auto* indices = static_cast<unsigned*>(rtcSetNewGeometryBuffer(
        geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(unsigned), vertices / 3));
    for (std::size_t i = 0; i < coordinates.size(); ++i) {
        positions[i] = static_cast<float>(coordinates[i]);
    }
    for (std::size_t i = 0; i < vertices; ++i) {
        indices[i] = static_cast<unsigned>(i);
    }
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(parts->scene, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(parts->scene);
    parts->bytesAfterBuild = parts->bytes;
}

EmbreeMasks::~EmbreeMasks() {
    rtcReleaseScene(parts->scene);
    rtcReleaseDevice(parts->device);
}

double EmbreeMasks::buildBytes() const {
    return static_cast<double>(parts->bytesAfterBuild);
}

int EmbreeMasks::blockedCells(const XYZf& origin, const Mode& mode) {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    context.flags =
        mode.coherent ? RTC_INTERSECT_CONTEXT_FLAG_COHERENT : RTC_INTERSECT_CONTEXT_FLAG_INCOHERENT;
    switch (mode.packet) {
    case 4:
        return parts->four.cast(parts->scene, context, origin);
    case 8:
        return (mode.tileSectors == 4 ? parts->eight4 : parts->eight8)
            .cast(parts->scene, context, origin);
    case 16:
        return (mode.tileSectors == 4 ? parts->sixteen4 : parts->sixteen8)
            .cast(parts->scene, context, origin);
    default:
        break;
    }
    for (std::size_t i = 0; i < parts->directions.size(); ++i) {
        const XYZf& d = parts->directions[i];
        parts->stream[i] = {origin.x, origin.y, origin.z, nearest, d.x, d.y,
                            d.z,      0,        infinity, ~0U,     0,   0};
    }
    if (mode.packet == 0) {
        rtcOccluded1M(parts->scene, &context, parts->stream.data(),
                      static_cast<unsigned>(parts->stream.size()), sizeof(RTCRay));
    } else {
        for (RTCRay& ray : parts->stream) {
            rtcOccluded1(parts->scene, &context, &ray);
        }
    }
    int blocked = 0;
    for (const RTCRay& ray : parts->stream) {
        blocked += ray.tfar < 0 ? 1 : 0;
    }
    return blocked;
}

} // namespace insolate::bench
