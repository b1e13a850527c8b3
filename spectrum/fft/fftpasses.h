// The passes of the vector transform, written once for every vector unit. Included by the files
// that are compiled for one unit (fft_sse2.cpp, fft_avx2.cpp) and by no other. Each of them has its
// own type V, so no two files share an instance of these templates.
//
// V is a vector of V::kWidth floats (4 or 8) with + - *, the static members
//   load(p), store(p): from and to memory of any alignment; broadcast(value);
//   mulAdd(a, b, c) = a b + c, mulSub(a, b, c) = a b - c, negMulAdd(a, b, c) = c - a b;
//   reversed(): the last element first;
//   loadComplex(p, re, im): kWidth pairs, taken apart;
//   loadTransposed(p, to): to[c] = element c of each of the kWidth rows of 8 floats at p, c = 0
//   ... 7.
//
// The 2048 samples are taken as 1024 complex ones, z[n] = x[2n] + i x[2n + 1], and these as eight
// interleaved sequences of 128: n = 8 m + c. Passes 1 to 3 transform the eight side by side, an
// element of the vector each, so nothing moves between elements: radix 8, 4 and 4, with every pass
// writing what the next one reads in order (Stockham). Pass 4 turns rows into columns on its way
// in and joins the eight: Z[k + 128 r] = sum over c of w1024^(c k) w8^(c r) Y_c[k]. Pass 5 takes
// the result for real samples out of Z, in place. Here wN = exp(-2 pi i / N).
#pragma once

#include "spectrum/fft/ffttables.h"

template <typename V> struct Complex {
    V re;
    V im;
};

template <typename V> Complex<V> operator+(Complex<V> a, Complex<V> b)
{
    return {a.re + b.re, a.im + b.im};
}

template <typename V> Complex<V> operator-(Complex<V> a, Complex<V> b)
{
    return {a.re - b.re, a.im - b.im};
}

template <typename V> Complex<V> operator*(Complex<V> a, Complex<V> b)
{
    return {V::mulSub(a.re, b.re, a.im * b.im), V::mulAdd(a.re, b.im, a.im * b.re)};
}

template <typename V> Complex<V> plusI(Complex<V> a, Complex<V> b) // a + i b
{
    return {a.re - b.im, a.im + b.re};
}

template <typename V> Complex<V> minusI(Complex<V> a, Complex<V> b) // a - i b
{
    return {a.re + b.im, a.im - b.re};
}

/// x[0], x[Step], ... x[3 Step] become their transform, in place.
template <int Step, typename V> void radix4(Complex<V> *x)
{
    const Complex<V> evenSum = x[0] + x[2 * Step];
    const Complex<V> evenDifference = x[0] - x[2 * Step];
    const Complex<V> oddSum = x[Step] + x[3 * Step];
    const Complex<V> oddDifference = x[Step] - x[3 * Step];
    x[0] = evenSum + oddSum;
    x[Step] = minusI(evenDifference, oddDifference);
    x[2 * Step] = evenSum - oddSum;
    x[3 * Step] = plusI(evenDifference, oddDifference);
}

/// The transform of x[0] ... x[7] goes to y[0] ... y[7]; x is used up.
template <typename V> void radix8(Complex<V> *x, Complex<V> *y)
{
    radix4<2>(x); // even
    radix4<2>(x + 1); // odd
    const V root = V::broadcast(0.70710677F);
    y[0] = x[0] + x[1];
    y[4] = x[0] - x[1];
    // w8 = root (1 - i)
    const Complex<V> a = {x[3].re + x[3].im, x[3].im - x[3].re};
    y[1] = {V::mulAdd(root, a.re, x[2].re), V::mulAdd(root, a.im, x[2].im)};
    y[5] = {V::negMulAdd(root, a.re, x[2].re), V::negMulAdd(root, a.im, x[2].im)};
    y[2] = minusI(x[4], x[5]);
    y[6] = plusI(x[4], x[5]);
    // w8^3 = -root (1 + i)
    const Complex<V> b = {x[7].im - x[7].re, x[7].re + x[7].im};
    y[3] = {V::mulAdd(root, b.re, x[6].re), V::negMulAdd(root, b.im, x[6].im)};
    y[7] = {V::negMulAdd(root, b.re, x[6].re), V::mulAdd(root, b.im, x[6].im)};
}

template <typename V> Complex<V> load(const float *re, int at)
{
    return {V::load(re + at), V::load(re + FFTTables::kHalf + at)};
}

template <typename V> void store(Complex<V> value, float *re, int at)
{
    value.re.store(re + at);
    value.im.store(re + FFTTables::kHalf + at);
}

template <typename V> Complex<V> broadcast(const FFTTables::Twiddle &w)
{
    return {V::broadcast(w.re), V::broadcast(w.im)};
}

