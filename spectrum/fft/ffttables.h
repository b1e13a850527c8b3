#pragma once

/// The twiddle factors of the vector transform, w<N> = exp(-2 pi i / N), computed in double and
/// rounded once. Read by any number of threads.
struct FFTTables {
    static constexpr int kLength = 2048;
    static constexpr int kHalf = kLength / 2;

    struct Twiddle {
        float re;
        float im;
    };

    FFTTables();

    Twiddle w128[16][8]; ///< [p][j] = w128^(j p)
    Twiddle w16[4][4]; ///< [p][j] = w16^(j p)
    float w1024Re[8][128]; ///< [c][k] = Re w1024^(c k)
    float w1024Im[8][128];
    /// [k] = w2048^k - 1 for k up to kHalf / 4, i w2048^k - 1 above: turns of 45 degrees at most.
    float w2048ExcessRe[kHalf / 2 + 1];
    float w2048ExcessIm[kHalf / 2 + 1];
};
