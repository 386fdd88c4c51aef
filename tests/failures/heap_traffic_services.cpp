// What synchronisation objects, path joining and the heap wrappers ask of the heap.

#include "failures/heap_traffic.h"
#include "memory/dt_types_memory_fixture.h"
#include "support/sync_operations.h"

#include "foundation/os.h"

namespace {

constexpr sync_operations threaded = THREADED_OPERATIONS;
constexpr sync_operations emulated = EMULATED_OPERATIONS;

LPVOID object;
LPVOID handle;

void nothing()
{
}

void another_tag_of_the_bucket()
{
    allocate(SECOND_TAG, 10);
}

void thirteen_blocks_of_the_tag()
{
    for (int i = 0; i < 13; ++i)
        allocate(TAG, 10);
}

template <const sync_operations &Os> void make_section()
{
    Os.cs_allocate(TAG, &object);
}

template <const sync_operations &Os> void make_section_with_record()
{
    another_tag_of_the_bucket();
    make_section<Os>();
}

template <const sync_operations &Os> void make_mem_section()
{
    Os.mem_cs_allocate(&object);
}

template <const sync_operations &Os> void make_identifier()
{
    Os.mutex_ID_allocate(&object);
}

template <const sync_operations &Os> void make_event()
{
    Os.create_event(&object, 1, nullptr);
}

// The rows that read the same in both modes, but for the records.
template <const sync_operations &Os>
std::vector<traffic_row> rows_of_a_mode(const block_kind &lock, const block_kind &event)
{
    const steps lock_made = {words("malloc ", lock.size, " -> ", lock.name, " 1")};
    const steps lock_refused = {words("malloc ", lock.size, " refused")};
    const std::string lock_freed = words("free ", lock.name, " 1");
    const steps event_made = {words("malloc ", event.size, " -> ", event.name, " 1")};
    const steps event_refused = {words("malloc ", event.size, " refused")};
    const std::string event_freed = words("free ", event.name, " 1");
    return {
        {"`OS_sync_cs_allocate`", "vacant bucket", nothing, make_section<Os>, lock_made},
        {"`OS_sync_cs_allocate`",
         "its tag needs a record",
         another_tag_of_the_bucket,
         make_section<Os>,
         {lock_made[0], "calloc 360 -> record 1"}},
        {"`OS_sync_cs_allocate`",
         "its tag has 13 blocks",
         thirteen_blocks_of_the_tag,
         make_section<Os>,
         {lock_made[0], "calloc 336 -> node 1"}},
        {"`OS_sync_cs_allocate`", "refused", nothing, make_section<Os>, lock_refused, 1},
        {"`OS_sync_cs_allocate`",
         "the tag's record is refused",
         another_tag_of_the_bucket,
         make_section<Os>,
         {lock_made[0], "calloc 360 refused", lock_freed},
         2},
        {"`OS_sync_cs_free`", "", make_section<Os>, [] { Os.cs_free(TAG, object); }, {lock_freed}},
        {"`OS_sync_cs_free`",
         "last block of a further record",
         make_section_with_record<Os>,
         [] { Os.cs_free(TAG, object); },
         {lock_freed, "free record 1"}},
        {"`OS_sync_cs_free`", "null", nothing, [] { Os.cs_free(TAG, nullptr); }, {}},
        {"`OS_sync_cs_enter`, `OS_sync_cs_leave`",
         "",
         make_section<Os>,
         [] {
             Os.cs_enter(object);
             Os.cs_leave(object);
         },
         {}},
        {"`OS_mem_sync_cs_allocate`", "", nothing, make_mem_section<Os>, lock_made},
        {"`OS_mem_sync_cs_allocate`", "refused", nothing, make_mem_section<Os>, lock_refused, 1},
        {"`OS_mem_sync_cs_free`", "", make_mem_section<Os>, [] { Os.mem_cs_free(object); }, {lock_freed}},
        {"`OS_mem_sync_cs_free`", "null", nothing, [] { Os.mem_cs_free(nullptr); }, {}},
        {"`OS_mutex_ID_allocate`", "", nothing, make_identifier<Os>, lock_made},
        {"`OS_mutex_ID_allocate`", "refused", nothing, make_identifier<Os>, lock_refused, 1},
        {"`OS_mutex_ID_free`", "", make_identifier<Os>, [] { Os.mutex_ID_free(object); }, {lock_freed}},
        {"`OS_mutex_ID_free`", "null", nothing, [] { Os.mutex_ID_free(nullptr); }, {}},
        {"`OS_mutex_open`, `OS_mutex_release`",
         "",
         make_identifier<Os>,
         [] {
             Os.mutex_open(object, nullptr, &handle);
             Os.mutex_release(handle);
         },
         {}},
        {"`OS_create_event`", "", nothing, make_event<Os>, event_made},
        {"`OS_create_event`", "refused", nothing, make_event<Os>, event_refused, 1},
        {"`OS_create_event`",
         "no output is given",
         nothing,
         [] { Os.create_event(nullptr, 1, nullptr); },
         {}},
        {"`OS_close_event`", "", make_event<Os>, [] { Os.close_event(object); }, {event_freed}},
        {"`OS_close_event`", "null", nothing, [] { Os.close_event(nullptr); }, {}},
        {"`OS_set_event`, `OS_reset_event`",
         "",
         make_event<Os>,
         [] {
             Os.reset_event(object);
             Os.set_event(object);
         },
         {}},
        {"`OS_wait_for_event`", "signalled", make_event<Os>, [] { Os.wait_for_event(object); }, {}},
    };
}

std::vector<traffic_row> rows_of_a_mutex_that_cannot_be_initialised()
{
    const steps made_in_vain = {"malloc 40 -> lock 1", "free lock 1"};
    std::vector<traffic_row> rows = {
        {"`OS_sync_cs_allocate`", "", nothing, make_section<threaded>, made_in_vain},
        {"`OS_sync_cs_allocate`",
         "",
         another_tag_of_the_bucket,
         make_section<threaded>,
         {"malloc 40 -> lock 1", "calloc 360 -> record 1", "free lock 1", "free record 1"}},
        {"`OS_mem_sync_cs_allocate`", "", nothing, make_mem_section<threaded>, made_in_vain},
        {"`OS_mutex_ID_allocate`", "", nothing, make_identifier<threaded>, made_in_vain},
        {"`OS_create_event`", "", nothing, make_event<threaded>, {"malloc 96 -> event 1", "free event 1"}},
    };
    for (traffic_row &row : rows) {
        row.situation = "its mutex cannot be initialised";
        row.refuses_mutex = true;
    }
    rows[1].situation = "its mutex cannot be initialised, its tag needed a record";
    return rows;
}

CHAR joined[64];

template <const char *Directory> void join()
{
    OS_sys_path_concat(Directory, "x.so", joined, sizeof joined);
}

constexpr char no_directory[] = "";
constexpr char open_directory[] = "/usr/lib";
constexpr char closed_directory[] = "/usr/lib/";

}  // namespace

