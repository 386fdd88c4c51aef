/* Conversions, ASCII case, CRC-32 and MD5.
 *
 * No function allocates. Pointers must be valid unless null is mentioned.
 *
 * Conversions of a double to an unsigned 64-bit result cut off toward zero; 2^64 or more gives 0, a negative
 * value its two's complement, and one below -2^63 gives 2^63.
 *
 * Status: Bsu_convert_resolution returns 0, or -2445 for a target unit it does not know.
 *
 * Threads: every function may be called from any thread; one MD5 record is used by one thread at a time.
 */
#ifndef FOUNDATION_UTIL_H
#define FOUNDATION_UTIL_H

#include "foundation/attributes_begin.h"
#include "foundation/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Library version ---- */

/* The date on which the library was built, as "Mmm dd yyyy", days 1 to 9 with a leading space. A constant:
 * the same pointer on every call. */
const CHAR *iQV_version_compile_date(void) FOUNDATION_USE_RESULT;

/* ---- Image resolution ---- */

/* Dots per inch to pixels per metre: dpi * 39.37 + 0.5, cut off toward zero. */
uint64_t iQV_convert_DPI_to_PPM(LONG dots_per_inch) FOUNDATION_USE_RESULT;

/* Pixels per metre to dots per inch: ppm * 0.0254 + 0.5, cut off toward zero. */
uint64_t iQV_convert_PPM_to_DPI(LONG pixels_per_metre) FOUNDATION_USE_RESULT;

/* Unit codes: what a resolution counts its dots per. Only METER and INCH can be converted to. */
#define ZT_RES_UNIT_METER UINT64_C(2)
#define ZT_RES_UNIT_INCH UINT64_C(3)
#define ZT_RES_UNIT_CENTIMETER UINT64_C(4)
#define ZT_RES_UNIT_10_INCHES UINT64_C(5)
#define ZT_RES_UNIT_10_CENTIMETERS UINT64_C(6)

/* A resolution on two axes, numerator / denominator dots per unit. */
typedef struct ZT_RESOLUTION {
    uint64_t x_numerator;   /* dots */
    uint64_t x_denominator; /* 0 is read as 1 */
    uint64_t y_numerator;   /* dots */
    uint64_t y_denominator; /* 0 is read as 1 */
    uint64_t unit;          /* ZT_RES_UNIT_...; any other code is taken for the target's own unit */
} ZT_RESOLUTION;

/* What Bsu_convert_resolution returns for any other target unit. */
#define ZR_ERR_TARGET_UNIT (-2445)

/* Convert `resolution` to whole dots per `target_unit` (METER or INCH); results through `x` and `y`, either
 * of which may be null. To METER truncates; to INCH rounds half up, except from 10_INCHES, which truncates;
 * between equal units it is an integer division. The factors are 39.37 and its relatives, in doubles, so 72
 * per inch give 2834 per metre here and 2835 by iQV_convert_DPI_to_PPM, and 200 per inch 7873, as their
 * product comes out just below 7874. Returns 0, or -2445 with both results 0 for any other target. */
ZT_ERRCOUNT Bsu_convert_resolution(uint64_t target_unit, uint64_t *x, uint64_t *y, ZT_RESOLUTION resolution);

/* ---- Byte order: ii_ for little-endian data, mm_ for big-endian data ---- */

/* Return the argument unchanged, all 64 bits of it: the processor is little-endian. */
uint64_t ii_dword_swap(uint64_t value) FOUNDATION_USE_RESULT;
int64_t ii_qword_swap(int64_t value) FOUNDATION_USE_RESULT;

/* Reverse the four bytes of a word below 2^32; USE THE LOW 32 BITS of the result. The bits above them hold
 * a residue (0x12345678 gives 0x0012345678563412), and bits of `value` above 31 are not masked off. */
uint64_t mm_dword_swap(uint64_t value) FOUNDATION_USE_RESULT;

