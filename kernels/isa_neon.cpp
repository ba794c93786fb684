// The kernels with NEON (part of every AArch64 processor): method 0 with
// three inputs sums each pixel's simplex as dot products in vector lanes;
// the rest as in the portable unit.
//
// Only code in anonymous namespaces is compiled here, so no inline function
// built for this unit can be picked by the linker for another unit.
#include "kernels/isa_units.h"

#if defined(__aarch64__) && defined(__ARM_NEON)
#include "transform/method0.h"
#include "transform/method1.h"

#include "kernels/method0_wide_neon.inl"
#include "kernels/method0_body.inl"
#include "kernels/method1_body.inl"

#define TINTRA3_KERNEL_TABLE NeonKernels
#include "kernels/kernel_table.inl"
#else
const tintra3::KernelTable* tintra3::NeonKernels() { return nullptr; }
#endif
