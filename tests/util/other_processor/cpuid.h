// In front of the compiler's header of this name: what the processor and the system answer is a test's to
// say.
#pragma once

#include_next <cpuid.h>

#include <stdint.h>

void ask_processor(unsigned leaf, unsigned part, unsigned &eax, unsigned &ebx, unsigned &ecx, unsigned &edx);
uint64_t ask_system_what_it_keeps(unsigned control_register);

#undef __cpuid
#define __cpuid(leaf, eax, ebx, ecx, edx) ask_processor(leaf, 0, eax, ebx, ecx, edx)
#undef __cpuid_count
#define __cpuid_count(leaf, part, eax, ebx, ecx, edx) ask_processor(leaf, part, eax, ebx, ecx, edx)
#undef _xgetbv
#define _xgetbv(control_register) ask_system_what_it_keeps(control_register)
