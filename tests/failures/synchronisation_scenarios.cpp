// Failures of critical sections, mutex identifiers and events, in both modes.

#include "failures/scenario.h"
#include "memory/dt_types_memory_fixture.h"
#include "support/library_copy.h"
#include "support/sync_operations.h"

#include "foundation/os.h"

namespace {

constexpr long MUTEX = 40;
constexpr long EVENT = 96;
constexpr long FLAG = 4;
constexpr long RECORD = sizeof(ZT_MEMM_TAG_RECORD);
constexpr uint64_t TAG_OF_ITS_BUCKET = SECTION_TAG + 32;

LPVOID object;
LPVOID handle;
INT answer;
unsigned wake_ups;

struct mode {
    std::string name;
    const sync_operations *os;
    bool is_threaded;
    bool has_table_of_its_own;  // of blocks by tag
};

// A second library whose search has found nothing, under the plain names.
const sync_operations &emulated_library()
{
    static const library_copy library;
#define FOUND(member, name) .member = library.find(#name, name)
    static const sync_operations operations = {
        .name = "in a library without thread functions",
        FOUND(current_thread_id_get, OS_current_thread_id_get),
        FOUND(cs_allocate, OS_sync_cs_allocate),
        FOUND(cs_free, OS_sync_cs_free),
        FOUND(mem_cs_allocate, OS_mem_sync_cs_allocate),
        FOUND(mem_cs_free, OS_mem_sync_cs_free),
        FOUND(cs_enter, OS_sync_cs_enter),
        FOUND(cs_leave, OS_sync_cs_leave),
        FOUND(mutex_ID_allocate, OS_mutex_ID_allocate),
        FOUND(mutex_ID_free, OS_mutex_ID_free),
        FOUND(mutex_open, OS_mutex_open),
        FOUND(mutex_release, OS_mutex_release),
        FOUND(create_event, OS_create_event),
        FOUND(close_event, OS_close_event),
        FOUND(set_event, OS_set_event),
        FOUND(reset_event, OS_reset_event),
        FOUND(wait_for_event, OS_wait_for_event),
    };
#undef FOUND
    lookup_trace lookups;
    lookups.hide(thread_function::MUTEX_INIT);
    EXPECT_EQ(library.find("OS_threads_support", OS_threads_support)(), 0U);
    return operations;
}

std::vector<mode> modes()
{
    static constexpr sync_operations dispatched = DISPATCHED_OPERATIONS;
    static constexpr sync_operations threaded = THREADED_OPERATIONS;
    static constexpr sync_operations emulated = EMULATED_OPERATIONS;
    return {
        {"", &dispatched, true, false},
        {"_th", &threaded, true, false},
        {"_emu", &emulated, false, false},
        {", emulated mode", &emulated_library(), false, true},
    };
}

void no_object()
{
    object = handle = unwritten();
    answer = -1;
    wake_ups = 0;
}

const std::vector<std::string> attribute_functions = {
    "pthread_mutexattr_init 1", "pthread_mutexattr_settype 1", "pthread_mutexattr_destroy 1"};

// Of a creation that can fail by its allocations alone, or else by its mutex. Of the attribute's functions
// no failure is looked at.
std::vector<failure_outcome> outcomes_of_creation(const mode &in, long kept_bytes, bool is_event)
{
    std::vector<failure_outcome> outcomes = {{"nothing", "created", kept_bytes},
                                             {"allocation *", "not created, null"}};
    if (!in.is_threaded)
        return outcomes;
    for (const std::string &function : attribute_functions)
        outcomes.push_back({function, "created", kept_bytes});
    outcomes.push_back({"pthread_mutex_init 1", "not created, null"});
    if (is_event)
        outcomes.push_back({"pthread_cond_init 1", "not created, null"});
    return outcomes;
}

// Outcomes of a call whose platform functions may fail without effect.
std::vector<failure_outcome> same_whatever_fails(const mode &in, const std::string &result,
                                                 const std::vector<std::string> &functions,
                                                 long kept_bytes = 0)
{
    std::vector<failure_outcome> outcomes = {{"nothing", result, kept_bytes}};
    if (in.is_threaded)
        for (const std::string &function : functions)
            outcomes.push_back({function, result, kept_bytes});
    return outcomes;
}

std::string of(const lock_kind &kind)
{
    return words(" of ", kind.name);
}

void lock_serves(const sync_operations &os, const lock_kind &kind)
{
    if (object == nullptr) {
        EXPECT_EQ(kind.create(os, &object), kind.created);
    }
    kind.take(os, object);
    kind.give_back(os, object);
    EXPECT_EQ(kind.free(os, object), kind.freed);
}

void expect_created_anew(const sync_operations &os, const lock_kind &kind)
{
    EXPECT_EQ(kind.create(os, &object), kind.created);
    EXPECT_EQ(kind.free(os, object), kind.freed);
}

scenarios of_a_lock(const mode &in, const lock_kind &kind)
{
    const sync_operations &os = *in.os;
    const long record = in.is_threaded ? MUTEX : FLAG;
    const auto make = [&os, &kind] {
        no_object();
        kind.create(os, &object);
    };
    const auto creation = [&os, &kind] {
        answer = kind.create(os, &object);
    };
    const auto created = [&kind]() -> std::string {
        if (answer == kind.created)
            return object != nullptr && object != unwritten() ? "created" : "created in vain";
        return answer == kind.not_created && object == nullptr ? "not created, null" : "neither";
    };
    const auto serves = [&os, &kind] {
        lock_serves(os, kind);
    };
    const auto done = [] {
        return "done";
    };
    scenarios list = {
        {.name = "creation" + of(kind) + in.name,
         .prepare = no_object,
         .act = creation,
         .result = created,
         .use = serves,
         .outcomes = outcomes_of_creation(in, record, false)},
        {.name = "release" + of(kind) + in.name,
         .prepare = make,
         .act = [&os, &kind] { answer = kind.free(os, object); },
         .result = [&kind] { return answer == kind.freed ? "freed" : "not freed"; },
         .use = [&os, &kind] { expect_created_anew(os, kind); },
         .outcomes = same_whatever_fails(in, "freed", {"pthread_mutex_destroy 1"}, -record)},
    };
    if (&kind == &lock_kinds::ORDINARY_SECTION && !in.has_table_of_its_own)
        list.push_back({.name = "creation" + of(kind) + in.name + ", its tag needs a record",
                        .prepare =
                            [] {
                                no_object();
                                allocate(TAG_OF_ITS_BUCKET);
                            },
                        .act = creation,
                        .result = created,
                        .use = serves,
                        .clean_up = [] { ZR_memm_free_all(TAG_OF_ITS_BUCKET); },
                        .outcomes = outcomes_of_creation(in, record + RECORD, false)});
    if (in.is_threaded) {
        list.push_back({.name = "creation" + of(kind) + in.name + " without a mutex",
                        .prepare = no_object,
                        .act = creation,
                        .result = created,
                        .outcomes = same_whatever_fails(in, "not created, null", attribute_functions),
                        .fails_anyway = {thread_function::MUTEX_INIT}});
        list.back().outcomes.push_back({"allocation 1", "not created, null"});
        list.back().outcomes.push_back({"pthread_mutex_init 1", "not created, null"});
    }
    if (&kind == &lock_kinds::MUTEX_IDENTIFIER)
        return list;
    list.push_back({.name = "OS_sync_cs_enter" + of(kind) + in.name,
                    .prepare = make,
                    .act = [&os] { os.cs_enter(object); },
                    .result = done,
                    .use = serves,
                    .outcomes = same_whatever_fails(in, "done", {"pthread_mutex_lock 1"})});
    list.push_back({.name = "OS_sync_cs_leave" + of(kind) + in.name,
                    .prepare = make,
                    .act = [&os] { os.cs_leave(object); },
                    .result = done,
                    .use = serves,
                    .outcomes = same_whatever_fails(in, "done", {"pthread_mutex_unlock 1"})});
    return list;
}

scenarios of_an_identifier(const mode &in)
{
    const sync_operations &os = *in.os;
    const auto make = [&os] {
        no_object();
        os.mutex_ID_allocate(&object);
    };
    scenarios list = {
        {.name = "OS_mutex_open" + in.name,
         .prepare = make,
         .act = [&os] { answer = os.mutex_open(object, nullptr, &handle); },
         .result = [] { return words(answer, handle == unwritten() ? ", unwritten" : ", a handle"); },
         .use =
             [&os] {
                 if (answer == 1) {
                     EXPECT_EQ(os.mutex_release(handle), 1U);
                 }
                 lock_serves(os, lock_kinds::MUTEX_IDENTIFIER);
             },
         .outcomes = {{"nothing", "1, a handle"}}},
        {.name = "OS_mutex_release" + in.name,
         .prepare =
             [&os, make] {
                 make();
                 os.mutex_open(object, nullptr, &handle);
             },
         .act = [&os] { answer = os.mutex_release(handle); },
         .result = [] { return words(answer); },
         .use =
             [&os] {
                 if (answer == 0) {
                     EXPECT_EQ(os.mutex_release(handle), 1U);
                 }
                 lock_serves(os, lock_kinds::MUTEX_IDENTIFIER);
             },
         .outcomes = {{"nothing", "1"}}},
    };
    if (in.is_threaded) {
        list[0].outcomes.push_back({"pthread_mutex_lock 1", "0, unwritten"});
        list[1].outcomes.push_back({"pthread_mutex_unlock 1", "0"});
    }
    return list;
}

UINT &state_of_event(bool is_threaded)
{
    return *reinterpret_cast<UINT *>(static_cast<char *>(object) + (is_threaded ? EVENT_STATE_OFFSET : 0));
}

void event_serves(const sync_operations &os)
{
    if (object == nullptr) {
        EXPECT_EQ(os.create_event(&object, 0, nullptr), 1U);
    }
    EXPECT_EQ(os.set_event(object), 1U);
    EXPECT_EQ(os.wait_for_event(object), 1U);
    EXPECT_EQ(os.reset_event(object), 1U);
    EXPECT_EQ(os.close_event(object), 1U);
}

scenarios creations_of_an_event(const mode &in)
{
    const sync_operations &os = *in.os;
    scenarios list = {{.name = "OS_create_event" + in.name,
                       .use = [&os] { event_serves(os); },
                       .outcomes = outcomes_of_creation(in, in.is_threaded ? EVENT : FLAG, true)}};
    if (in.is_threaded) {
        const std::string refused = "not created, null";
        list.push_back({.name = "OS_create_event" + in.name + ", its mutex cannot be initialised",
                        .outcomes = same_whatever_fails(in, refused, attribute_functions),
                        .fails_anyway = {thread_function::MUTEX_INIT}});
        for (const char *function :
             {"allocation 1", "pthread_cond_init 1", "pthread_cond_destroy 1", "pthread_mutex_init 1"})
            list.back().outcomes.push_back({function, refused});
    }
    for (scenario &each : list) {
        each.prepare = no_object;
        each.act = [&os] {
            answer = static_cast<INT>(os.create_event(&object, 0, nullptr));
        };
        each.result = []() -> std::string {
            if (answer == 1)
                return object != nullptr && object != unwritten() ? "created" : "created in vain";
            return answer == 0 && object == nullptr ? "not created, null" : "neither";
        };
    }
    return list;
}

scenarios of_an_event(const mode &in)
{
    const sync_operations &os = *in.os;
    const std::vector<std::string> guard = {"pthread_mutex_lock 1", "pthread_mutex_unlock 1"};
    const auto make = [&os] {
        no_object();
        os.create_event(&object, 0, nullptr);
    };
    const auto answer_and_state = [&in] {
        return words(answer, ", state ", state_of_event(in.is_threaded));
    };
    const auto serves = [&os] {
        event_serves(os);
    };
    scenarios list = {
        {.name = "OS_set_event" + in.name,
         .prepare = make,
         .act = [&os] { answer = os.set_event(object); },
         .outcomes = same_whatever_fails(in, "1, state 1", guard)},
        {.name = "OS_reset_event" + in.name,
         .prepare =
             [&os] {
                 no_object();
                 os.create_event(&object, 7, nullptr);
             },
         .act = [&os] { answer = os.reset_event(object); },
         .outcomes = same_whatever_fails(in, "1, state 0", guard)},
        {.name = "OS_wait_for_event" + in.name,
         .prepare = make,
         .act = [&os] { answer = os.wait_for_event(object); },
         .outcomes = in.is_threaded ? same_whatever_fails(in, "1, state 1", guard)
                                    : std::vector<failure_outcome>{{"nothing", "0, state 0"}}},
    };
    for (scenario &each : list) {
        each.result = answer_and_state;
        each.use = serves;
    }
    if (in.is_threaded) {  // the state has changed although nobody could be woken
        list[0].outcomes.push_back({"pthread_cond_broadcast 1", "0, state 1"});
        list[1].outcomes.push_back({"pthread_cond_broadcast 1", "0, state 0"});
        list[2].outcomes.push_back({"pthread_cond_wait *", "0, state 0"});
        list[2].during_wait = [] {
            state_of_event(true) = ++wake_ups == 3;
        };  // woken twice for nothing
    }
    list.push_back(
        {.name = "OS_close_event" + in.name,
         .prepare = make,
         .act = [&os] { answer = os.close_event(object); },
         .result = [] { return words(answer); },
         .use =
             [&os] {
                 object = nullptr;
                 event_serves(os);
             },
         .outcomes = same_whatever_fails(in, "1", {"pthread_mutex_destroy 1", "pthread_cond_destroy 1"},
                                         in.is_threaded ? -EVENT : -FLAG)});
    return list;
}

void append(scenarios &all, const scenarios &more)
{
    all.insert(all.end(), more.begin(), more.end());
}

}  // namespace

scenarios synchronisation_scenarios()
{
    static const std::vector<mode> every_mode = modes();
    scenarios all;
    for (const mode &in : every_mode) {
        for (const lock_kind *kind :
             {&lock_kinds::ORDINARY_SECTION, &lock_kinds::MEM_SYNC_SECTION, &lock_kinds::MUTEX_IDENTIFIER})
            append(all, of_a_lock(in, *kind));
        append(all, of_an_identifier(in));
        append(all, creations_of_an_event(in));
        append(all, of_an_event(in));
    }
    return all;
}
