// BMP: a file header of 14 bytes, an information header that begins with its own size, then the pixels.

#include "byte_view.h"
#include "image_facts.h"

namespace {

constexpr uint64_t FILE_HEADER_SIZE = 14;
constexpr uint32_t CORE_HEADER_SIZE = 12;  // the oldest: 16-bit sides and no resolution
constexpr uint32_t INFO_HEADER_SIZE = 16;  // all later ones, which may end behind any field from this on
constexpr uint32_t OS2_HEADER_SIZE = 64;   // its codes of compression differ
constexpr uint32_t LONGEST_HEADER_SIZE = 124;

struct bitmap_header {
    int64_t width;
    int64_t height;  // negative: rows run from the top down
    uint32_t bits_per_pixel;
    uint32_t compression;
    uint32_t pixels_per_metre_x;
    uint32_t pixels_per_metre_y;
};

bool is_known_header_size(uint32_t size)
{
    return size == CORE_HEADER_SIZE || (size >= INFO_HEADER_SIZE && size <= LONGEST_HEADER_SIZE);
}

bitmap_header read_core_header(const byte_view &header)
{
    return {header.word(4), header.word(6), header.word(10), 0, 0, 0};
}

// Fields behind the end of a short header read as 0.
bitmap_header read_info_header(const byte_view &header)
{
    constexpr uint32_t packed = UINT32_MAX;
    const uint32_t compression = header.dword(16);
    const bool is_packed = header.size == OS2_HEADER_SIZE && compression != 0;
    const auto width = static_cast<int32_t>(header.dword(4));
    const auto height = static_cast<int32_t>(header.dword(8));
    return {width,           height, header.word(14), is_packed ? packed : compression, header.dword(24),
            header.dword(28)};
}

bool is_uncompressed(const bitmap_header &header)
{
    constexpr uint32_t none = 0;
    constexpr uint32_t bit_fields = 3;
    constexpr uint32_t alpha_bit_fields = 6;
    return header.compression == none || header.compression == bit_fields ||
           header.compression == alpha_bit_fields;
}

bool is_pixel_size(uint32_t bits)
{
    return bits == 1 || bits == 2 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32 ||
           bits == 64;
}

// Rows are padded to whole groups of four bytes. At most 2^31 * 64 bits to a row, and 2^31 rows: the row is
// divided into the room there is, so that nothing overflows.
bool has_all_rows(const bitmap_header &header, uint64_t height, uint64_t pixel_bytes)
{
    const uint64_t row_bytes = (static_cast<uint64_t>(header.width) * header.bits_per_pixel + 31) / 32 * 4;
    return pixel_bytes / row_bytes >= height;
}

void store_pixels_per_metre(const bitmap_header &header, IMAGE_FACTS &facts)
{
    // Signed in the format's description, but read as unsigned by the programs that show it.
    store_resolution(facts, {header.pixels_per_metre_x, 1, header.pixels_per_metre_y, 1, ZT_RES_UNIT_METER});
}

bool check_pixels(const byte_view &file, const bitmap_header &header, uint64_t header_size,
                  IMAGE_FACTS &facts)
{
    const uint64_t pixel_offset = file.dword(10);
    if (pixel_offset < FILE_HEADER_SIZE + header_size)
        return report_problem(facts, "corrupt: its pixels begin inside its header");
    if (pixel_offset >= file.size)
        return report_problem(facts, "truncated: its pixels would begin behind the end of the file");
    if (is_uncompressed(header) && !has_all_rows(header, facts.height, file.size - pixel_offset))
        return report_problem(facts, "truncated: the file ends before its last row of pixels");
    if (file.dword(2) > file.size)
        return report_problem(facts, "truncated: the file is shorter than its header says");
    return true;
}

}  // namespace

const IMAGE_MODULE_IDENTITY image_module_identity = {IMAGE_MODULE_VERSION, "bmp"};

void image_module_read(const BYTE *data, uint64_t size, IMAGE_FACTS *facts)
{
    const byte_view file = {data, size, byte_order::little_endian};
    const uint32_t header_size = file.dword(FILE_HEADER_SIZE);
    if (!file.holds(FILE_HEADER_SIZE, 4)) {
        report_problem(*facts, "truncated: the file ends inside its header");
        return;
    }
    if (!is_known_header_size(header_size)) {
        OS_sprintf(facts->problem, "corrupt: unknown header of %u bytes", header_size);
        return;
    }
    if (!file.holds(FILE_HEADER_SIZE, header_size)) {
        report_problem(*facts, "truncated: the file ends inside its header");
        return;
    }
    const byte_view header_bytes = file.part(FILE_HEADER_SIZE, header_size);
    const bitmap_header header =
        header_size == CORE_HEADER_SIZE ? read_core_header(header_bytes) : read_info_header(header_bytes);
    const auto height = static_cast<uint64_t>(header.height < 0 ? -header.height : header.height);
    if (header.width < 0) {
        report_problem(*facts, "corrupt: its width is negative");
        return;
    }
    if (is_uncompressed(header) && !is_pixel_size(header.bits_per_pixel)) {
        OS_sprintf(facts->problem, "corrupt: unknown pixel size of %u bits", header.bits_per_pixel);
        return;
    }
    if (!accept_size(*facts, static_cast<uint64_t>(header.width), height, size, ANY_PIXELS_PER_BYTE))
        return;
    store_pixels_per_metre(header, *facts);
    check_pixels(file, header, header_size, *facts);
}
