// The NEON unit for AArch64 has no kernels of its own yet: AArch64 runs the
// portable unit. A NEON unit compiles the bodies as isa_avx2.cpp does, with
// its wide steps, and returns its table here.
#include "kernels/isa_units.h"

const tintra3::KernelTable* tintra3::NeonKernels() { return nullptr; }
