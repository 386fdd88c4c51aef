// TIFF: the first directory describes the image; every directory of the chain must be sound.

#include "tiff_directory.h"

namespace {

bool read_side(const tiff_directory &directory, WORD tag, uint64_t &pixels, IMAGE_FACTS &facts)
{
    const tiff_field field = tiff_find_field(directory, tag);
    bool ok = field.is_present();
    if (ok)
        pixels = tiff_whole_number(field, 0, ok);
    if (!ok)
        OS_sprintf(facts.problem, "corrupt: it gives no image %s",
                   tag == TIFF_TAG_WIDTH ? "width" : "height");
    return ok;
}

bool read_size(const tiff_directory &directory, IMAGE_FACTS &facts)
{
    uint64_t width = 0;
    uint64_t height = 0;
    return read_side(directory, TIFF_TAG_WIDTH, width, facts) &&
           read_side(directory, TIFF_TAG_HEIGHT, height, facts) &&
           accept_size(facts, width, height, directory.structure.data.size, ANY_PIXELS_PER_BYTE);
}

/* The bytes of structure that may still be looked at. Sound directories and tables do not overlap, so
 * together they take no more than the file has. A chain that runs in a circle, or many directories that share
 * one table, use the budget up: the walk ends after a time that the file's size bounds. */
struct structure_budget {
    uint64_t bytes;

    bool spend(uint64_t count, IMAGE_FACTS &facts)
    {
        if (count > bytes)
            return report_problem(facts, "corrupt: its directories form a circle or overlap");
        bytes -= count;
        return true;
    }
    bool spend_on(const tiff_field &field, IMAGE_FACTS &facts)
    {
        return field.is_inline || spend(field.size(), facts);
    }
};

// The pieces, strips or tiles, that the pixels are stored in. Sizes may be missing for a single one.
bool check_pieces(const tiff_directory &directory, WORD offsets_tag, WORD sizes_tag, structure_budget &budget,
                  IMAGE_FACTS &facts)
{
    const tiff_field offsets = tiff_find_field(directory, offsets_tag);
    const tiff_field sizes = tiff_find_field(directory, sizes_tag);
    if (!budget.spend_on(offsets, facts) || !budget.spend_on(sizes, facts))
        return false;
    bool ok = true;
    for (uint64_t i = 0; i < offsets.count; ++i) {
        const uint64_t offset = tiff_whole_number(offsets, i, ok);
        const uint64_t size = i < sizes.count ? tiff_whole_number(sizes, i, ok) : 0;
        if (!ok)
            return report_problem(facts, "corrupt: the places of its pixels are no numbers");
        if (!directory.structure.data.holds(offset, size))
            return report_problem(facts, "truncated or corrupt: its pixels lie outside the file");
    }
    return true;
}

bool check_pixels(const tiff_directory &directory, structure_budget &budget, IMAGE_FACTS &facts)
{
    return check_pieces(directory, TIFF_TAG_STRIP_OFFSETS, TIFF_TAG_STRIP_SIZES, budget, facts) &&
           check_pieces(directory, TIFF_TAG_TILE_OFFSETS, TIFF_TAG_TILE_SIZES, budget, facts);
}

bool read_directory(const tiff_structure &structure, uint64_t offset, tiff_directory &directory,
                    IMAGE_FACTS &facts)
{
    const auto place = static_cast<unsigned long long>(offset);
    directory = tiff_read_directory(structure, offset);
    if (!directory.is_whole) {
        OS_sprintf(facts.problem, "truncated or corrupt: its directory at byte %llu lies outside the file",
                   place);
        return false;
    }
    if (directory.entry_count == 0) {
        OS_sprintf(facts.problem, "corrupt: its directory at byte %llu is empty", place);
        return false;
    }
    return true;
}

bool check_chain(tiff_directory directory, IMAGE_FACTS &facts)
{
    structure_budget budget = {directory.structure.data.size};
    for (;;) {
        if (!budget.spend(directory.size(), facts) || !tiff_check_fields(directory, facts) ||
            !check_pixels(directory, budget, facts))
            return false;
        if (directory.next_offset == 0)
            return true;
        if (!read_directory(directory.structure, directory.next_offset, directory, facts))
            return false;
    }
}

}  // namespace

const IMAGE_MODULE_IDENTITY image_module_identity = {IMAGE_MODULE_VERSION, "tiff"};

void image_module_read(const BYTE *data, uint64_t size, IMAGE_FACTS *facts)
{
    tiff_structure file = {};
    tiff_directory first = {};
    if (!tiff_open({data, size, byte_order::little_endian}, file, *facts))
        return;
    if (file.first_offset == 0) {
        report_problem(*facts, "corrupt: it has no directory");
        return;
    }
    if (!read_directory(file, file.first_offset, first, *facts) || !read_size(first, *facts))
        return;
    tiff_read_resolution(first, *facts);
    check_chain(first, *facts);
}