/* Reverse the eight bytes of a value from 0 to 2^32 - 1. For any other value the result is that of two
 * mm_dword_swap joined with their residues, NOT a byte reversal: swap the halves one by one instead. */
int64_t mm_qword_swap(int64_t value) FOUNDATION_USE_RESULT;

/* ---- Text ---- */

/* Write `value` with `precision` decimals to `buffer`, unbounded: give it 24 bytes, or 13 + `precision` for
 * a precision above 11. Half a unit of the last digit is added whatever the sign, and the rest is cut off:
 * negative values are rounded upward (-7.0 with 3 decimals gives "-6.999") and lose their sign where the
 * whole number comes out as 0. A precision below 1 prints the whole number alone; a negative one first
 * adds 5 for -1, 50 for -2 and so on (12.3 with -1 gives "17"). A whole number or fraction outside the
 * 32-bit range, as most fractions of more than 9 decimals are, or not a number, becomes -2147483648.
 * Returns the number of characters written. */
INT Bsu_double_to_string(INT precision, CHAR *buffer, double value) FOUNDATION_NONNULL(2);

/* Change A-Z to a-z, or a-z to A-Z, in place; every other byte stays, and no locale is consulted. Texts of
 * 2 GiB or more are outside what these functions handle. Return `text`. */
CHAR *Bsu_strlwr(CHAR *text) FOUNDATION_NONNULL(1);
CHAR *Bsu_strupr(CHAR *text) FOUNDATION_NONNULL(1);

/* ---- CRC-32 ---- */

/* Build the table behind ZR_util_CRC_calc, which does so itself in its first call. Meant for the library
 * itself; calling it again, from any thread, changes nothing. The table stays for the life of the process. */
void _ZR_make_crc_table(void);

/* CRC-32/ISO-HDLC of `length` bytes (ISO/IEC 13239, ITU-T V.42; the checksum of PNG, gzip and zlib's crc32:
 * polynomial 0x04C11DB7 reflected, initial value and final XOR 0xFFFFFFFF), in the low 32 bits. Every call
 * starts afresh; a CRC over several buffers cannot be continued. A length of 0 gives 0 and reads nothing,
 * null allowed. */
uint64_t ZR_util_CRC_calc(const void *data, uint64_t length);

/* ---- MD5 (RFC 1321) ----
 * MD5Init, MD5Update any number of times, MD5Final; then the digest stands in the record. Another message
 * needs a new MD5Init; fed or finished again without one, the record gives meaningless digests. Not fit for
 * security: collisions can be made at will. Other libraries export these three names too. A host that links
 * one of them names it in front of this library (libmd itself, also for what libbsd does with it), or its own
 * calls would end up here; this library's calls never leave it. */

/* A running digest, the caller's. The library keeps no pointer to it. */
typedef struct ZT_MD5_CONTEXT {
    uint32_t bit_count[2]; /* message bits fed so far, modulo 2^64, low word first      */
    uint32_t state[4];     /* chaining values A, B, C, D                                */
    BYTE buffer[64];       /* input not yet compressed; the next byte goes to position
                              (bit_count[0] / 8) modulo 64                              */
    BYTE digest[16];       /* the result, written by MD5Final                           */
} ZT_MD5_CONTEXT;

/* Begin a digest. `buffer` and `digest` are left as they are. */
void MD5Init(ZT_MD5_CONTEXT *context) FOUNDATION_NONNULL(1);

/* Feed `length` bytes of the message. A length of 0 reads nothing, null allowed. */
void MD5Update(ZT_MD5_CONTEXT *context, const void *input, UINT length) FOUNDATION_NONNULL(1);

/* Finish a digest: it is then in `context->digest`, its first byte first. The record is not wiped: it may
 * still hold the last bytes of the message. */
void MD5Final(ZT_MD5_CONTEXT *context) FOUNDATION_NONNULL(1);

#ifdef __cplusplus
}
#endif

#include "foundation/attributes_end.h"

#endif
