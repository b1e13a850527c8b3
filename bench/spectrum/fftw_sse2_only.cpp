// Linked in, FFTW asks here whether it may use AVX, and plans as on a processor that has only SSE2.
extern "C" int fftwf_have_simd_avx();

extern "C" int fftwf_have_simd_avx()
{
    return 0;
}
