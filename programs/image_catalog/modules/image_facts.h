// What every module says in the same way about size, resolution and problems.
#pragma once

#include "foundation/util.h"
#include "image_module.h"

// A reason without figures. Always false, so that a check can end with it.
bool report_problem(IMAGE_FACTS &facts, const CHAR *reason);

// Store the size in `facts` and judge it: neither side may be 0 or exceed 2^31 - 1, and the image may not
// have more pixels than `data_bytes` bytes can express, each at most `pixels_per_byte`.
bool accept_size(IMAGE_FACTS &facts, uint64_t width, uint64_t height, uint64_t data_bytes,
                 uint64_t pixels_per_byte);

// Above what any compression gets out of a byte: a blank page of fax takes one bit per row.
constexpr uint64_t ANY_PIXELS_PER_BYTE = 1000000;

// Convert to whole dots per inch, rounded half up. A unit without a length names no resolution.
void store_resolution(IMAGE_FACTS &facts, const ZT_RESOLUTION &resolution);
