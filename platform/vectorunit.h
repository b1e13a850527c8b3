// Which vector instructions there is code for, and which of them this processor has.
#pragma once

/// Whether the build has vector code at all: for x86-64. Nothing else decides it. The build asks
/// here which files to compile; code that calls them stands in `if constexpr
/// (TONEWELL_VECTOR_CODE)`, so that nothing else is asked to define them.
#if defined(__x86_64__) || defined(_M_X64)
#define TONEWELL_VECTOR_CODE true
#else
#define TONEWELL_VECTOR_CODE false
#endif

/// The vector instructions for which there are kernels. Each room has, for each of its kernels, a
/// function that takes one of these and returns the variant to call.
enum class VectorUnit {
    None,
    Sse2, ///< part of x86-64
    Avx2Fma, ///< AVX2 and FMA, registers saved by the operating system
};

/// The best one of this processor that the build can use; None without vector code. Found by the
/// first call; any thread.
VectorUnit vectorUnit();
