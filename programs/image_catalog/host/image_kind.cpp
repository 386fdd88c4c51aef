#include "image_kind.h"

#include "foundation/os.h"

namespace {

struct signature {
    image_kind kind;
    uint64_t size;
    const CHAR *bytes;
    const CHAR *mask;  // bits that count; null when all do
};

// "BM" alone also begins many a text: the four reserved bytes of the header, always zero, go with it.
const signature signatures[] = {
    {image_kind::png, 8, "\x89PNG\r\n\x1a\n", nullptr},
    {image_kind::tiff, 4, "II*\0", nullptr},
    {image_kind::tiff, 4, "MM\0*", nullptr},
    {image_kind::tiff, 4, "II+\0", nullptr},  // with 64-bit offsets
    {image_kind::tiff, 4, "MM\0+", nullptr},
    {image_kind::bmp, 10, "BM\0\0\0\0\0\0\0\0", "\xFF\xFF\0\0\0\0\xFF\xFF\xFF\xFF"},
    {image_kind::jpeg, 3, "\xFF\xD8\xFF", nullptr},
};

bool matches(const signature &candidate, const BYTE *bytes, uint64_t count)
{
    for (uint64_t i = 0; i < candidate.size && i < count; ++i) {
        const INT mask = candidate.mask != nullptr ? candidate.mask[i] : -1;
        if (((candidate.bytes[i] ^ bytes[i]) & mask & 0xFF) != 0)
            return false;
    }
    return true;
}

}  // namespace

image_kind recognise_kind(const BYTE *first_bytes, uint64_t count)
{
    if (count < 2)
        return image_kind::unknown;
    for (const signature &candidate : signatures)
        if (matches(candidate, first_bytes, count))
            return candidate.kind;
    return image_kind::unknown;
}

const CHAR *name_of_kind(image_kind kind)
{
    switch (kind) {
    case image_kind::png:
        return "png";
    case image_kind::tiff:
        return "tiff";
    case image_kind::bmp:
        return "bmp";
    case image_kind::jpeg:
        return "jpeg";
    case image_kind::unknown:
        break;
    }
    return nullptr;
}
