// A host compiled with -fno-rtti, as game engines and embedded tools are: its own ray objects serve
// masks and the hourly method, and may answer whole skies. Exit code 0 when all is as it should be.

#include <insolate/hourly/hourly_analysis.h>
#include <insolate/rt/input_package_util.h>
#include <insolate/rt/occlusion_index.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/rt/spatial_tree_util.h>
#include <insolate/shading/shading_mask.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

using insolate::SkyCellSet;

/// Light comes from the east alone.
class EasternSky : public GetTransparencyValueOnRay {
public:
    bool getSurfaceDoubleSided() override { return false; }
    float getTransparencyValue(const XYZf&, const XYZf& direction, const XYZf*) override {
        ++rays;
        return direction.x > 0.0f ? 1.0f : 0.0f;
    }
    int initialise() override { return 0; }
    int rays = 0;
};

class EasternSkyAtOnce final : public EasternSky, public insolate::SkyVisibilityQuery {
public:
    bool getSurfaceDoubleSided() override {
        offerWholeSkies(*this);
        return false;
    }
    SkyCellSet visibleSky(const XYZf&, const insolate::SkyDirections& directions,
                          const SkyCellSet& wanted) override {
        SkyCellSet visible = wanted;
        for (int cell = 0; cell < 1296; ++cell) {
            if (!(directions.direction(cell % 72, cell / 72).x > 0.0f)) {
                visible.erase(cell % 72, cell / 72);
            }
        }
        return visible;
    }
};

/// Glass before another caster, to which it forwards the question of sides.
class Glass final : public GetTransparencyValueOnRay {
public:
    explicit Glass(GetTransparencyValueOnRay& behind) : m_behind(behind) {}
    bool getSurfaceDoubleSided() override { return m_behind.getSurfaceDoubleSided(); }
    float getTransparencyValue(const XYZf& origin, const XYZf& direction,
                               const XYZf* normal) override {
        return 0.5f * m_behind.getTransparencyValue(origin, direction, normal);
    }
    int initialise() override { return 0; }

private:
    GetTransparencyValueOnRay& m_behind;
};

template <class Caster>
struct DoubleSided final : Caster {
    using Caster::Caster;
    bool getSurfaceDoubleSided() override { return true; }
};

EShadingMask maskOf(GetTransparencyValueOnRay& rays) {
    XYZf south = {0, -1, 0};
    EShadingMask mask;
    mask.calculate(&rays, {1, 2, 3}, &south);
    return mask;
}

int failures = 0;

void expect(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "not so: %s\n", what);
        ++failures;
    }
}

} // namespace

int main() {
    EasternSky plain;
    EasternSkyAtOnce atOnce;
    const EShadingMask mask = maskOf(plain);
    const EShadingMask same = maskOf(atOnce);
    expect(plain.rays == 648, "one ray a cell in front");
    expect(atOnce.rays == 0, "an offer takes the place of the rays");
    expect(std::memcmp(&mask, &same, sizeof mask) == 0, "the same mask either way");
    expect(mask.getExposure(19, 3) == 1.0f && mask.getExposure(53, 3) == 0.0f,
           "light from the east");

    const insolate::OcclusionIndex open;
    insolate::FastRayTransparency fast(open);
    Glass glass(fast);
    expect(maskOf(fast).getExposure(36, 3) == 1.0f, "the library's own caster");
    expect(maskOf(glass).getExposure(36, 3) == 127.0f / 255.0f,
           "an offer is not taken for another");

    const std::vector<float> grey(8760, 100.0f);
    const auto weather = insolate::makeWeatherSeries({}, std::vector<float>(8760, 0.0f), grey);
    const insolate::HourlyAnalysis hourly(insolate::buildHourlySky(weather.series));
    const float east = hourly.evaluate(plain, {}).skyViewFactor;
    expect(east > 0.4f && east < 0.6f, "the hourly method asks the caster");
    expect(std::abs(hourly.evaluate(atOnce, {}).skyViewFactor - east) < 0.01f,
           "and takes its offer");

    RT::SpatialTreeUtil::GenerateSpatialTree();
    DoubleSided<GetTransparencyValueOnRayInternal> internal;
    DoubleSided<RT::GetTransparencyValueOnRayImpl> mailbox(0, 0);
    for (GetTransparencyValueOnRay* rays : {static_cast<GetTransparencyValueOnRay*>(&internal),
                                            static_cast<GetTransparencyValueOnRay*>(&mailbox)}) {
        expect(maskOf(*rays).getPerezHorizonFactor() > 0.99f, "both sides of the surface");
    }
    return failures == 0 ? 0 : 1;
}
