// The objects of emulated mode against a table of their states: every result and out-parameter, the one flag
// of each object, and the heap calls, those of sections with a tag down to the manager's bookkeeping.

#include "foundation/os.h"

#include "memory/memory_model.h"
#include "memory/memory_table.h"
#include "sequences/sequence.h"

#include <iterator>
#include <map>

namespace {

enum class kind { SECTION_OF_TAG, SECTION, MUTEX, EVENT };

struct object {
    kind what;
    uint64_t tag;  // of a SECTION_OF_TAG
    LPVOID handle;
    UINT state;
};

class object_subject : public subject {
public:
    object_subject()
    {
        heap.start_over();
        table = &memory_table(heap);
    }

    ~object_subject() override
    {
        heap.allow_allocations();
        ZR_memm_cleanup();
    }

    void perform(const operation &next) override
    {
        const unsigned choice = next.what % 16;
        if (objects.empty() || choice < 3)
            create(next);
        else if (choice < 4)
            use_null(next.which);
        else if (choice < 5 && next.refusal < 16)
            release_tag(tag_of(next));
        else
            use(choice, std::next(objects.begin(), next.which % objects.size())->first);
        expect_agreement();
    }

    void finish() override
    {
        while (!objects.empty())
            destroy(objects.begin()->first);
        const LONG released = ZR_memm_cleanup();
        expect_equal("the count of blocks left", released, memory.release_everything());
        expect_agreement();
        expect_equal("what is left on the heap", heap.unreleased(), steps{});
    }

private:
    static uint64_t tag_of(const operation &next)
    {
        static constexpr uint64_t TAGS[] = {5, 37, 0x10000000};
        return TAGS[next.variant % std::size(TAGS)];
    }

    // ---- Creation and destruction

    void create(const operation &next)
    {
        static constexpr UINT STATES[] = {0, 1, 7, UINT32_MAX, UINT32_MAX - 1, 0x10000};
        const UINT state = STATES[next.amount % std::size(STATES)];
        const auto what = static_cast<kind>(next.which % 4);
        if (next.refusal < 24) {
            tell("  allocation ", next.refusal % 2 + 1, " of the next call is refused");
            heap.refuse_allocation(next.refusal % 2u);
            memory.refuse_allocation(next.refusal % 2u);
        }
        LPVOID handle = this;
        const INT result = create(what, tag_of(next), state, &handle);
        const unsigned number = what == kind::SECTION_OF_TAG ? memory.allocate(tag_of(next), sizeof(UINT))
                                                             : memory.allocate_elsewhere(sizeof(UINT));
        expect_same_heap_calls();
        const bool is_made = number != 0;
        expect_equal("the result", result, what == kind::MUTEX ? (is_made ? 0 : -4820) : (is_made ? 1 : 0));
        if (!difference().empty())
            return;
        expect_equal("the handle", handle, is_made ? heap.address_of(words("block ", number)) : nullptr);
        if (is_made)
            objects[number] = {what, tag_of(next), handle, what == kind::EVENT ? state : 0};
    }

    INT create(kind what, uint64_t tag, UINT state, LPVOID *handle)
    {
        switch (what) {
        case kind::SECTION_OF_TAG:
            tell("OS_sync_cs_allocate_emu(", tag, ", &section)");
            return OS_sync_cs_allocate_emu(tag, handle);
        case kind::SECTION:
            tell("OS_mem_sync_cs_allocate_emu(&section)");
            return OS_mem_sync_cs_allocate_emu(handle);
        case kind::MUTEX:
            tell("OS_mutex_ID_allocate_emu(&identifier)");
            return OS_mutex_ID_allocate_emu(handle);
        case kind::EVENT:
            break;
        }
        tell("OS_create_event_emu(&event, ", state, ", null)");
        return OS_create_event_emu(handle, state, nullptr);
    }

    void destroy(unsigned number)
    {
        const object leaving = objects.at(number);
        objects.erase(number);
        switch (leaving.what) {
        case kind::SECTION_OF_TAG:
            tell("OS_sync_cs_free_emu(", leaving.tag, ", object ", number, ")");
            expect_equal("the result", OS_sync_cs_free_emu(leaving.tag, leaving.handle), 1);
            return memory.release(number);
        case kind::SECTION:
            tell("OS_mem_sync_cs_free_emu(object ", number, ")");
            expect_equal("the result", OS_mem_sync_cs_free_emu(leaving.handle), 1);
            break;
        case kind::MUTEX:
            tell("OS_mutex_ID_free_emu(object ", number, ")");
            expect_equal("the result", OS_mutex_ID_free_emu(leaving.handle), 0);
            break;
        case kind::EVENT:
            tell("OS_close_event_emu(object ", number, ")");
            expect_equal("the result", OS_close_event_emu(leaving.handle), 1);
            break;
        }
        memory.release_elsewhere(number);
    }

