#pragma once

#include "spectrum/fft/fftkernels.h"
#include "spectrum/fft/ffttables.h"

#include <cstdint>
#include <memory>
#include <new>

/// The tables and the passes behind FFTRealWrapper, whose contract transform() has.
///
/// Where the processor has a vector unit there is a kernel for, that does the work. The portable
/// passes are for the others, and what the kernels are tested against: decimation in time on real
/// data. After each pass the work area holds groups of size 4, 8, 16, ... 2048, each the transform
/// of a subset of the samples in the packed layout of the result (real parts 0 ... size/2, then
/// imaginary parts 1 ... size/2 - 1).
class FFTEngine {
public:
    static constexpr int kLength = FFTTables::kLength;

    /// For a vector unit that the processor has; None takes the portable passes.
    explicit FFTEngine(VectorUnit unit = vectorUnit());

    void transform(float *out, const float *in);

private:
    /// An owned array with its element count beside it, aligned to cache lines.
    template <typename T> struct Table {
        static constexpr std::align_val_t kAlignment {64};
        struct Free {
            void operator()(T *memory) const { ::operator delete[](memory, kAlignment); }
        };

        explicit Table(int n)
            : values(new (kAlignment) T[static_cast<std::size_t>(n)])
            , count(n)
        {
        }
        std::unique_ptr<T[], Free> values;
        int count;
    };

    void firstPass(float *to, const float *in) const;
    void pass8(float *to, const float *from) const;
    void pass(float *to, const float *from, int size) const;

    /// Work area of the passes that do not write to the output.
    Table<float> m_scratch;
    /// Entry c is the 11-bit reversal of 4 c: where the four samples of group c start.
    Table<std::int32_t> m_bitReversal;
    /// Entry i is cos(i pi / 1024): a quarter period. sin(i pi / 1024) is entry 512 - i.
    Table<float> m_cosine;
    /// Twiddle oscillator for passes beyond the cosine table; this length has none.
    [[maybe_unused]] float m_cosinePosition = 1.0F;
    [[maybe_unused]] float m_sinePosition = 0.0F;
    [[maybe_unused]] float m_cosineStep = 1.0F;
    [[maybe_unused]] float m_sineStep = 0.0F;
    /// Null for the portable passes.
    FFTKernel m_kernel;
    /// What the kernel reads, in its order.
    std::unique_ptr<const FFTTables> m_kernelTables;
};