std::vector<traffic_section> synchronisation_traffic()
{
    const block_kind lock = {heap_call::MALLOC, 40, "lock"};
    const block_kind event = {heap_call::MALLOC, 96, "event"};
    const block_kind flag = {heap_call::MALLOC, 4, "flag"};
    std::vector<traffic_row> in_threaded_mode = rows_of_a_mode<threaded>(lock, event);
    for (const traffic_row &row : rows_of_a_mutex_that_cannot_be_initialised())
        in_threaded_mode.push_back(row);
    return {
        {"Synchronisation objects in threaded mode",
         "A *lock* is the record of a critical section or mutex identifier. Thread functions may use the "
         "heap "
         "themselves; the GNU C library's do not.",
         {lock, event},
         "block",
         in_threaded_mode},
        {"Synchronisation objects in emulated mode",
         "A *flag* is the record of any object.",
         {flag},
         "block",
         rows_of_a_mode<emulated>(flag, flag)},
    };
}

traffic_section service_traffic()
{
    return {
        "Paths and the heap wrappers",
        "The directory is `/usr/lib` (8 characters), the name `x.so` (4).",
        {},
        "block",
        {
            {"`OS_sys_path_concat`",
             "directory without a slash at its end",
             nothing,
             join<open_directory>,
             {"malloc 14 -> block 1", "free block 1"}},
            {"`OS_sys_path_concat`",
             "directory `/usr/lib/`",
             nothing,
             join<closed_directory>,
             {"malloc 14 -> block 1", "free block 1"}},
            {"`OS_sys_path_concat`",
             "no directory",
             nothing,
             join<no_directory>,
             {"malloc 6 -> block 1", "free block 1"}},
            {"`OS_sys_path_concat`", "refused", nothing, join<open_directory>, {"malloc 14 refused"}, 1},
            {"`OS_sys_path_concat`",
             "every bucket is taken",
             [] {
                 for (uint64_t tag = 1; tag <= 32; ++tag)
                     allocate(tag, 10);
             },
             join<open_directory>,
             {"malloc 14 -> block 33", "calloc 360 -> record 1", "free block 33", "free record 1"}},
            {"`OS_alloc`", "", nothing, [] { object = OS_alloc(10); }, {"malloc 10 -> block 1"}},
            {"`OS_realloc`",
             "",
             [] { object = OS_alloc(10); },
             [] { object = OS_realloc(object, 20); },
             {"realloc block 1, 20 -> block 2"}},
            {"`OS_realloc`",
             "refused",
             [] { object = OS_alloc(10); },
             [] { handle = OS_realloc(object, 20); },
             {"realloc block 1, 20 refused"},
             1},
            {"`OS_free`", "", [] { object = OS_alloc(10); }, [] { OS_free(object); }, {"free block 1"}},
            {"`OS_free`", "null", nothing, [] { OS_free(nullptr); }, {"free null"}},
        },
    };
}
