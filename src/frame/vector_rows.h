// Whether this target has the vector rows of the diffusion fast paths: 16-bit lanes of 128-bit
// vectors, SSE2 on x86 and NEON on AArch64. On other targets the vector tier runs as lockstep.
#pragma once

#if !defined(HALFTONE_VECTOR_ROWS)
#if defined(__SSE2__) || defined(__aarch64__)
#define HALFTONE_VECTOR_ROWS 1
#else
#define HALFTONE_VECTOR_ROWS 0
#endif
#endif
