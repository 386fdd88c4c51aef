// Pointer arrays against a model: every result and out-parameter, every word of the record and of the vector,
// the comparator's calls, and the heap calls down to the memory manager's bookkeeping.

#include "foundation/array.h"

#include "memory/memory_model.h"
#include "memory/memory_table.h"
#include "sequences/array_model.h"
#include "sequences/sequence.h"

#include <iterator>
#include <map>
#include <utility>

namespace {

constexpr uint64_t SLOT_BYTES = 8;

// ---- Comparators: what they were called with is kept, for the library's calls and for the model's alike.

using pair_list = std::vector<uintptr_t>;
pair_list compared;

void keep_pair(LPVOID a, LPVOID b)
{
    compared.push_back(value_of(a));
    compared.push_back(value_of(b));
}

// Equal elements that can still be told apart.
INT compare_tens(LPVOID a, LPVOID b)
{
    keep_pair(a, b);
    return static_cast<INT>(value_of(a) / 10) - static_cast<INT>(value_of(b) / 10);
}

// No order at all: a search may end anywhere, but the same way each time.
INT compare_oddly(LPVOID a, LPVOID b)
{
    keep_pair(a, b);
    return static_cast<INT>((value_of(a) * 31 + value_of(b) * 17) % 7) - 3;
}

INT compare_pointers(LPVOID a, LPVOID b)
{
    keep_pair(a, b);
    return ZR_compare_pointers(a, b);
}

constexpr ZT_ARRAY_PTR_COMPARE COMPARATORS[] = {compare_tens, compare_tens, compare_oddly, compare_pointers,
                                                nullptr};
constexpr const char *COMPARATOR_NAMES[] = {"by tens", "by tens", "oddly", "ZR_compare_pointers", "null"};

class array_subject : public subject {
public:
    array_subject()
    {
        heap.start_over();
        table = &memory_table(heap);
        compared.clear();
    }

    ~array_subject() override
    {
        heap.allow_allocations();
        ZR_memm_cleanup();
    }

    void perform(const operation &next) override
    {
        const unsigned choice = next.what % 64;
        if (models.empty() || choice == 63)
            create(next);
        else
            use(choice, std::next(models.begin(), next.which % models.size())->first, next);
        expect_agreement();
    }

    void finish() override
    {
        while (!models.empty())
            remove_array(models.begin()->first);
        expect_agreement();
        expect_equal("the count of blocks left", ZR_memm_cleanup(), memory.release_everything());
        heap.take_steps();
        expect_equal("what is left on the heap", heap.unreleased(), steps{});
    }

private:
    void use(unsigned choice, unsigned number, const operation &next)
    {
        const uint64_t index = next.amount % (models.at(number).elements.size() + 2);
        const uintptr_t value = next.amount % 300;
        if (choice < 24)
            add(number, value, next);
        else if (choice < 44)
            remove(number, index, next);
        else if (choice < 48)
            set(number, index, value);
        else if (choice < 52)
            get(number, index);
        else if (choice < 60)
            search(number, value);
        else if (choice < 62)
            call_with_invalid_handle(number, next);
        else if (next.refusal < 64)
            remove_array(number);
    }

    void refuse(uint8_t refusal)
    {
        if (refusal >= 24)
            return;
        tell("  allocation ", refusal % 4 + 1, " of the next call is refused");
        heap.refuse_allocation(refusal % 4u);
        memory.refuse_allocation(refusal % 4u);
    }

    // ---- Creation and deletion

