// The kinds of image the program knows, told apart by the first bytes of a file.
#pragma once

#include "foundation/types.h"

struct image_signature {
    uint64_t size;
    const CHAR *bytes;
    const CHAR *mask = nullptr;  // bits that count; null when all do
};

struct image_kind_record {
    const CHAR *name;
    const CHAR *endings;  // of file names, each with its dot, one behind the other
    image_signature signatures[4];
};

/* The one table of kinds. Everything else follows from it: the name is that of the module (CMakeLists.txt
 * reads it here and compiles modules/NAME.cpp), of the kind in the output, and of its line in the totals. */
inline constexpr image_kind_record image_kinds[] = {
    {"png", ".png", {{8, "\x89PNG\r\n\x1a\n"}}},
    {"tiff", ".tif.tiff", {{4, "II*\0"}, {4, "MM\0*"}, {4, "II+\0"}, {4, "MM\0+"}}},
    // "BM" alone also begins many a text: the four reserved bytes of the header, always zero, go with it.
    {"bmp", ".bmp.dib", {{10, "BM\0\0\0\0\0\0\0\0", "\xFF\xFF\0\0\0\0\xFF\xFF\xFF\xFF"}}},
    {"jpeg", ".jpg.jpeg.jpe.jfif", {{3, "\xFF\xD8\xFF"}}},
};

// An index into the table.
using image_kind = UINT;
constexpr image_kind IMAGE_KIND_COUNT = sizeof image_kinds / sizeof image_kinds[0];
constexpr image_kind UNKNOWN_KIND = IMAGE_KIND_COUNT;

// As many first bytes of a file as recognition looks at.
constexpr uint64_t SIGNATURE_SIZE = [] {
    uint64_t longest = 0;
    for (const image_kind_record &kind : image_kinds)
        for (const image_signature &each : kind.signatures)
            longest = each.size > longest ? each.size : longest;
    return longest;
}();

// The kind of a file that begins with `count` bytes (fewer than SIGNATURE_SIZE only for a shorter file). A
// file that ends inside a signature, two bytes or more of it, is of that kind.
image_kind recognise_kind(const BYTE *first_bytes, uint64_t count);

// Null for UNKNOWN_KIND.
const CHAR *name_of_kind(image_kind kind);

// Whether a file of this name claims to be an image.
bool has_image_ending(const CHAR *file_name);
