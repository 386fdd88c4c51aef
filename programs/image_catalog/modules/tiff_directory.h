// The structure that TIFF files, and the Exif data of JPEG files, are made of: a header that names the byte
// order and the width of offsets, then a chain of directories of tagged fields.
#pragma once

#include "byte_view.h"
#include "image_facts.h"

constexpr WORD TIFF_TAG_WIDTH = 256;
constexpr WORD TIFF_TAG_HEIGHT = 257;
constexpr WORD TIFF_TAG_STRIP_OFFSETS = 273;
constexpr WORD TIFF_TAG_STRIP_SIZES = 279;
constexpr WORD TIFF_TAG_X_RESOLUTION = 282;
constexpr WORD TIFF_TAG_Y_RESOLUTION = 283;
constexpr WORD TIFF_TAG_RESOLUTION_UNIT = 296;
constexpr WORD TIFF_TAG_TILE_OFFSETS = 324;
constexpr WORD TIFF_TAG_TILE_SIZES = 325;

// The sizes of a directory's parts, in bytes.
struct tiff_layout {
    uint64_t entry_count;
    uint64_t entry;
    uint64_t offset;  // also of a count of values, and of the room for values in the entry itself
};

struct tiff_structure {
    byte_view data;  // offsets count from its beginning
    tiff_layout sizes;
    uint64_t first_offset;  // of the first directory; 0 when there is none
};

struct tiff_directory {
    tiff_structure structure;
    uint64_t offset;
    uint64_t entry_count;  // that lie inside the data, all of them unless it is cut off
    bool is_whole;         // so does the offset of the next directory
    uint64_t next_offset;  // 0 at the end of the chain
    uint64_t entry(uint64_t index) const
    {
        return offset + structure.sizes.entry_count + structure.sizes.entry * index;
    }
    uint64_t size() const { return entry(entry_count) + structure.sizes.offset - offset; }
};

// The values of one field, all inside the data.
struct tiff_field {
    byte_view data;
    WORD type;
    uint64_t count;         // 0 when the field is not there, or has no values that can be read
    uint64_t value_offset;  // of the first value
    bool is_present() const { return count != 0; }
    bool is_inline;  // the values stand in the directory itself
    uint64_t size() const;
};

// Read the header. Fails with a reason in `facts`.
bool tiff_open(const byte_view &bytes, tiff_structure &structure, IMAGE_FACTS &facts);

// As much of a directory as lies inside the data.
tiff_directory tiff_read_directory(const tiff_structure &structure, uint64_t offset);

tiff_field tiff_find_field(const tiff_directory &directory, WORD tag);

// Check that the values of every field lie inside the data.
bool tiff_check_fields(const tiff_directory &directory, IMAGE_FACTS &facts);

// The whole number at `index`, below the field's count. `ok` turns false when the field holds no such, or a
// negative one.
uint64_t tiff_whole_number(const tiff_field &field, uint64_t index, bool &ok);

// Read the resolution fields. What cannot be read names no resolution, and is no problem: no viewer minds.
void tiff_read_resolution(const tiff_directory &directory, IMAGE_FACTS &facts);
