// Pixel loops at the width of the machine, chosen at run time.
//
// A loop is written once, in plain C++ that the compiler vectorises, as an always-inlined function named SomethingLoop.
// KQ_VECTOR_FORMS compiles it three times, for the base machine and for two wider ones, and makes Something() the
// choice among them. No build flag widens the whole library, so that it still runs on the base machine.
#pragma once

#include "kq/types.h"

#define KQ_LOOP static inline __attribute__((always_inline))

#if defined(__clang__)
#define KQ_TARGET_512 "avx512f,avx512bw,avx512vl,avx512dq"
#else
#define KQ_TARGET_512 "avx512f,avx512bw,avx512vl,avx512dq,prefer-vector-width=512"
#endif

namespace kq {

// Widths in rising order; each machine can do all up to its own.
enum class Vectors : int { Base, Avx2, Avx512 };

// What this machine can do.
inline Vectors MachineVectors() {
    static const Vectors widest = [] {
        if (__builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
            __builtin_cpu_supports("avx512dq"))
            return Vectors::Avx512;
        return __builtin_cpu_supports("avx2") ? Vectors::Avx2 : Vectors::Base;
    }();
    return widest;
}

// The width in use: the machine's, unless a test has set a narrower one. Set from one thread while nothing runs.
inline Vectors& VectorsInUse() {
    static Vectors width = MachineVectors();
    return width;
}

}   // namespace kq

// Defines Result name(parameters) in the present namespace out of name##Loop. `parameters` and `arguments` come in
// their parentheses. For a function of the file alone, a static declaration stands before.
#define KQ_VECTOR_FORMS(Result, name, parameters, arguments)                                                      \
    static Result name##Base parameters { return name##Loop arguments; }                                          \
    __attribute__((target("avx2"))) static Result name##Avx2 parameters { return name##Loop arguments; }          \
    __attribute__((target(KQ_TARGET_512))) static Result name##Avx512 parameters { return name##Loop arguments; } \
    Result name parameters {                                                                                      \
        if (VectorsInUse() == Vectors::Avx512) return name##Avx512 arguments;                                     \
        if (VectorsInUse() == Vectors::Avx2) return name##Avx2 arguments;                                         \
        return name##Base arguments;                                                                              \
    }