/// Rows p + 16 k of the samples, k = 0 ... 7, to rows 8 p + j.
template <typename V> void pass1(float *to, const float *in, const FFTTables &tables)
{
    for (int p = 0; p < 16; ++p) {
        const FFTTables::Twiddle *w = tables.w128[p];
        for (int column = 0; column < 8; column += V::kWidth) {
            Complex<V> x[8];
            Complex<V> y[8];
            for (int k = 0; k < 8; ++k)
                V::loadComplex(in + 2 * (8 * (p + 16 * k) + column), x[k].re, x[k].im);
            radix8(x, y);
            store(y[0], to, 64 * p + column);
            for (int j = 1; j < 8; ++j)
                store(y[j] * broadcast<V>(w[j]), to, 8 * (8 * p + j) + column);
        }
    }
}

/// Rows q + 8 (p + 4 k), k = 0 ... 3, to rows q + 8 (4 p + j); q = 0 ... 7.
template <typename V> void pass2(float *to, const float *from, const FFTTables &tables)
{
    for (int p = 0; p < 4; ++p) {
        const FFTTables::Twiddle *w = tables.w16[p];
        for (int column = 0; column < 64; column += V::kWidth) {
            Complex<V> x[4];
            for (int k = 0; k < 4; ++k)
                x[k] = load<V>(from, 64 * (p + 4 * k) + column);
            radix4<1>(x);
            store(x[0], to, 64 * 4 * p + column);
            for (int j = 1; j < 4; ++j)
                store(x[j] * broadcast<V>(w[j]), to, 64 * (4 * p + j) + column);
        }
    }
}

/// Rows q + 32 k, k = 0 ... 3, to rows q + 32 j; q = 0 ... 31.
template <typename V> void pass3(float *to, const float *from)
{
    for (int column = 0; column < 256; column += V::kWidth) {
        Complex<V> x[4];
        for (int k = 0; k < 4; ++k)
            x[k] = load<V>(from, 256 * k + column);
        radix4<1>(x);
        for (int j = 0; j < 4; ++j)
            store(x[j], to, 256 * j + column);
    }
}

/// Row k, of eight elements, to elements k + 128 r, r = 0 ... 7.
template <typename V> void pass4(float *to, const float *from, const FFTTables &tables)
{
    for (int k = 0; k < 128; k += V::kWidth) {
        V re[8];
        V im[8];
        V::loadTransposed(from + 8 * k, re);
        V::loadTransposed(from + FFTTables::kHalf + 8 * k, im);
        Complex<V> x[8];
        Complex<V> y[8];
        x[0] = {re[0], im[0]};
        for (int c = 1; c < 8; ++c)
            x[c] = Complex<V> {re[c], im[c]}
                * Complex<V> {V::load(tables.w1024Re[c] + k), V::load(tables.w1024Im[c] + k)};
        radix8(x, y);
        for (int r = 0; r < 8; ++r)
            store(y[r], to, 128 * r + k);
    }
}

/// Pass 5 for k = first ... last - 1. With Quarter, -i is taken out of w2048^k, so that in either
/// half what is left of w turns by an eighth of a circle at most.
template <bool Quarter, typename V>
void joinMirrored(float *z, const FFTTables &tables, int first, int last)
{
    const V half = V::broadcast(0.5F);
    const V minusHalf = V::broadcast(-0.5F);
    for (int k = first; k < last; k += V::kWidth) {
        const int mirrored = FFTTables::kHalf - k - (V::kWidth - 1);
        const Complex<V> a = load<V>(z, k);
        const Complex<V> b = {V::load(z + mirrored).reversed(),
                              V::load(z + FFTTables::kHalf + mirrored).reversed()};
        const Complex<V> even = {a.re + b.re, a.im - b.im};
        const V sum = a.im + b.im;
        const V difference = b.re - a.re;
        const Complex<V> odd = Quarter ? Complex<V> {half * difference, minusHalf * sum}
                                       : Complex<V> {half * sum, half * difference};
        const Complex<V> turned = odd
            + odd
                * Complex<V> {V::load(tables.w2048ExcessRe + k), V::load(tables.w2048ExcessIm + k)};
        store(Complex<V> {V::mulAdd(half, even.re, turned.re), V::mulAdd(half, even.im, turned.im)},
              z, k);
        store(Complex<V> {V::mulSub(half, even.re, turned.re).reversed(),
                          V::negMulAdd(half, even.im, turned.im).reversed()},
              z, mirrored);
    }
}

/// With E and O the transforms of the even and odd samples, X[k] = E[k] + w2048^k O[k], and all
/// that is needed of them is in Z[k] and Z[1024 - k]; they give X[k] and X[1024 - k]. A turn by w
/// is done as o + (w - 1) o: where w is near 1, so are the roundings of the product near 0.
template <typename V> void pass5(float *z, const FFTTables &tables)
{
    const float re0 = z[0];
    const float im0 = z[FFTTables::kHalf];
    z[0] = re0 + im0;
    z[FFTTables::kHalf] = re0 - im0;
    joinMirrored<false, V>(z, tables, 1, FFTTables::kHalf / 4 + 1);
    joinMirrored<true, V>(z, tables, FFTTables::kHalf / 4 + 1, FFTTables::kHalf / 2 + 1);
}

template <typename V>
void transform(float *out, const float *in, float *scratch, const FFTTables &tables)
{
    pass1<V>(scratch, in, tables);
    pass2<V>(out, scratch, tables);
    pass3<V>(scratch, out);
    pass4<V>(out, scratch, tables);
    pass5<V>(out, tables);
}
