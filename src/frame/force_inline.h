// Forced inlining for the hot row loops. A lockstep row keeps every lane's state in registers
// only when the whole row, lane bodies and pixel steps included, is one function; GCC otherwise
// may keep a body that is called four times as a function of its own, at half the speed.
//
// Sanitizer builds define HALFTONE_NO_FORCED_INLINE and leave inlining to the compiler: the
// instrumented form of one forced-inline row (eight pixels by four lanes, in every row kind)
// takes minutes per file to compile, and inlining does not change what the code does.
#pragma once

#if defined(__GNUC__) && !defined(HALFTONE_NO_FORCED_INLINE)
#define HALFTONE_FORCE_INLINE __attribute__((always_inline))
#else
#define HALFTONE_FORCE_INLINE
#endif
