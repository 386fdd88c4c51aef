/* A host in plain C for checkers of uninitialised memory, which know nothing of the C++ library's code: it
 * lets the library fill records and texts and looks at every byte of them. */
#include "foundation/array.h"
#include "foundation/date.h"
#include "foundation/memory.h"
#include "foundation/os.h"
#include "foundation/util.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures = 0;

static void expect(int is_met, const char *claim)
{
    if (is_met)
        return;
    printf("not met: %s\n", claim);
    ++failures;
}

/* A decision that depends on every byte, which a checker reports when one was never written. */
static int all_bytes_are_written(const void *record, size_t size)
{
    const BYTE *bytes = record;
    unsigned sum = 0;
    size_t i;
    for (i = 0; i < size; ++i)
        sum += bytes[i];
    if (sum == 1)
        puts("the bytes are 1 and zeroes");
    return 1;
}

static void use_blocks(void)
{
    enum { BLOCKS = 1000 };
    static LPVOID blocks[BLOCKS];
    int i;
    for (i = 0; i < BLOCKS; ++i) {
        const uint64_t tag = (uint64_t)(i % 70 + 1);
        blocks[i] = ZR_memm_alloc(tag, 8, "c_harness", __LINE__);
        memset(blocks[i], i, 8);
    }
    for (i = 0; i < BLOCKS; i += 3) {
        blocks[i] = ZR_memm_realloc((uint64_t)(i % 70 + 1), blocks[i], 64, "c_harness", __LINE__);
        expect(all_bytes_are_written(blocks[i], 8), "a grown block keeps its bytes");
    }
    for (i = 1; i < BLOCKS; i += 3)
        expect(ZR_memm_free((uint64_t)(i % 70 + 1), blocks[i], "c_harness", __LINE__) == NULL,
               "a block is freed");
    for (i = 2; i < BLOCKS; i += 90)
        expect(ZR_memm_flags((uint64_t)(i % 70 + 1), blocks[i]) == ZR_MEMM_FLAG_RECORDED,
               "a block is recorded");
    free(ZR_memm_disassociate(3, blocks[2]));
    expect(ZR_memm_associate(5, malloc(3), 3) != NULL, "a block is handed over");
    expect(ZR_memm_free_all(5) > 0, "a tag is released");
    expect(ZR_memm_cleanup() > 0, "the rest is released");
}

static INT by_value(LPVOID a, LPVOID b)
{
    return *(const INT *)a - *(const INT *)b;
}

static void use_array(void)
{
    enum { ELEMENTS = 200 };
    static INT values[ELEMENTS];
    ZT_DT_ANY *array = NULL;
    LPVOID element;
    uint64_t index, count, removed, i;
    expect(ZR_array_ptr_alloc(9, &array, 3, 1, by_value) == 0, "an array is made");
    for (i = 0; i < ELEMENTS; ++i) {
        values[i] = (INT)(i * 77 % ELEMENTS);
        expect(ZR_array_ptr_add(array, &values[i], &index) == 0 && index <= i, "an element is added");
    }
    for (i = 0; i < ELEMENTS; ++i) {
        expect(ZR_array_ptr_get(array, i, &element) == 0 && *(INT *)element == (INT)i, "they are sorted");
        expect(ZR_array_ptr_index_get(array, &values[i], &index) == 0 && index < ELEMENTS, "each is found");
    }
    for (i = 0; i < ELEMENTS / 2; ++i)
        expect(ZR_array_ptr_remove_ex(array, i, &removed, 1) == 0 && removed == 1, "one is removed");
    expect(ZR_array_ptr_count_get(array, &count) == 0 && count == ELEMENTS / 2, "the others are left");
    expect(ZR_array_ptr_delete(array) == 0, "the array is deleted");
}

static void use_texts(void)
{
    CHAR path[32], name[32], number[64], upper[] = "Mixed";
    expect(OS_sys_path_concat("", "x.so", path, 31) == 4, "a name stands alone");
    expect(OS_sys_path_concat("/usr/lib", "x.so", path, 31) == 13 && strcmp(path, "/usr/lib/x.so") == 0,
           "a path is joined");
    expect(OS_sys_compfilename_create("util", name, sizeof name) == 14, "a name is composed");
    expect(all_bytes_are_written(name, sizeof name), "its rest is filled");
    Bsu_double_to_string(3, number, 2.0 / 3);
    expect(number[strlen(number) - 1] != '\0', "a number has a text");
    expect(strcmp(Bsu_strupr(upper), "MIXED") == 0, "letters become capitals");
}

static void use_dates(void)
{
    ZT_DATETIME moment;
    ZT_DATE date;
    CHAR text[32];
    OS_epoch_to_date(&moment, 951782400.0);
    expect(moment.year == 2000 && moment.month == 2 && moment.day == 29, "2000 is a leap year");
    expect(all_bytes_are_written(&moment, sizeof moment), "a moment is complete");
    expect(convert_DATE_to_ZT_DATE("Feb 29 2000", &date) == 1 && date.day == 29, "a text is a date");
    expect(convert_ZT_DATE_to_DATE(&date, text) == 1 && strcmp(text, "Feb 29 2000") == 0, "a date is a text");
    expect(OS_ref_day_count_get(&date) > 0, "days are counted");
    OS_system_date_get(&date);
    expect(all_bytes_are_written(&date, sizeof date), "today is complete");
    OS_system_date_str_get(text);
    expect(strlen(text) == 19, "now has a text");
}

static void use_checksums(void)
{
    ZT_MD5_CONTEXT context;
    CHAR bytes[1000];
    UINT length;
    memset(bytes, 'b', sizeof bytes);
    for (length = 0; length < sizeof bytes; length += 37) {
        MD5Init(&context);
        MD5Update(&context, bytes, length);
        MD5Update(&context, bytes, 7);
        MD5Final(&context);
        expect(all_bytes_are_written(context.digest, sizeof context.digest), "a digest is complete");
        expect(ZR_util_CRC_calc(bytes, length) <= 0xFFFFFFFF, "a remainder has 32 bits");
    }
}

static void use_files_and_identifiers(void)
{
    CHAR uuid[40], guid_text[33], path[] = "/tmp/c_harness_XXXXXX", bytes[9];
    BYTE guid[16];
    const INT made = mkstemp(path);
    INT descriptor;
    expect(made >= 0 && OS_close(made) == 0, "a file is made");
    descriptor = OS_open(path, O_RDWR, 0);
    expect(OS_write(descriptor, "12345678", 9) == 9 && OS_seek(descriptor, 0, SEEK_SET) == 0,
           "it is written");
    expect(OS_read(descriptor, bytes, 9) == 9 && strcmp(bytes, "12345678") == 0, "it is read");
    expect(OS_size_change(descriptor, 3) == 0 && OS_close(descriptor) == 0, "it is cut");
    expect(OS_delete(path) == 0, "it is deleted");
    expect(readUUID(uuid, sizeof uuid) == 1 && all_bytes_are_written(uuid, sizeof uuid),
           "an identifier is read");
    expect(OS_create_guid(guid) == 1 && all_bytes_are_written(guid, sizeof guid), "a GUID is complete");
    expect(OS_guid_to_string(guid, guid_text) == 0 && strlen(guid_text) == 32, "it has a text");
    expect(OS_processor_count() > 0 && OS_process_id_get() > 0, "processors are counted");
}

int main(void)
{
    use_blocks();
    use_array();
    use_texts();
    use_dates();
    use_checksums();
    use_files_and_identifiers();
    return failures == 0 ? 0 : 1;
}
