// The structure that TIFF files, and the Exif data of JPEG files, are made of: a header that names the byte
// order, then a chain of directories of tagged fields.
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

// A directory whose entries all lie inside the data.
struct tiff_directory {
    byte_view data;  // offsets count from its beginning
    uint64_t offset;
    uint64_t entry_count;
    uint64_t next_offset;  // 0 at the end of the chain
    uint64_t size() const { return 2 + 12 * entry_count + 4; }
};

// The values of one field, all inside the data.
struct tiff_field {
    byte_view data;
    WORD type;
    uint64_t count;         // at least 1 when the field is there, 0 when it is not
    uint64_t value_offset;  // of the first value
    bool is_present() const { return count != 0; }
    bool is_inline;  // the values stand in the directory itself
    uint64_t size() const;
};

// Read the header. Fails with a reason in `facts`. `first` receives the first directory's offset.
bool tiff_open(const byte_view &bytes, byte_view &data, uint64_t &first, IMAGE_FACTS &facts);

bool tiff_read_directory(const byte_view &data, uint64_t offset, tiff_directory &directory,
                         IMAGE_FACTS &facts);

// Find a field. Absence is no failure; values that lie outside the data are.
bool tiff_find_field(const tiff_directory &directory, WORD tag, tiff_field &field, IMAGE_FACTS &facts);

// Check that the values of every field lie inside the data.
bool tiff_check_fields(const tiff_directory &directory, IMAGE_FACTS &facts);

// The whole number at `index`, below the field's count. `ok` turns false when the field holds no such.
uint64_t tiff_whole_number(const tiff_field &field, uint64_t index, bool &ok);

// Read the resolution fields into `facts`, which stay 0 when there are none. `is_given` tells the two apart.
bool tiff_read_resolution(const tiff_directory &directory, bool &is_given, IMAGE_FACTS &facts);
