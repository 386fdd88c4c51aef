#include "bad_files.h"

#include "image_bytes.h"

#include <stdint.h>

namespace {

std::vector<bad_file> bad_png_files()
{
    const std::string good = png_image();
    std::string flipped = good;
    flipped[good.find("IDAT") + 6] ^= 0x01;
    const std::string signature = good.substr(0, 8);
    const std::string pixels = png_pixels(20, 10);
    const std::string size = std::to_string(good.size());
    return {
        {"flipped-bit.png", flipped, "corrupt: wrong checksum of its IDAT chunk at byte 33"},
        {"flipped-header-bit.png", with_bytes(good, 17, "\x01"),
         "corrupt: wrong checksum of its IHDR chunk at byte 8"},
        {"signature-only.png", signature, "truncated: the file ends without an IEND chunk"},
        {"half-signature.png", signature.substr(0, 4), "truncated: the file ends inside its signature"},
        {"cut-in-frame.png", good.substr(0, 38), "truncated: the file ends inside a chunk's frame"},
        {"cut-in-chunk.png", good.substr(0, 46), "truncated: the file ends inside its IDAT chunk at byte 33"},
        {"without-end.png", good.substr(0, good.size() - 12),
         "truncated: the file ends without an IEND chunk"},
        {"endless-chunk.png", with_bytes(good, 33, "\xFF\xFF\xFF\xFF"), "corrupt: no valid chunk at byte 33"},
        {"long-chunk.png", with_bytes(good, 33, "\x7F\xFF\xFF\xFF"),
         "truncated: the file ends inside its IDAT chunk at byte 33"},
        {"no-chunk.png", with_bytes(good, 37, std::string("\0\x1b\n%", 4)),
         "corrupt: no valid chunk at byte 33"},
        {"late-header.png", png_file({pixels, png_header(20, 10)}),
         "corrupt: it does not begin with an IHDR chunk of 13 bytes"},
        {"short-header.png", png_file({png_chunk("IHDR", "short"), pixels}),
         "corrupt: it does not begin with an IHDR chunk of 13 bytes"},
        {"odd-depth.png", png_file({png_header(20, 10, 3), pixels}),
         "corrupt: IHDR gives an unknown pixel format"},
        {"odd-colour.png", png_file({png_header(20, 10, 8, 5), pixels}),
         "corrupt: IHDR gives an unknown pixel format"},
        {"no-width.png", png_file({png_header(0, 10), pixels}), "header claims an impossible size of 0 x 10"},
        {"no-height.png", png_file({png_header(20, 0), pixels}),
         "header claims an impossible size of 20 x 0"},
        {"too-wide.png", png_file({png_header(0x80000000, 10), pixels}),
         "header claims an impossible size of 2147483648 x 10"},
        {"huge.png", png_file({png_header(0x7FFFFFFF, 0x7FFFFFFF), pixels}),
         "header claims 2147483647 x 2147483647 pixels, more than its " + size + " bytes can hold"},
        {"large.png", png_file({png_header(1000, 1000, 16, 6), pixels}),
         "header claims 1000 x 1000 pixels, more than its " + size + " bytes can hold"},
        {"no-pixels.png", png_file({png_header(20, 10)}), "corrupt: it has no IDAT chunk"},
    };
}

std::vector<bad_file> bad_tiff_files(byte_order order)
{
    const std::string good = tiff_image(order, {ratio(order, 282, 300, 1), ratio(order, 283, 300, 1)});
    const auto changed = [&](const tiff_field &field) {
        return tiff_image(order, {field});
    };
    const auto header_with = [&](uint32_t first) {
        return with_bytes(good, 4, number(order, first, 4));
    };
    const std::string entry_256 = number(order, 256, 2) + number(order, TIFF_SHORT, 2);
    const std::string entry_282 = number(order, 282, 2) + number(order, TIFF_RATIONAL, 2);
    const size_t ratio_offset = good.find(entry_282) + 8;
    const std::vector<tiff_field> usual = tiff_fields(order);
    const uint32_t second = TIFF_DIRECTORY + 2 + 12 * 9 + 4;  // behind the usual directory
    const std::string two_directories = tiff_file(order, usual, second) + number(order, 1, 2) +
                                        number(order, 254, 2) + number(order, TIFF_LONG, 2) +
                                        number(order, 1, 4) + number(order, 0, 4);
    const auto strips = [&](uint32_t count) {
        return tiff_field{273, TIFF_LONG, count, number(order, 8, 4) + number(order, 8, 4)};
    };
    const std::string big = big_tiff_image(order, {ratio(order, 282, 300, 1)});
    const size_t big_ratio = big.find(entry_282);
    const std::string prefix = order == byte_order::LITTLE ? "ii-" : "mm-";
    return {
        {prefix + "header-only.tif", good.substr(0, 4), "truncated: the file ends inside its header"},
        {prefix + "no-directory.tif", header_with(0), "corrupt: it has no directory"},
        {prefix + "directory-outside.tif", header_with(100000),
         "truncated or corrupt: its directory at byte 100000 lies outside the file"},
        {prefix + "directory-at-the-top.tif", header_with(0xFFFFFFFF),
         "truncated or corrupt: its directory at byte 4294967295 lies outside the file"},
        {prefix + "directory-cut.tif", good.substr(0, TIFF_DIRECTORY + 20),
         "truncated or corrupt: its directory at byte 208 lies outside the file"},
        {prefix + "empty-directory.tif", with_bytes(good, TIFF_DIRECTORY, number(order, 0, 2)),
         "corrupt: its directory at byte 208 is empty"},
        {prefix + "circle-of-one.tif", tiff_file(order, usual, TIFF_DIRECTORY),
         "corrupt: its directories form a circle or overlap"},
        {prefix + "circle-of-two.tif", two_directories + number(order, TIFF_DIRECTORY, 4),
         "corrupt: its directories form a circle or overlap"},
        {prefix + "second-directory-outside.tif", tiff_file(order, usual, 99999),
         "truncated or corrupt: its directory at byte 99999 lies outside the file"},
        {prefix + "ratio-outside.tif", with_bytes(good, ratio_offset, number(order, 0xFFFFFFFC, 4)),
         "truncated or corrupt: its field 282 points outside the file"},
        {prefix + "ratio-cut.tif", good.substr(0, good.size() - 1),
         "truncated or corrupt: its field 283 points outside the file"},
        {prefix + "pixels-outside.tif", changed(one_value(order, 273, TIFF_LONG, 5000)),
         "truncated or corrupt: its pixels lie outside the file"},
        {prefix + "pixels-too-long.tif", changed(one_value(order, 279, TIFF_LONG, 0xFFFFFFFF)),
         "truncated or corrupt: its pixels lie outside the file"},
        {prefix + "endless-strips.tif", changed(strips(0xFFFFFFFF)),
         "truncated or corrupt: its field 273 points outside the file"},
        {prefix + "odd-strips.tif", changed({273, TIFF_ASCII, 1, "8"}),
         "corrupt: the places of its pixels are no numbers"},
        {prefix + "no-width.tif", with_bytes(good, good.find(entry_256), number(order, 255, 2)),
         "corrupt: it gives no image width"},
        {prefix + "width-of-nothing.tif", changed({256, TIFF_SHORT, 0, ""}),
         "corrupt: it gives no image width"},
        {prefix + "zero-height.tif", changed(one_value(order, 257, TIFF_SHORT, 0)),
         "header claims an impossible size of 20 x 0"},
        {prefix + "odd-height.tif", changed(ratio(order, 257, 10, 1)), "corrupt: it gives no image height"},
        {prefix + "too-wide.tif", changed(one_value(order, 256, TIFF_LONG, 0x80000000)),
         "header claims an impossible size of 2147483648 x 10"},
        {prefix + "huge.tif", changed(one_value(order, 256, TIFF_LONG, 0x7FFFFFFF)),
         "header claims 2147483647 x 10 pixels, more than its " + std::to_string(tiff_image(order).size()) +
             " bytes can hold"},
        {prefix + "wide-offsets-of-no-width.tif", with_bytes(good, 2, number(order, 43, 2)),
         "corrupt: unknown width of its offsets"},
        {prefix + "big-header-only.tif", big.substr(0, 12), "truncated: the file ends inside its header"},
        {prefix + "big-without-directory.tif", with_bytes(big, 8, number(order, 0, 8)),
         "corrupt: it has no directory"},
        {prefix + "big-directory-outside.tif", with_bytes(big, 8, number(order, UINT64_MAX, 8)),
         "truncated or corrupt: its directory at byte 18446744073709551615 lies outside the file"},
        {prefix + "big-endless-directory.tif", with_bytes(big, 216, number(order, UINT64_MAX, 8)),
         "truncated or corrupt: its directory at byte 216 lies outside the file"},
        {prefix + "big-endless-ratio.tif", with_bytes(big, big_ratio + 4, number(order, UINT64_MAX, 8)),
         "truncated or corrupt: its field 282 points outside the file"},
    };
}

std::vector<bad_file> bad_jpeg_files()
{
    const std::string good = jpeg_image(jfif_segment(1, 96, 96));
    const size_t size_offset = jpeg_size_offset(good);
    const byte_order big = byte_order::BIG;
    return {
        {"start-only.jpg", good.substr(0, 3), "truncated: the file ends without an end-of-image marker"},
        {"cut-in-data.jpg", good.substr(0, good.size() - 40),
         "truncated: the file ends without an end-of-image marker"},
        {"without-end.jpg", good.substr(0, good.size() - 2),
         "truncated: the file ends without an end-of-image marker"},
        {"cut-in-segment.jpg", good.substr(0, 10), "truncated: the file ends inside its segment at byte 2"},
        {"cut-in-length.jpg", good.substr(0, 5), "truncated: the file ends inside its segment at byte 2"},
        {"short-segment.jpg", with_bytes(good, 4, number(big, 1, 2)), "corrupt: no valid segment at byte 2"},
        {"no-marker.jpg", with_bytes(good, 20, "x"), "corrupt: no marker at byte 20"},
        {"no-frame.jpg", "\xFF\xD8" + jfif_segment(1, 96, 96) + "\xFF\xD9",
         "corrupt: it has no frame header"},
        {"no-data.jpg",
         good.substr(0, size_offset - 5) + jpeg_segment(0xC0, std::string("\x08\0\1\0\1\0", 6)) + "\xFF\xD9",
         "corrupt: it has no image data"},
        {"short-frame.jpg", good.substr(0, 20) + jpeg_segment(0xC0, "abc") + good.substr(20),
         "corrupt: its frame header is too short"},
        {"no-height.jpg", with_bytes(good, size_offset, number(big, 0, 2)),
         "header claims an impossible size of 96 x 0"},
        {"huge.jpg", with_bytes(good, size_offset, "\xFF\xFF\xFF\xFF"),
         "header claims 65535 x 65535 pixels, more than its " + std::to_string(good.size()) +
             " bytes can hold"},
    };
}

std::vector<bad_file> bad_bmp_files()
{
    const std::string good = bmp_image(5, 4, 2835, 2835);  // 54 bytes of header, 64 of pixels
    const byte_order little = byte_order::LITTLE;
    const auto changed = [&](size_t offset, uint32_t value, unsigned bytes = 4) {
        return with_bytes(good, offset, number(little, value, bytes));
    };
    return {
        {"header-cut.bmp", good.substr(0, 16), "truncated: the file ends inside its header"},
        {"information-cut.bmp", good.substr(0, 50), "truncated: the file ends inside its header"},
        {"pixels-cut.bmp", good.substr(0, good.size() - 1),
         "truncated: the file ends before its last row of pixels"},
        {"no-pixels.bmp", good.substr(0, 54), "truncated: its pixels would begin behind the end of the file"},
        {"odd-header.bmp", changed(14, 7), "corrupt: unknown header of 7 bytes"},
        {"huge-header.bmp", changed(14, 0xFFFFFFFF), "corrupt: unknown header of 4294967295 bytes"},
        {"no-width.bmp", changed(18, 0), "header claims an impossible size of 0 x 4"},
        {"negative-width.bmp", changed(18, 0xFFFFFFFB), "corrupt: its width is negative"},
        {"lowest-height.bmp", changed(22, 0x80000000), "header claims an impossible size of 5 x 2147483648"},
        {"huge.bmp", with_bytes(good, 18, "\xFF\xFF\xFF\x7F\xFF\xFF\xFF\x7F"),
         "header claims 2147483647 x 2147483647 pixels, more than its 118 bytes can hold"},
        {"wide.bmp", changed(18, 100), "truncated: the file ends before its last row of pixels"},
        {"tall.bmp", changed(22, 5), "truncated: the file ends before its last row of pixels"},
        {"odd-depth.bmp", changed(28, 7, 2), "corrupt: unknown pixel size of 7 bits"},
        {"pixels-in-header.bmp", changed(10, 20), "corrupt: its pixels begin inside its header"},
        {"pixels-outside.bmp", changed(10, 0xFFFFFFFF),
         "truncated: its pixels would begin behind the end of the file"},
        {"longer-in-header.bmp", changed(2, 500), "truncated: the file is shorter than its header says"},
    };
}

}  // namespace

std::vector<bad_file> all_bad_files()
{
    std::vector<bad_file> files = bad_png_files();
    for (const std::vector<bad_file> &more :
         {bad_tiff_files(byte_order::LITTLE), bad_tiff_files(byte_order::BIG), bad_jpeg_files(),
          bad_bmp_files()})
        files.insert(files.end(), more.begin(), more.end());
    return files;
}

void PrintTo(const bad_file &file, std::ostream *stream)
{
    *stream << file.name;
}
