/// Vector masks as bits, for sources that are compiled once per instruction set: included behind
/// hwy/foreach_target.h, it is compiled with each of them.
#if defined(INSOLATE_PLATFORM_VECTOR_MASKS_H) == defined(HWY_TARGET_TOGGLE)
#ifdef INSOLATE_PLATFORM_VECTOR_MASKS_H
#undef INSOLATE_PLATFORM_VECTOR_MASKS_H
#else
#define INSOLATE_PLATFORM_VECTOR_MASKS_H
#endif

#include <hwy/highway.h>

#include <cstdint>
#include <cstring>

HWY_BEFORE_NAMESPACE();
namespace insolate::HWY_NAMESPACE {

/// One bit for each lane, the first lowest.
template <class Bits = std::uint32_t, class D, class Mask>
HWY_INLINE Bits bitsOf(D d, Mask mask) {
    static_assert(hwy::HWY_NAMESPACE::MaxLanes(D()) <= 8 * sizeof(Bits));
    std::uint8_t bytes[8] = {};
    hwy::HWY_NAMESPACE::StoreMaskBits(d, mask, bytes);
    Bits bits;
    std::memcpy(&bits, bytes, sizeof(bits));
    return bits;
}

} // namespace insolate::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