    void create(const operation &next)
    {
        static constexpr uint64_t INCREMENTS[] = {1, 2, 3, 10, 64};
        static constexpr INT SORTED[] = {0, 1, -5, 1};
        if (models.size() == 4)
            return remove_array(models.begin()->first);
        const size_t comparator = next.variant / 4 % std::size(COMPARATORS);
        array_model made = {next.variant % 2 == 0 ? 5u : 37u,
                            INCREMENTS[next.amount % std::size(INCREMENTS)],
                            SORTED[next.variant / 2 % std::size(SORTED)],
                            COMPARATORS[comparator],
                            0,
                            0,
                            0,
                            {}};
        ZT_DT_ANY *handle = nullptr;
        refuse(next.refusal);
        tell("ZR_array_ptr_alloc(", made.tag, ", &array, ", made.increment, ", ", made.sorted, ", ",
             COMPARATOR_NAMES[comparator], ")");
        const ZT_ERRCOUNT status =
            ZR_array_ptr_alloc(made.tag, &handle, made.increment, made.sorted, made.compare);
        made.record = memory.allocate(made.tag, sizeof(ZT_ARRAY_PTR));
        expect_same_heap_calls();
        expect_equal("the status", status, made.record != 0 ? 0 : -1000);
        expect_equal("the handle", static_cast<void *>(handle), address_of(made.record));
        if (made.record == 0 || !difference().empty())
            return;
        models[made.record] = made;
        handles[made.record] = handle;
    }

    void remove_array(unsigned number)
    {
        const array_model &model = models.at(number);
        tell("ZR_array_ptr_delete(array ", number, ")");
        expect_equal("the status", ZR_array_ptr_delete(handles.at(number)), 0);
        if (model.vector != 0)
            memory.release(model.vector);
        memory.release(model.record);
        models.erase(number);
        handles.erase(number);
    }

    // ---- Changes

    void add(unsigned number, uintptr_t value, const operation &next)
    {
        const bool wants_index = next.variant % 8 != 0;
        uint64_t index = UNWRITTEN;
        refuse(next.refusal);
        tell("ZR_array_ptr_add(array ", number, ", ", value, wants_index ? ", &index)" : ", null)");
        const ZT_ERRCOUNT status =
            ZR_array_ptr_add(handles.at(number), element(value), wants_index ? &index : nullptr);
        const pair_list pairs = std::exchange(compared, {});

        uint64_t expected_index = UNWRITTEN;
        expect_equal("the status", status, add_to_model(models.at(number), value, expected_index));
        expect_equal("the index", index, wants_index ? expected_index : UNWRITTEN);
        expect_equal("what was compared", pairs, std::exchange(compared, {}));
    }

    ZT_ERRCOUNT add_to_model(array_model &model, uintptr_t value, uint64_t &index)
    {
        if (model.elements.size() == model.capacity) {
            if (!replace_vector(model, model.capacity + model.increment))
                return -1000;
            model.capacity += model.increment;
        }
        const uint64_t place = model.place_for(value);
        if (place < model.elements.size() && !replace_vector(model, model.capacity))
            return 0;  // told as a success, and nothing is added
        model.elements.insert(model.elements.begin() + static_cast<ptrdiff_t>(place), value);
        index = place;
        return 0;
    }

    bool replace_vector(array_model &model, uint64_t slots)
    {
        const unsigned vector = slots != 0 ? memory.allocate(model.tag, slots * SLOT_BYTES) : 0;
        if (vector == 0 && slots != 0)
            return false;
        if (model.vector != 0)
            memory.release(model.vector);
        model.vector = vector;
        return true;
    }

