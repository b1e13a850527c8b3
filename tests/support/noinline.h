// A function that keeps a frame of its own.
#pragma once

#ifdef _MSC_VER
#define TONEWELL_NOINLINE __declspec(noinline)
#else
#define TONEWELL_NOINLINE [[gnu::noinline]]
#endif
