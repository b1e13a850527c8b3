// SSE2 is part of x86-64: this runs on every processor of that kind.
#include "spectrum/fft/fftkernels.h"
#include "spectrum/fft/fftpasses.h"

#include <emmintrin.h>

namespace {

struct Vector {
    static constexpr int kWidth = 4;
    __m128 v;

    static Vector load(const float *p) { return {_mm_loadu_ps(p)}; }
    static Vector broadcast(float value) { return {_mm_set1_ps(value)}; }
    void store(float *p) const { _mm_storeu_ps(p, v); }

    friend Vector operator+(Vector a, Vector b) { return {_mm_add_ps(a.v, b.v)}; }
    friend Vector operator-(Vector a, Vector b) { return {_mm_sub_ps(a.v, b.v)}; }
    friend Vector operator*(Vector a, Vector b) { return {_mm_mul_ps(a.v, b.v)}; }
    static Vector mulAdd(Vector a, Vector b, Vector c) { return a * b + c; }
    static Vector mulSub(Vector a, Vector b, Vector c) { return a * b - c; }
    static Vector negMulAdd(Vector a, Vector b, Vector c) { return c - a * b; }

    Vector reversed() const { return {_mm_shuffle_ps(v, v, _MM_SHUFFLE(0, 1, 2, 3))}; }

    static void loadComplex(const float *p, Vector &re, Vector &im)
    {
        const __m128 a = _mm_loadu_ps(p);
        const __m128 b = _mm_loadu_ps(p + 4);
        re.v = _mm_shuffle_ps(a, b, 0x88);
        im.v = _mm_shuffle_ps(a, b, 0xDD);
    }

    static void loadTransposed(const float *p, Vector *to)
    {
        for (int c = 0; c < 8; c += 4) {
            __m128 row0 = _mm_loadu_ps(p + c);
            __m128 row1 = _mm_loadu_ps(p + c + 8);
            __m128 row2 = _mm_loadu_ps(p + c + 16);
            __m128 row3 = _mm_loadu_ps(p + c + 24);
            _MM_TRANSPOSE4_PS(row0, row1, row2, row3);
            to[c].v = row0;
            to[c + 1].v = row1;
            to[c + 2].v = row2;
            to[c + 3].v = row3;
        }
    }
};

} // namespace

void fft2048Sse2(float *out, const float *in, float *scratch, const FFTTables &tables)
{
    transform<Vector>(out, in, scratch, tables);
}
