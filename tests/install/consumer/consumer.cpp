#include <foundation/foundation.h>

#include <cstdio>

int main()
{
    CHAR name[64];
    OS_sys_compfilename_create("util", name, sizeof name);
    std::printf("%s %llx\n", name, static_cast<unsigned long long>(ZR_util_CRC_calc("123456789", 9)));
    return static_cast<int>(ZR_memm_cleanup());
}
