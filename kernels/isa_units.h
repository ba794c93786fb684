// The kernel tables of the instruction-set units (null: not compiled in).
#pragma once

#include "kernels/kernels.h"

namespace tintra3 {

const KernelTable* PortableKernels();
const KernelTable* Sse2Kernels();
const KernelTable* Avx2Kernels();
const KernelTable* NeonKernels();

}  // namespace tintra3
