/* A C program that includes every public header and uses something of each family. */
#include "foundation/array.h"
#include "foundation/memory.h"
#include "foundation/os.h"
#include "foundation/types.h"
#include "foundation/util.h"

#include <stdio.h>
#include <string.h>

static INT by_address(LPVOID a, LPVOID b)
{
    return ZR_compare_pointers(a, b);
}

static int use_memory_and_array(void)
{
    const uint64_t tag = ZR_memm_unique_tag_get("c_host", __LINE__);
    int elements[2] = {1, 2};
    uint64_t count = 0;
    LPVOID first = NULL;
    ZT_DT_ANY *array = NULL;
    if (ZR_array_ptr_alloc(tag, &array, 4, 1, by_address) != 0)
        return 0;
    ZR_array_ptr_add(array, &elements[1], NULL);
    ZR_array_ptr_add(array, &elements[0], NULL);
    ZR_array_ptr_count_get(array, &count);
    ZR_array_ptr_get(array, 0, &first);
    return (tag & ZR_MEMM_UNIQUE_TAG_BIT) != 0 && count == 2 && first == &elements[0] &&
           ZR_memm_free_all(tag) == 2;
}

static int use_services(void)
{
    CHAR path[64] = "";
    return OS_sys_path_concat("/usr/lib", "x.so", path, 63) == 13 && strcmp(path, "/usr/lib/x.so") == 0;
}

static int use_conversions(void)
{
    const ZT_RESOLUTION resolution = {72, 1, 72, 1, ZT_RES_UNIT_INCH};
    uint64_t x = 0;
    uint64_t y = 0;
    return Bsu_convert_resolution(ZT_RES_UNIT_METER, &x, &y, resolution) == 0 && x == 2834 && y == 2834;
}

static int use_checksums(void)
{
    ZT_MD5_CONTEXT context;
    MD5Init(&context);
    MD5Update(&context, "abc", 3);
    MD5Final(&context);
    return ZR_util_CRC_calc("123456789", 9) == 0xCBF43926 && context.digest[0] == 0x90;
}

int main(void)
{
    const int is_right = use_memory_and_array() && use_services() && use_conversions() && use_checksums();
    puts(is_right ? "right" : "wrong");
    return is_right ? 0 : 1;
}