    // Takes the sections of the tag with it, and no other object.
    void release_tag(uint64_t tag)
    {
        tell("ZR_memm_free_all(", tag, ")");
        const LONG released = ZR_memm_free_all(tag);
        expect_equal("the count of released blocks", released, memory.release_tag(tag));
        for (auto place = objects.begin(); place != objects.end();) {
            const bool is_gone = place->second.what == kind::SECTION_OF_TAG && place->second.tag == tag;
            place = is_gone ? objects.erase(place) : std::next(place);
        }
    }

    // ---- Use

    void use(unsigned choice, unsigned number)
    {
        object &used = objects.at(number);
        if (choice == 15)
            destroy(number);
        else if (used.what == kind::MUTEX)
            use_mutex(choice, number, used);
        else if (used.what == kind::EVENT)
            use_event(choice, number, used);
        else
            use_section(choice, number, used);
    }

    void use_section(unsigned choice, unsigned number, object &section)
    {
        const bool enters = choice % 2 == 0;
        tell(enters ? "OS_sync_cs_enter_emu(object " : "OS_sync_cs_leave_emu(object ", number, ")");
        (enters ? OS_sync_cs_enter_emu : OS_sync_cs_leave_emu)(section.handle);
        section.state = enters ? 1 : 0;
    }

    void use_mutex(unsigned choice, unsigned number, object &mutex)
    {
        static constexpr UINT FORGED[] = {0, 1, 2, 7, 0x10000, UINT32_MAX};
        if (choice == 14) {
            mutex.state = FORGED[number % std::size(FORGED)];
            tell("the flag of object ", number, " becomes ", mutex.state);
            *static_cast<UINT *>(mutex.handle) = mutex.state;
            return;
        }
        if (choice % 2 == 0) {
            LPVOID opened = this;
            tell("OS_mutex_open_emu(object ", number, ", null, &handle)");
            expect_equal("the result", OS_mutex_open_emu(mutex.handle, nullptr, &opened),
                         mutex.state == 0 ? 1 : 0);
            expect_equal("the handle", opened, mutex.state == 0 ? mutex.handle : this);
            if (mutex.state == 0)
                mutex.state = 1;
        } else {
            tell("OS_mutex_release_emu(object ", number, ")");
            expect_equal("the result", OS_mutex_release_emu(mutex.handle), mutex.state == 1 ? 1 : 0);
            if (mutex.state == 1)
                mutex.state = 0;
        }
    }

    void use_event(unsigned choice, unsigned number, object &event)
    {
        if (choice % 3 == 0) {
            tell("OS_wait_for_event_emu(object ", number, ")");
            expect_equal("the result", OS_wait_for_event_emu(event.handle), event.state != 0 ? 1 : 0);
            return;
        }
        const bool sets = choice % 3 == 1;
        tell(sets ? "OS_set_event_emu(object " : "OS_reset_event_emu(object ", number, ")");
        expect_equal("the result", (sets ? OS_set_event_emu : OS_reset_event_emu)(event.handle), 1);
        event.state = sets ? 1 : 0;
    }

    // A success that does nothing, but for the creation of an event through a null pointer.
    void use_null(uint16_t choice)
    {
        tell("everything with null handles");
        LPVOID opened = this;
        OS_sync_cs_enter_emu(nullptr);
        OS_sync_cs_leave_emu(nullptr);
        expect_equal("OS_sync_cs_free_emu", OS_sync_cs_free_emu(5, nullptr), 1);
        expect_equal("OS_mem_sync_cs_free_emu", OS_mem_sync_cs_free_emu(nullptr), 1);
        expect_equal("OS_mutex_ID_free_emu", OS_mutex_ID_free_emu(nullptr), 0);
        expect_equal("OS_mutex_open_emu", OS_mutex_open_emu(nullptr, this, &opened), 1);
        expect_equal("the opened handle", opened, nullptr);
        expect_equal("OS_mutex_release_emu", OS_mutex_release_emu(nullptr), 1);
        expect_equal("OS_create_event_emu", OS_create_event_emu(nullptr, choice, this), 0);
        expect_equal("OS_close_event_emu", OS_close_event_emu(nullptr), 1);
        expect_equal("OS_set_event_emu", OS_set_event_emu(nullptr), 1);
        expect_equal("OS_reset_event_emu", OS_reset_event_emu(nullptr), 1);
        expect_equal("OS_wait_for_event_emu", OS_wait_for_event_emu(nullptr), 1);
        expect_equal("OS_current_thread_id_get_emu", OS_current_thread_id_get_emu(), 1u);
    }

    // ---- Agreement

    void expect_same_heap_calls()
    {
        heap.allow_allocations();
        expect_equal("the list of heap calls", heap.take_single_steps(), memory.take_steps());
    }

    void expect_agreement()
    {
        expect_same_heap_calls();
        expect_equal("the list of violations", violations_in(*table), std::vector<std::string>{});
        for (const auto &[number, each] : objects)
            expect_equal("an object's flag", *static_cast<const UINT *>(each.handle), each.state);
    }

    heap_trace heap{bookkeeping_kinds()};
    const ZT_MEMM_TABLE *table = nullptr;
    memory_model memory;
    std::map<unsigned, object> objects;  // by the number of their block
};

}  // namespace

std::unique_ptr<subject> object_calls()
{
    return std::make_unique<object_subject>();
}
