// The kernels in plain C++: the reference every other unit must match.
#include "kernels/isa_units.h"
#include "transform/method0.h"
#include "transform/method1.h"

#include "kernels/method0_body.inl"
#include "kernels/method1_body.inl"

#define TINTRA3_KERNEL_TABLE PortableKernels
#include "kernels/kernel_table.inl"
