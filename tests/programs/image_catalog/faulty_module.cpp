// A companion module with one fault, chosen when it is compiled.

#include "foundation/memory.h"
#include "programs/image_catalog/image_module.h"

#if defined(FAULT_OTHER_KIND)
#define KIND "png"
#else
#define KIND "bmp"
#endif

#if defined(FAULT_OTHER_VERSION)
#define VERSION (IMAGE_MODULE_VERSION + 1)
#else
#define VERSION IMAGE_MODULE_VERSION
#endif

#if defined(FAULT_FUNCTION_FOR_IDENTITY)
extern "C" IMAGE_MODULE_EXPORT void misnamed_identity() __asm__("image_module_identity");
void misnamed_identity()
{
}
#elif !defined(FAULT_LACKS_IDENTITY)
const IMAGE_MODULE_IDENTITY image_module_identity = {VERSION, KIND};
#endif

#if defined(FAULT_MISSING_SYMBOL)
extern "C" void function_that_nobody_has(IMAGE_FACTS *facts);
#endif

#if defined(FAULT_DATA_FOR_FUNCTION)
extern "C" IMAGE_MODULE_EXPORT int misnamed_function __asm__("image_module_read");
int misnamed_function = 1;
#elif !defined(FAULT_LACKS_FUNCTION)
void image_module_read(const BYTE *, uint64_t, IMAGE_FACTS *facts)
{
#if defined(FAULT_LEAKS)
    ZR_memm_alloc(ZR_memm_unique_tag_get("faulty_module", __LINE__), 16, "faulty_module", __LINE__);
#elif defined(FAULT_MISSING_SYMBOL)
    function_that_nobody_has(facts);
#endif
    facts->width = facts->height = 1;
}
#endif
