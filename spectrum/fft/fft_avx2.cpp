// Compiled for AVX2 and FMA; called only on a processor that has both.
#include "spectrum/fft/fftkernels.h"
#include "spectrum/fft/fftpasses.h"

#include <immintrin.h>

namespace {

struct Vector {
    static constexpr int kWidth = 8;
    __m256 v;

    static Vector load(const float *p) { return {_mm256_loadu_ps(p)}; }
    static Vector broadcast(float value) { return {_mm256_set1_ps(value)}; }
    void store(float *p) const { _mm256_storeu_ps(p, v); }

    friend Vector operator+(Vector a, Vector b) { return {_mm256_add_ps(a.v, b.v)}; }
    friend Vector operator-(Vector a, Vector b) { return {_mm256_sub_ps(a.v, b.v)}; }
    friend Vector operator*(Vector a, Vector b) { return {_mm256_mul_ps(a.v, b.v)}; }
    static Vector mulAdd(Vector a, Vector b, Vector c) { return {_mm256_fmadd_ps(a.v, b.v, c.v)}; }
    static Vector mulSub(Vector a, Vector b, Vector c) { return {_mm256_fmsub_ps(a.v, b.v, c.v)}; }
    static Vector negMulAdd(Vector a, Vector b, Vector c)
    {
        return {_mm256_fnmadd_ps(a.v, b.v, c.v)};
    }

    Vector reversed() const
    {
        return {_mm256_permutevar8x32_ps(v, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0))};
    }

    /// Four floats each from two places, as the lower and upper half.
    static __m256 halves(const float *lower, const float *upper)
    {
        return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(lower)),
                                    _mm_loadu_ps(upper), 1);
    }

    static void loadComplex(const float *p, Vector &re, Vector &im)
    {
        const __m256 a = halves(p, p + 8);
        const __m256 b = halves(p + 4, p + 12);
        re.v = _mm256_shuffle_ps(a, b, 0x88);
        im.v = _mm256_shuffle_ps(a, b, 0xDD);
    }

    static void loadTransposed(const float *p, Vector *to)
    {
        for (int c = 0; c < 8; c += 4) {
            const __m256 a = halves(p + c, p + c + 32);
            const __m256 b = halves(p + c + 8, p + c + 40);
            const __m256 d = halves(p + c + 16, p + c + 48);
            const __m256 e = halves(p + c + 24, p + c + 56);
            const __m256 ab01 = _mm256_unpacklo_ps(a, b);
            const __m256 ab23 = _mm256_unpackhi_ps(a, b);
            const __m256 de01 = _mm256_unpacklo_ps(d, e);
            const __m256 de23 = _mm256_unpackhi_ps(d, e);
            to[c].v = _mm256_shuffle_ps(ab01, de01, 0x44);
            to[c + 1].v = _mm256_shuffle_ps(ab01, de01, 0xEE);
            to[c + 2].v = _mm256_shuffle_ps(ab23, de23, 0x44);
            to[c + 3].v = _mm256_shuffle_ps(ab23, de23, 0xEE);
        }
    }
};

} // namespace

void fft2048Avx2(float *out, const float *in, float *scratch, const FFTTables &tables)
{
    transform<Vector>(out, in, scratch, tables);
}
