// The run-time choice of vector code. Kernels with wide forms mark them with KQ_TARGET_... and choose by BestSimd, so
// that one library runs on every x86-64 processor; each wide form gives the same bytes as the plain one, which tests
// hold it to at every level that the processor has.
#pragma once

#include "kq/types.h"

#if defined(__x86_64__)
#define KQ_SIMD_X86 1
// GCC 12 takes the header's own undefined registers for a fault.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#pragma GCC diagnostic pop
#define KQ_TARGET_AVX2 __attribute__((target("avx2,bmi,bmi2")))
#define KQ_TARGET_AVX512 __attribute__((target("avx2,bmi,bmi2,avx512f,avx512bw,avx512vl,avx512dq,avx512vbmi")))
#endif

namespace kq {

enum class Simd { Plain, Avx2, Avx512 };

// The widest level that this processor has.
inline Simd BestSimd() {
#if defined(KQ_SIMD_X86)
    if (__builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("bmi2"))
        return Simd::Avx512;
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2")) return Simd::Avx2;
#endif
    return Simd::Plain;
}

}   // namespace kq
