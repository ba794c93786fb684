// The kernels with AVX2 (built with -mavx2 -mbmi2 -mfma): method 0 with
// three inputs sums two pixels' simplexes per register as dot products, with
// four inputs it converts eight pixels per step with gathers from the kernel
// layout; method 1, interleaved, three or four inputs to three or four
// outputs, takes two pixels per step (method1_wide_avx2.inl, included by
// method1_body.inl); the rest as in the SSE2 unit.
//
// Only code in anonymous namespaces is compiled here, so no inline function
// built with these flags can be picked by the linker for another unit.
#include "kernels/isa_units.h"

#if defined(__AVX2__)
#include "transform/method0.h"
#include "transform/method1.h"

#define TINTRA3_KERNELS_SSE2 1
#include "kernels/method0_wide_avx2.inl"
#include "kernels/method0_body.inl"
#include "kernels/method1_body.inl"

#define TINTRA3_KERNEL_TABLE Avx2Kernels
#include "kernels/kernel_table.inl"
#else
const tintra3::KernelTable* tintra3::Avx2Kernels() { return nullptr; }
#endif
