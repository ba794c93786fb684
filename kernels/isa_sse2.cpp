// The kernels with SSE2 (x86-64 baseline; -msse2 on 32-bit x86): method 1
// interpolates in 16-bit lanes.
#include "kernels/isa_units.h"

#if defined(__SSE2__)
#include "transform/method0.h"
#include "transform/method1.h"

#define TINTRA3_KERNELS_SSE2 1
#include "kernels/method0_body.inl"
#include "kernels/method1_body.inl"

#define TINTRA3_KERNEL_TABLE Sse2Kernels
#include "kernels/kernel_table.inl"
#else
const tintra3::KernelTable* tintra3::Sse2Kernels() { return nullptr; }
#endif
