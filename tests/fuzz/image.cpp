// One of the catalogue's image modules on a file of any content.

#include "image_module.h"

#include "fuzz/target.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    guarded_bytes file(data, size);
    IMAGE_FACTS facts = {};
    image_module_read(file.data(), size, &facts);
    require(memchr(facts.problem, '\0', sizeof facts.problem) != nullptr, "a problem's text is terminated");
    require(facts.width <= INT32_MAX && facts.height <= INT32_MAX, "sizes are below 2^31");
    require(file.size() == 0 || memcmp(file.data(), data, size) == 0, "the file is left alone");

    IMAGE_FACTS again = {};
    image_module_read(file.data(), size, &again);
    require(memcmp(&facts, &again, sizeof facts) == 0, "a module keeps nothing from one file to the next");
    return 0;
}
