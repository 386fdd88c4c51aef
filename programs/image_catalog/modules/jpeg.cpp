// JPEG: segments that begin with a marker, and compressed data behind each start of scan.

#include "byte_view.h"
#include "image_facts.h"
#include "tiff_directory.h"

namespace {

constexpr BYTE MARKER_SOF0 = 0xC0;
constexpr BYTE MARKER_DHT = 0xC4;
constexpr BYTE MARKER_JPG = 0xC8;
constexpr BYTE MARKER_DAC = 0xCC;
constexpr BYTE MARKER_SOF15 = 0xCF;
constexpr BYTE MARKER_RST0 = 0xD0;
constexpr BYTE MARKER_RST7 = 0xD7;
constexpr BYTE MARKER_EOI = 0xD9;
constexpr BYTE MARKER_SOS = 0xDA;
constexpr BYTE MARKER_APP0 = 0xE0;
constexpr BYTE MARKER_APP1 = 0xE1;
constexpr BYTE MARKER_TEM = 0x01;

bool is_start_of_frame(BYTE marker)
{
    return marker >= MARKER_SOF0 && marker <= MARKER_SOF15 && marker != MARKER_DHT && marker != MARKER_JPG &&
           marker != MARKER_DAC;
}

bool has_segment(BYTE marker)
{
    return marker != MARKER_TEM && (marker < MARKER_RST0 || marker > MARKER_EOI);
}

struct segment {
    BYTE marker;
    byte_view data;  // behind the length; empty for a marker that stands alone
    uint64_t end;    // offset of what comes next
};

struct jpeg_state {
    bool has_frame;
    bool has_scan;
    bool has_exif;
    bool has_exif_resolution;
};

bool read_segment(const byte_view &file, uint64_t offset, segment &found, IMAGE_FACTS &facts)
{
    const auto place = static_cast<unsigned long long>(offset);
    if (file.holds(offset, 1) && file.byte(offset) != 0xFF) {
        OS_sprintf(facts.problem, "corrupt: no marker at byte %llu", place);
        return false;
    }
    while (file.holds(offset, 1) && file.byte(offset) == 0xFF)  // any number of them may fill a gap
        ++offset;
    if (!file.holds(offset, 1))
        return report_problem(facts, "truncated: the file ends without an end-of-image marker");
    found = {file.byte(offset), file.part(offset, 0), offset + 1};
    if (!has_segment(found.marker))
        return true;
    const uint64_t length = file.word(offset + 1);
    if (file.holds(offset + 1, 2) && length < 2) {
        OS_sprintf(facts.problem, "corrupt: no valid segment at byte %llu", place);
        return false;
    }
    if (!file.holds(offset + 1, 2) || !file.holds(offset + 1, length)) {
        OS_sprintf(facts.problem, "truncated: the file ends inside its segment at byte %llu", place);
        return false;
    }
    found.data = file.part(offset + 3, length - 2);
    found.end = offset + 1 + length;
    return true;
}

// Compressed data holds 0xFF only in front of a zero byte or a restart marker.
uint64_t end_of_compressed_data(const byte_view &file, uint64_t offset)
{
    for (; file.holds(offset, 2); ++offset) {
        const BYTE next = file.data[offset + 1];
        if (file.data[offset] == 0xFF && next != 0 && !(next >= MARKER_RST0 && next <= MARKER_RST7))
            return offset;
    }
    return file.size;
}

bool read_frame(const segment &found, uint64_t file_size, IMAGE_FACTS &facts)
{
    if (found.data.size < 6)
        return report_problem(facts, "corrupt: its frame header is too short");
    // In the three usual processes a block of a component takes a bit at least, and 16 blocks make the
    // largest group in either direction, of 8 x 8 pixels each.
    const bool takes_a_bit_per_block = found.marker <= MARKER_SOF0 + 2;
    constexpr uint64_t pixels_per_byte = UINT64_C(32) * 32 * 8;
    return accept_size(facts, found.data.word(3), found.data.word(1), file_size,
                       takes_a_bit_per_block ? pixels_per_byte : ANY_PIXELS_PER_BYTE);
}

void read_jfif_density(const segment &found, IMAGE_FACTS &facts)
{
    constexpr BYTE per_inch = 1;
    constexpr BYTE per_centimetre = 2;
    if (!found.data.matches(0, "JFIF", 5) || found.data.size < 12)
        return;
    const BYTE code = found.data.byte(7);
    const uint64_t x = found.data.word(8);
    const uint64_t y = found.data.word(10);
    // Some writers put 1 for "unknown" and a unit with it.
    if (x == 1 || y == 1 || (code != per_inch && code != per_centimetre))
        return;
    store_resolution(facts, {x, 1, y, 1, code == per_inch ? ZT_RES_UNIT_INCH : ZT_RES_UNIT_CENTIMETER});
}

// A resolution in the Exif data replaces that of JFIF, whichever comes first. No viewer needs the data: where
// it is damaged, what can still be read of it counts.
void read_exif(const segment &found, jpeg_state &state, IMAGE_FACTS &facts)
{
    constexpr uint64_t name_size = 6;
    if (state.has_exif || !found.data.matches(0, "Exif\0", name_size))
        return;
    state.has_exif = true;
    tiff_structure structure = {};
    IMAGE_FACTS exif = {};
    constexpr uint64_t header_size = 8;  // no directory begins inside
    if (!tiff_open(found.data.part(name_size, found.data.size - name_size), structure, exif) ||
        structure.first_offset < header_size)
        return;
    tiff_read_resolution(tiff_read_directory(structure, structure.first_offset), exif);
    if (!exif.has_dpi)
        return;
    state.has_exif_resolution = true;
    facts.has_dpi = exif.has_dpi;
    facts.dpi_x = exif.dpi_x;
    facts.dpi_y = exif.dpi_y;
}

bool read_facts(const segment &found, uint64_t file_size, jpeg_state &state, IMAGE_FACTS &facts)
{
    if (found.marker == MARKER_APP0 && !state.has_exif_resolution)
        read_jfif_density(found, facts);
    if (found.marker == MARKER_APP1)
        read_exif(found, state, facts);
    if (found.marker == MARKER_SOS)
        state.has_scan = true;
    if (!is_start_of_frame(found.marker) || state.has_frame)
        return true;
    state.has_frame = true;
    return read_frame(found, file_size, facts);
}

bool check_parts(const jpeg_state &state, IMAGE_FACTS &facts)
{
    if (!state.has_frame)
        return report_problem(facts, "corrupt: it has no frame header");
    if (!state.has_scan)
        return report_problem(facts, "corrupt: it has no image data");
    return true;
}

}  // namespace

const IMAGE_MODULE_IDENTITY image_module_identity = {IMAGE_MODULE_VERSION, "jpeg"};

void image_module_read(const BYTE *data, uint64_t size, IMAGE_FACTS *facts)
{
    const byte_view file = {data, size, byte_order::big_endian};
    jpeg_state state = {};
    segment found = {};
    uint64_t offset = 2;  // behind the start-of-image marker
    do {
        if (!read_segment(file, offset, found, *facts) || !read_facts(found, size, state, *facts))
            return;
        offset = found.marker == MARKER_SOS ? end_of_compressed_data(file, found.end) : found.end;
    } while (found.marker != MARKER_EOI);
    check_parts(state, *facts);
}
