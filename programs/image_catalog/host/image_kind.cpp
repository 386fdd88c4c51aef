#include "image_kind.h"

#include <string.h>
#include <strings.h>

namespace {

bool matches(const image_signature &candidate, const BYTE *bytes, uint64_t count)
{
    for (uint64_t i = 0; i < candidate.size && i < count; ++i) {
        const INT mask = candidate.mask != nullptr ? candidate.mask[i] : -1;
        if (((candidate.bytes[i] ^ bytes[i]) & mask & 0xFF) != 0)
            return false;
    }
    return candidate.size != 0;
}

bool is_one_of(const CHAR *ending, uint64_t length, const CHAR *endings)
{
    while (*endings != '\0') {
        const uint64_t next = 1 + strcspn(endings + 1, ".");
        if (next == length && strncasecmp(ending, endings, length) == 0)
            return true;
        endings += next;
    }
    return false;
}

}  // namespace

image_kind recognise_kind(const BYTE *first_bytes, uint64_t count)
{
    if (count < 2)
        return UNKNOWN_KIND;
    for (image_kind kind = 0; kind < IMAGE_KIND_COUNT; ++kind)
        for (const image_signature &candidate : image_kinds[kind].signatures)
            if (matches(candidate, first_bytes, count))
                return kind;
    return UNKNOWN_KIND;
}

const CHAR *name_of_kind(image_kind kind)
{
    return kind < IMAGE_KIND_COUNT ? image_kinds[kind].name : nullptr;
}

bool has_image_ending(const CHAR *file_name)
{
    const CHAR *ending = strrchr(file_name, '.');
    if (ending == nullptr)
        return false;
    for (const image_kind_record &kind : image_kinds)
        if (is_one_of(ending, strlen(ending), kind.endings))
            return true;
    return false;
}
