// Modules, paths, compound module names and the system report.

#include "foundation/memory.h"
#include "foundation/os.h"

#include <dlfcn.h>
#include <string.h>

namespace {

constexpr CHAR SOURCE_NAME[] = "os_sys_unix";

// How OS_sys_path_concat joins its texts. The heap sees the size, so each case asks for its own.
struct join_plan {
    uint64_t bytes;
    const CHAR *format;  // null: the name alone is copied
};

// Of a directory only the last character is looked at: further separators there, and any in front of the
// name, stay in the joined text.
join_plan plan_join(const CHAR *directory, const CHAR *name)
{
    const uint64_t directory_length = strlen(directory);
    const uint64_t name_length = strlen(name);
    if (directory_length == 0)
        return {name_length + 2, nullptr};  // one more than the text needs; hosts that count bytes rely on it
    if (directory[directory_length - 1] == '/')
        return {directory_length + name_length + 1, "%s%s"};
    return {directory_length + name_length + 2, "%s/%s"};
}

// Returns the length of what was written: 0 where the formatting fails, as it does for 2 GiB and more.
uint64_t write_joined(CHAR *joined, const join_plan &plan, const CHAR *directory, const CHAR *name)
{
    if (plan.format == nullptr) {
        const uint64_t length = strlen(name);
        memcpy(joined, name, length + 1);
        return length;
    }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const INT written = OS_sprintf(joined, plan.format, directory, name);
#pragma GCC diagnostic pop
    return written > 0 ? static_cast<uint64_t>(written) : 0;
}

// At most `limit` characters, and a terminator only behind a shorter text.
void copy_limited(CHAR *output, const CHAR *text, uint64_t length, UINT limit)
{
    memcpy(output, text, length < limit ? length : limit);
    if (length < limit)
        output[length] = '\0';
}

}  // namespace

LPVOID OS_sys_module_load(const CHAR *name)
{
    return dlopen(name, RTLD_LAZY);
}

LPVOID OS_sys_sym_get(LPVOID module, const CHAR *symbol)
{
    return symbol != nullptr ? dlsym(module, symbol) : nullptr;
}

INT OS_sys_module_unload(LPVOID module)
{
    return dlclose(module);
}

LONG OS_sys_path_concat(const CHAR *directory, const CHAR *name, CHAR *output, UINT limit)
{
    const uint64_t tag = ZR_memm_unique_tag_get(SOURCE_NAME, __LINE__);
    const join_plan plan = plan_join(directory, name);
    CHAR *joined = static_cast<CHAR *>(ZR_memm_alloc(tag, plan.bytes, SOURCE_NAME, __LINE__));
    if (joined == nullptr)
        return 0;
    const uint64_t length = write_joined(joined, plan, directory, name);
    copy_limited(output, joined, length, limit);  // not before: either argument may lie in the output
    ZR_memm_free(tag, joined, SOURCE_NAME, __LINE__);
    return static_cast<LONG>(strlen(output));
}

LONG OS_sys_compfilename_create(const CHAR *base, CHAR *output, UINT limit)
{
    constexpr INT COMPANION_NUMBER = 17;
    constexpr uint64_t LONGEST_BASE = 245;
    CHAR composed[256];
    static_assert(sizeof "libQV17.so" + LONGEST_BASE == sizeof composed, "the longest name fits");

    if (base == nullptr)
        return 0;
    if (strlen(base) > LONGEST_BASE)
        return -1;
    const INT length = OS_sprintf(composed, "libQV%s%d.so", base, COMPANION_NUMBER);
    OS_strncpy(output, composed, limit);  // pads a shorter name with zero bytes
    return static_cast<UINT>(length) > limit ? -1 : length;
}

INT OS_module_usage_get(void)
{
    return 1;
}

INT OS_sys_gctrl_init(void)
{
    return 0;
}

#define REPORT_SIZE_OF(type, end) OS_debug_output("sizeof(" #type ")=%d," end, static_cast<INT>(sizeof(type)))

void _OS_sys_info_print(void)
{
    OS_debug_output("\nReport from usunix:\n");
    REPORT_SIZE_OF(CHAR, "");
    REPORT_SIZE_OF(BYTE, "");
    REPORT_SIZE_OF(LONG, "");
    REPORT_SIZE_OF(INT, "");
    REPORT_SIZE_OF(UINT, "");
    REPORT_SIZE_OF(WORD, "");
    REPORT_SIZE_OF(SHORT, "");
    REPORT_SIZE_OF(ZT_BOOL, "");
    REPORT_SIZE_OF(ZT_ERRCOUNT, "");
    REPORT_SIZE_OF(ZT_MODE, "");
    REPORT_SIZE_OF(LPVOID, "");
    REPORT_SIZE_OF(LPBYTE, "");
    REPORT_SIZE_OF(LPWORD, "\n");
}

#undef REPORT_SIZE_OF

static_assert(sizeof(CHAR) == 1 && sizeof(BYTE) == 1 && sizeof(SHORT) == 2 && sizeof(WORD) == 2,
              "base types");
static_assert(sizeof(INT) == 4 && sizeof(UINT) == 4 && sizeof(LONG) == 8, "base types");
static_assert(sizeof(ZT_BOOL) == 4 && sizeof(ZT_ERRCOUNT) == 4 && sizeof(ZT_MODE) == 8, "base types");
static_assert(sizeof(LPVOID) == 8 && sizeof(LPBYTE) == 8 && sizeof(LPWORD) == 8, "base types");
static_assert(static_cast<CHAR>(-1) < 0, "CHAR is signed; do not build with -funsigned-char");
