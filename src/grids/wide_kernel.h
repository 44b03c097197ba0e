// Kernels for the widest registers that the processor has.
#pragma once

/// In front of a free function with loops over rows: it is compiled for the baseline and for wider
/// registers, and the version is chosen when the program starts. Both give the same bits, since
/// neither contracts nor reorders. Sanitizers can't follow that choice and get the baseline alone.
#if defined(__x86_64__) && defined(__linux__) && !defined(__SANITIZE_ADDRESS__) && \
    !defined(__SANITIZE_THREAD__) && !defined(__AVX2__) && !defined(__clang__)
#define SULVA_WIDE_KERNEL __attribute__((noinline, target_clones("avx2", "default")))
#else
#define SULVA_WIDE_KERNEL __attribute__((noinline))
#endif
