// The kinds of image the program knows, told apart by the first bytes of a file.
#pragma once

#include "foundation/types.h"

enum class image_kind { png, tiff, bmp, jpeg, unknown };
constexpr INT IMAGE_KIND_COUNT = static_cast<INT>(image_kind::unknown);

// As many first bytes of a file as recognition looks at.
constexpr UINT SIGNATURE_SIZE = 10;

// The kind of a file that begins with `count` bytes (fewer than SIGNATURE_SIZE only for a shorter file). A
// file that ends inside a signature, two bytes or more of it, is of that kind.
image_kind recognise_kind(const BYTE *first_bytes, uint64_t count);

// "png", "tiff", "bmp", "jpeg": also the base names of the modules. Null for an unknown kind.
const CHAR *name_of_kind(image_kind kind);
