// Float samples to 16 bits, with the instructions of the best vector unit.
#pragma once

#include "platform/vectorunit.h"

/// `count` floats, clamped to [-1, 1], times 32767, truncated toward zero; NaN gives 0. Both in
/// the byte order of the machine; no alignment is required. Runs while the processor rounds toward
/// zero (RoundingTowardZero): then the product, rounded to a float, still truncates as the exact
/// one does.
using FloatKernel = void (*)(const char *floats, char *samples, int count);

/// The kernel for a vector unit, which the processor must have.
FloatKernel floatKernel(VectorUnit unit);

/// One sample after the other, in any rounding mode: for processors without a kernel, for what is
/// left after the last full vector, and to test against.
void floatsToSamplesPlainly(const char *floats, char *samples, int count);
void floatsToSamplesSse2(const char *floats, char *samples, int count);
void floatsToSamplesAvx2(const char *floats, char *samples, int count);

/// The rounding mode of this thread's vector unit, while one of these lives.
///
/// Why it exists: with the product in double precision, exact in any mode, a packet
/// takes 1.8 times as long, and the conversion more than it may beside a memcpy and a plain scale
/// (bench_conversion).
///
/// What it rests on: the compiler does not know that the mode changes and takes every calculation
/// to round to nearest. It may calculate what it can see when it compiles, and move a calculation
/// past the calls that switch. So it must not see both at once: the kernels stand in files of their
/// own and are called through a pointer, the switches stand in floatkernels.cpp, and nothing is
/// optimised at link time. Between the switches there is that call and no other calculation.
class RoundingTowardZero {
public:
    RoundingTowardZero();
    ~RoundingTowardZero();

    RoundingTowardZero(const RoundingTowardZero &) = delete;
    RoundingTowardZero &operator=(const RoundingTowardZero &) = delete;

private:
    unsigned m_before;
};
