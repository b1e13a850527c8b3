#pragma once

/// The vector instructions there are kernels for.
enum class VectorUnit {
    None,
    Sse2, ///< part of x86-64
    Avx2Fma, ///< AVX2 and FMA, registers saved by the operating system
};

/// The best one of this processor. Found by the first call; any thread.
VectorUnit vectorUnit();