    void remove(unsigned number, uint64_t index, const operation &next)
    {
        array_model &model = models.at(number);
        const unsigned form = next.variant % 4;
        const bool in_order = form < 2;
        uint64_t removed = UNWRITTEN;
        uint64_t *out = next.variant % 32 != 0 ? &removed : nullptr;
        refuse(next.refusal);
        tell(form == 3 ? "ZR_array_ptr_remove(array " : "ZR_array_ptr_remove_ex(array ", number, ", ", index,
             out != nullptr ? ", &removed" : ", null",
             form == 3  ? ")"
             : in_order ? ", 2^32)"
                        : ", 0)");
        const uint64_t order_flag = in_order ? UINT64_C(1) << 32 : 0;
        const ZT_ERRCOUNT status = form == 3
                                       ? ZR_array_ptr_remove(handles.at(number), index, out)
                                       : ZR_array_ptr_remove_ex(handles.at(number), index, out, order_flag);
        expect_equal("the status", status, 0);
        expect_equal("the removed flag", removed,
                     out == nullptr                  ? UNWRITTEN
                     : index < model.elements.size() ? 1u
                                                     : 0u);
        if (index < model.elements.size()) {
            if (!in_order)
                std::swap(model.elements[index], model.elements.back());
            model.elements.erase(in_order ? model.elements.begin() + static_cast<ptrdiff_t>(index)
                                          : model.elements.end() - 1);
            emptied_slot_of = number;
        }
        const uint64_t spare = model.capacity - model.elements.size();
        const uint64_t capacity = model.capacity - spare / model.increment * model.increment;
        if (capacity != model.capacity && replace_vector(model, capacity)) {
            model.capacity = capacity;
            emptied_slot_of = 0;
        }
    }

    void set(unsigned number, uint64_t index, uintptr_t value)
    {
        array_model &model = models.at(number);
        tell("ZR_array_ptr_set(array ", number, ", ", index, ", ", value, ")");
        const bool is_allowed = !model.is_in_sorted_mode() && index < model.elements.size();
        expect_equal("the status", ZR_array_ptr_set(handles.at(number), index, element(value)),
                     is_allowed ? 0 : -1);
        if (is_allowed)
            model.elements[index] = value;
    }

    // ---- Questions

    void get(unsigned number, uint64_t index)
    {
        const array_model &model = models.at(number);
        LPVOID found = element(UNWRITTEN);
        uint64_t count = UNWRITTEN;
        tell("ZR_array_ptr_get(array ", number, ", ", index, "); ZR_array_ptr_count_get");
        const bool is_in_range = index < model.elements.size();
        expect_equal("the status", ZR_array_ptr_get(handles.at(number), index, &found), is_in_range ? 0 : -1);
        expect_equal("the element", value_of(found), is_in_range ? model.elements[index] : UNWRITTEN);
        expect_equal("the status of the count", ZR_array_ptr_count_get(handles.at(number), &count), 0);
        expect_equal("the count", count, model.elements.size());
        expect_equal("the status without an out-parameter",
                     ZR_array_ptr_get(handles.at(number), index, nullptr), is_in_range ? 0 : -1);
    }

    void search(unsigned number, uintptr_t key)
    {
        const array_model &model = models.at(number);
        if (model.sorted == 0 && model.compare == nullptr)
            return;  // not for callers: nothing tests for it
        const uint64_t expected = model.search(key);
        const pair_list pairs = std::exchange(compared, {});
        const ZT_ERRCOUNT expected_status = expected != UNWRITTEN ? 0 : -1;

        LPVOID found = element(UNWRITTEN);
        tell("ZR_array_ptr_find(array ", number, ", ", key, ")");
        expect_equal("the status", ZR_array_ptr_find(handles.at(number), element(key), &found),
                     expected_status);
        expect_equal("the element", value_of(found),
                     expected != UNWRITTEN ? model.elements[expected] : UNWRITTEN);
        expect_equal("what was compared", std::exchange(compared, {}), pairs);

        uint64_t index = UNWRITTEN;
        tell("ZR_array_ptr_index_get(array ", number, ", ", key, ")");
        expect_equal("the status", ZR_array_ptr_index_get(handles.at(number), element(key), &index),
                     expected_status);
        expect_equal("the index", index, expected);
        expect_equal("what was compared", std::exchange(compared, {}), pairs);
    }

