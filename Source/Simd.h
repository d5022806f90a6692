// The run-time choice of vector code, so that one library runs on every x86-64 processor.
//
// A level names what a kernel may use, and each kernel gives the same bytes at every level, which tests hold it to.
// Kernels come in two kinds. One whose wide forms differ from the plain one writes them by hand, marks them with
// KQ_TARGET_... and chooses by a parameter that is BestSimd() unless a test says otherwise. One that the compiler
// vectorises is written once, in plain C++, as an always-inlined function named SomethingLoop: KQ_VECTOR_FORMS compiles
// it for each level and makes Something() the choice by SimdInUse().
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
#define KQ_FEATURES_AVX2 "avx2,bmi,bmi2"
#define KQ_FEATURES_AVX512 KQ_FEATURES_AVX2 ",avx512f,avx512bw,avx512vl,avx512dq,avx512vbmi"
#define KQ_TARGET_AVX2 __attribute__((target(KQ_FEATURES_AVX2)))
#define KQ_TARGET_AVX512 __attribute__((target(KQ_FEATURES_AVX512)))
#if defined(__clang__)
#define KQ_WIDEST_LOOPS
#else
#define KQ_WIDEST_LOOPS ",prefer-vector-width=512"
#endif
#endif

#define KQ_LOOP static inline __attribute__((always_inline))

namespace kq {

// Levels in rising order; each machine can do all up to its own.
enum class Simd : int { Plain, Avx2, Avx512 };

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

// The level of the loops that KQ_VECTOR_FORMS makes: the best, unless a test has set a lower one. Set from one thread
// while nothing runs.
inline Simd& SimdInUse() {
    static Simd level = BestSimd();
    return level;
}

}   // namespace kq

// Defines Result name(parameters) in the present namespace out of name##Loop. `parameters` and `arguments` come in
// their parentheses. For a function of the file alone, a static declaration stands before.
#if defined(KQ_SIMD_X86)
#define KQ_VECTOR_FORMS(Result, name, parameters, arguments)                                            \
    static Result name##Plain parameters { return name##Loop arguments; }                               \
    KQ_TARGET_AVX2 static Result name##Avx2 parameters { return name##Loop arguments; }                 \
    __attribute__((target(KQ_FEATURES_AVX512 KQ_WIDEST_LOOPS))) static Result name##Avx512 parameters { \
        return name##Loop arguments;                                                                    \
    }                                                                                                   \
    Result name parameters {                                                                            \
        if (SimdInUse() == Simd::Avx512) return name##Avx512 arguments;                                 \
        if (SimdInUse() == Simd::Avx2) return name##Avx2 arguments;                                     \
        return name##Plain arguments;                                                                   \
    }
#else
#define KQ_VECTOR_FORMS(Result, name, parameters, arguments) \
    Result name parameters { return name##Loop arguments; }
#endif
