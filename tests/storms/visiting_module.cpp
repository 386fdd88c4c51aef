// A small module that uses the library each time it is loaded.

#include "foundation/array.h"
#include "foundation/memory.h"
#include "foundation/os.h"
#include "foundation/util.h"

// 1 when everything was as it should be; nothing is left behind.
extern "C" [[gnu::visibility("default")]] int visit()
{
    const uint64_t tag = ZR_memm_unique_tag_get("visit", __LINE__);
    LPVOID section = nullptr;
    ZT_DT_ANY *array = nullptr;
    int element = 0;
    bool is_right = OS_sync_cs_allocate(tag, &section) == 1;
    OS_sync_cs_enter(section);
    is_right = is_right && ZR_memm_alloc(tag, 100, "visit", __LINE__) != nullptr &&
               ZR_array_ptr_alloc(tag, &array, 4, 0, nullptr) == 0 &&
               ZR_array_ptr_add(array, &element, nullptr) == 0;
    OS_sync_cs_leave(section);
    is_right = is_right && (ZR_util_CRC_calc("123456789", 9) & 0xFFFFFFFF) == 0xCBF43926;
    is_right = OS_sync_cs_free(tag, section) == 1 && is_right;
    return ZR_memm_free_all(tag) == 3 && is_right;  // the block; the array's record and vector
}