    // Null, a wrong size word or a wrong magic word, by a copy of the record that owns nothing.
    void call_with_invalid_handle(unsigned number, const operation &next)
    {
        ZT_ARRAY_PTR forged = record_of(number);
        const uint64_t flipped = UINT64_C(1) << next.amount % 64;
        (next.variant % 2 == 0 ? forged.size : forged.magic) ^= flipped;
        ZT_DT_ANY *handle = next.variant % 8 == 0 ? nullptr : reinterpret_cast<ZT_DT_ANY *>(&forged);
        tell("every function on a null handle or a forged one");
        uint64_t number_out = UNWRITTEN;
        LPVOID element_out = element(UNWRITTEN);
        expect_equal("_ZR_array_ptr_check", _ZR_array_ptr_check(handle), 0);
        expect_equal("add", ZR_array_ptr_add(handle, nullptr, &number_out), -1);
        expect_equal("set", ZR_array_ptr_set(handle, 0, nullptr), -1);
        expect_equal("get", ZR_array_ptr_get(handle, 0, &element_out), -1);
        expect_equal("find", ZR_array_ptr_find(handle, nullptr, &element_out), -1);
        expect_equal("index_get", ZR_array_ptr_index_get(handle, nullptr, &number_out), -1);
        expect_equal("count_get", ZR_array_ptr_count_get(handle, &number_out), -1);
        expect_equal("remove", ZR_array_ptr_remove(handle, 0, &number_out), -1);
        expect_equal("remove_ex", ZR_array_ptr_remove_ex(handle, 0, &number_out, 1), -1);
        expect_equal("delete", ZR_array_ptr_delete(handle), -1);
        expect_equal("the out-parameter", number_out, UNWRITTEN);
        expect_equal("the other out-parameter", value_of(element_out), UNWRITTEN);
    }

    // ---- Agreement

    const ZT_ARRAY_PTR &record_of(unsigned number)
    {
        return *reinterpret_cast<ZT_ARRAY_PTR *>(handles.at(number));
    }

    void *address_of(unsigned block)
    {
        return block != 0 ? heap.address_of(words("block ", block)) : nullptr;
    }

    void expect_same_heap_calls()
    {
        heap.allow_allocations();
        expect_equal("the list of heap calls", heap.take_single_steps(), memory.take_steps());
    }

    void expect_agreement()
    {
        expect_same_heap_calls();
        expect_equal("the list of violations", violations_in(*table), std::vector<std::string>{});
        for (const auto &[number, model] : models)
            if (difference().empty())
                expect_same_array(number, model);
        emptied_slot_of = 0;
    }

    void expect_same_array(unsigned number, const array_model &model)
    {
        const ZT_ARRAY_PTR &record = record_of(number);
        expect_equal("_ZR_array_ptr_check", _ZR_array_ptr_check(handles.at(number)), 1);
        expect_equal("the size word", record.size, sizeof(ZT_ARRAY_PTR));
        expect_equal("the magic word", record.magic, UINT64_C(0x64776172));
        expect_equal("the tag", record.tag, model.tag);
        expect_equal("the capacity", record.capacity, model.capacity);
        expect_equal("the count", record.count, model.elements.size());
        expect_equal("the increment", record.increment, model.increment);
        expect_equal("the vector", static_cast<void *>(record.slots), address_of(model.vector));
        expect_equal("the sorted flag", record.sorted, model.sorted);
        expect(record.compare == model.compare, "the comparator is the one given");
        if (!difference().empty())
            return;
        std::vector<uintptr_t> stored;
        for (uint64_t i = 0; i < record.count; ++i)
            stored.push_back(value_of(record.slots[i]));
        expect_equal("the list of elements", stored, model.elements);
        if (emptied_slot_of == number)
            expect(record.slots[record.count] == nullptr, "a removal leaves null in the slot it empties");
    }

    heap_trace heap{bookkeeping_kinds()};
    const ZT_MEMM_TABLE *table = nullptr;
    memory_model memory;
    std::map<unsigned, array_model> models;  // by the number of the record's block
    std::map<unsigned, ZT_DT_ANY *> handles;
    unsigned emptied_slot_of = 0;
};

}  // namespace

std::unique_ptr<subject> array_calls()
{
    return std::make_unique<array_subject>();
}
