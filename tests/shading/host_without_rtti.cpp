// A host compiled with -fno-rtti: its ray objects serve masks and the hourly method, and may answer
// whole skies. Exit code 0 when all is as it should be.

#include <insolate/hourly/hourly_analysis.h>
#include <insolate/rt/occlusion_index.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/rt/spatial_tree_util.h>
#include <insolate/shading/shading_mask.h>

#include <cstdio>
#include <cstring>
#include <vector>

namespace {

using insolate::SkyCellSet;

/// Light comes from the east alone; one ray a cell, or all at once.
struct EasternSky final : GetTransparencyValueOnRay, insolate::SkyVisibilityQuery {
    explicit EasternSky(bool offersWholeSkies) : offers(offersWholeSkies) {}
    bool getSurfaceDoubleSided() override {
        if (offers) {
            offerWholeSkies(*this);
        }
        return false;
    }
    float getTransparencyValue(const XYZf&, const XYZf& direction, const XYZf*) override {
        ++rays;
        return direction.x > 0.0f ? 1.0f : 0.0f;
    }
    int initialise() override { return 0; }
    SkyCellSet visibleSky(const XYZf&, const insolate::SkyDirections& directions,
                          const SkyCellSet& wanted) override {
        ++skies;
        SkyCellSet visible = wanted;
        for (int cell = 0; cell < 1296; ++cell) {
            if (!(directions.direction(cell % 72, cell / 72).x > 0.0f)) {
                visible.erase(cell % 72, cell / 72);
            }
        }
        return visible;
    }
    bool offers;
    int rays = 0;
    int skies = 0;
};

/// A library's caster with two sides, behind glass.
template <class Caster>
struct GlassWithTwoSides final : Caster {
    using Caster::Caster;
    bool getSurfaceDoubleSided() override {
        const insolate::OcclusionIndex open;
        insolate::FastRayTransparency(open).getSurfaceDoubleSided(); // offers for itself
        return true;
    }
    float getTransparencyValue(const XYZf& from, const XYZf& to, const XYZf* normal) override {
        return 0.5f * Caster::getTransparencyValue(from, to, normal);
    }
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
    const auto weather = insolate::makeWeatherSeries({}, std::vector<float>(8760, 0.0f),
                                                     std::vector<float>(8760, 100.0f));
    const insolate::HourlyAnalysis hourly(insolate::buildHourlySky(weather.series));
    EasternSky plain(false);
    EasternSky atOnce(true);
    const EShadingMask mask = maskOf(plain);
    const EShadingMask same = maskOf(atOnce);
    expect(std::memcmp(&mask, &same, sizeof mask) == 0, "the same mask either way");
    expect(mask.getExposure(19, 3) == 1 && mask.getExposure(53, 3) == 0, "light from the east");
    expect(plain.rays == 648 && atOnce.rays == 0 && atOnce.skies == 1, "an offer spares the rays");
    hourly.evaluate(plain, {});
    hourly.evaluate(atOnce, {});
    expect(plain.rays > 648 && plain.skies == 0, "the hourly method casts rays");
    expect(atOnce.skies > 1, "and takes an offer");

    RT::SpatialTreeUtil::GenerateSpatialTree();
    GlassWithTwoSides<GetTransparencyValueOnRayInternal> internal;
    GlassWithTwoSides<RT::GetTransparencyValueOnRayImpl> mailbox(0, 0);
    for (const EShadingMask& glass : {maskOf(internal), maskOf(mailbox)}) {
        expect(glass.getExposure(36, 3) == 127.0f / 255.0f, "another's offer is not taken");
        expect(glass.getExposure(0, 3) == 127.0f / 255.0f, "both sides of the surface");
    }
    return failures == 0 ? 0 : 1;
}
