/// The instruction sets that vector code is compiled for; include before any header of Highway.
#pragma once

// Four levels are worth their compile time: AVX-512, AVX2, NEON and the portable one.
#define HWY_DISABLED_TARGETS                                                                       \
    (HWY_SSSE3 | HWY_SSE4 | HWY_AVX3_DL | HWY_PPC8 | HWY_SVE | HWY_SVE2 | HWY_SVE_256 |            \
     HWY_SVE2_128 | HWY_RVV)
