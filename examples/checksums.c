/* Checksums: CRC-32 in one call, MD5 piece by piece. */
#include <foundation/os.h>
#include <foundation/util.h>

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

/* An MD5 digest and an identifier have 16 bytes each, so the text of the one serves for the other. */
static void print_digest(const char *what, const ZT_MD5_CONTEXT *context)
{
    CHAR text[33]; /* 32 digits and the terminator */
    OS_guid_to_string(context->digest, text);
    printf("%s: %s\n", what, text);
}

int main(void)
{
    static const char message[] = "123456789"; /* the text that catalogues of CRCs give as their check */
    const uint64_t length = strlen(message);

    /* The CRC stands in the low 32 bits. Each call starts afresh: the data must lie in one piece. */
    printf("CRC-32: %08" PRIx64 "\n", ZR_util_CRC_calc(message, length));

    /* MD5 keeps a record that is ours, so data may come in pieces, as from a file. */
    ZT_MD5_CONTEXT whole, pieces;
    MD5Init(&whole);
    MD5Update(&whole, message, (UINT)length);
    MD5Final(&whole);
    print_digest("MD5 of the whole", &whole);

    MD5Init(&pieces);
    MD5Update(&pieces, message, 4);
    MD5Update(&pieces, message + 4, (UINT)length - 4);
    MD5Final(&pieces); /* the next digest begins with MD5Init again */
    print_digest("MD5 of the pieces", &pieces);
    return 0;
}

/* Prints:
 * CRC-32: cbf43926
 * MD5 of the whole: 25f9e794323b453885f5181f1b624d0b
 * MD5 of the pieces: 25f9e794323b453885f5181f1b624d0b
 */
