// Whether this target has the vector rows of the diffusion fast paths: SSE2 lanes on x86. On
// other targets the vector tier runs as lockstep.
#pragma once

#if !defined(HALFTONE_VECTOR_ROWS)
#if defined(__SSE2__)
#define HALFTONE_VECTOR_ROWS 1
#else
#define HALFTONE_VECTOR_ROWS 0
#endif
#endif
