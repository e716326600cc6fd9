#include <insolate/hourly/luminance_table.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/hourly/luminance_table.cpp"
#include <insolate/platform/simd.h>
#include <insolate/platform/simd_targets.h>

#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace insolate::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

void sumOver(const CellCentres& centres, std::span<const XYZf> suns, const LuminanceTable& table,
             std::span<float, skyGrid::cellCount> sums) {
    const hn::CappedTag<float, 16> d;
    const hn::RebindToSigned<decltype(d)> di;
    static_assert(skyGrid::cellCount % 16 == 0);
    const auto half = hn::Set(d, 0.5f);
    for (std::size_t i = 0; i < sums.size(); i += hn::Lanes(d)) {
        const auto x = hn::LoadU(d, centres.x.data() + i);
        const auto y = hn::LoadU(d, centres.y.data() + i);
        const auto z = hn::LoadU(d, centres.z.data() + i);
        auto sum = hn::Zero(d);
        for (const XYZf& sun : suns) {
            const auto cosine =
                hn::Add(hn::Add(hn::Mul(x, hn::Set(d, sun.x)), hn::Mul(y, hn::Set(d, sun.y))),
                        hn::Mul(z, hn::Set(d, sun.z)));
            // The sine of half the angle.
            const auto sine = hn::Sqrt(hn::Max(hn::Sub(half, hn::Mul(half, cosine)), hn::Zero(d)));
            const auto place = hn::Mul(sine, hn::Set(d, static_cast<float>(LuminanceTable::size)));
            const auto entry = hn::ConvertTo(di, place);
            const auto beyond = hn::Sub(place, hn::ConvertTo(d, entry));
            const auto value = hn::GatherIndex(d, table.values.data(), entry);
            const auto step = hn::GatherIndex(d, table.steps.data(), entry);
            sum = hn::Add(sum, hn::Add(value, hn::Mul(beyond, step)));
        }
        hn::StoreU(sum, d, sums.data() + i);
    }
}

} // namespace
} // namespace insolate::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace insolate {

HWY_EXPORT(sumOver);

void sumOverSuns(const CellCentres& centres, std::span<const XYZf> suns,
                 const LuminanceTable& table, std::span<float, skyGrid::cellCount> sums) {
    applySimdChoice();
    HWY_DYNAMIC_DISPATCH(sumOver)(centres, suns, table, sums);
}

} // namespace insolate

#endif
