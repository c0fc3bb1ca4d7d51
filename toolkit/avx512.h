// avx512.h: the intrinsics, without GCC's warnings about their undefined operands.
#ifndef TOOLKIT_AVX512_H
#define TOOLKIT_AVX512_H

#include "cpu.h"

#if TOOLKIT_HAS_X86_VECTORS
#include <immintrin.h>

#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#endif

#endif
