// A companion module that never releases what it allocates.

#include "programs/image_catalog/image_module.h"
#include "foundation/memory.h"

void image_module_read(const BYTE *, uint64_t, IMAGE_FACTS *facts)
{
    ZR_memm_alloc(ZR_memm_unique_tag_get("leaking_module", __LINE__), 16, "leaking_module", __LINE__);
    facts->width = facts->height = 1;
}
