#pragma once

/// The twiddle factors of the vector transform, w<N> = exp(-2 pi i / N), computed in double and
/// rounded once. Read by any number of threads.
struct FFTTables {
    static constexpr int Length = 2048;
    static constexpr int Half = Length / 2;

    struct Twiddle {
        float re;
        float im;
    };

    FFTTables();

    Twiddle w128[16][8]; ///< [p][j] = w128^(j p)
    Twiddle w16[4][4]; ///< [p][j] = w16^(j p)
    float w1024Re[8][128]; ///< [c][k] = Re w1024^(c k)
    float w1024Im[8][128];
    float halfW2048Re[Half / 2 + 1]; ///< [k] = Re w2048^k / 2
    float halfW2048Im[Half / 2 + 1];
};
