/* The library for C++17 and newer: objects that give back what they hold at the end of their scope.
 *
 * Everything is in namespace qv, inline, and a plain call of the C headers underneath, which say what each
 * call does; here stands what is added. Members are named as the plain functions without their prefix.
 * Needs nothing of the C++ run-time library but, for its memory resource, what <memory_resource> does;
 * compiles with -fno-exceptions and -fno-rtti.
 *
 * Holding. An object holds one thing, or nothing: when it was made with qv::none, was moved from or detached,
 * or when what it is to hold could not be had. `if (object)` tells. Objects can be moved and not copied;
 * assigning to one gives back what it held before. What can be made out of nothing (owner, mem_section,
 * identifier, event) is made by default; what needs to be told something (array, section, loaded_module,
 * file) holds nothing by default. detach() hands over what is held, adopt() takes over what a plain call
 * gave; in between, giving it back is the caller's.
 *
 * Order. Objects of one scope end in reverse order, so declare the owner before the arrays and sections
 * under its tag, and a module before the owner of what it allocates. Where a tag is released earlier than
 * that, by free_all() or ZR_memm_cleanup, end its sections before, and detach its arrays.
 *
 * Results are those of the plain calls, oddities included, and errno is what the platform left. Nothing
 * throws, but the functions of std::pmr do where they must. An object that holds nothing passes a null handle
 * on, with the result that its header gives for one; where null is not accepted, no call is made.
 *
 * Threads: as in the C headers. The calls that they want serialised (memory.h) are made by the constructors,
 * destructor and other members of owner, by those of array but for its reading members, and by making and
 * ending a section. Give the basic_ forms, and array, a `guard` for them: a type of which each such call
 * makes an object for its duration. With a section around the memory manager:
 *
 *   qv::mem_section manager_section;
 *   struct manager_guard : std::lock_guard<qv::mem_section> {
 *       manager_guard() : lock_guard(manager_section) {}
 *   };
 *   using owner = qv::basic_owner<manager_guard>; */
#ifndef FOUNDATION_FOUNDATION_HPP
#define FOUNDATION_FOUNDATION_HPP

#if __cplusplus < 201703L
#error "foundation/foundation.hpp needs C++17 or newer; the headers in C do with C++11"
#endif

#include "foundation/foundation.h"

#include <iterator>
#include <new>
#include <type_traits>
#include <utility>

#if __has_include(<memory_resource>)
#include <memory_resource>
#endif

namespace qv {

/* Makes an object that holds nothing: qv::event event(qv::none). */
enum none_t { none };

/* The default guard, for one thread, or callers that serialise by themselves: does nothing. */
struct unguarded {};

/* Where a call stands, for the calls that take it; made by default of the line with the call. */
struct call_site {
    const CHAR *file;
    INT line;
    constexpr explicit call_site(const CHAR *in_file = __builtin_FILE(),
                                 INT on_line = __builtin_LINE()) noexcept
        : file(in_file), line(on_line)
    {
    }
};

/* What all classes here have in common: one thing held. `kind` names its type, what stands for nothing, and
 * how it is given back. Nothing is a function: a constant of which an address is taken would be a symbol that
 * keeps a module from being unloaded. Not for use by itself. */
template <typename kind> class holder {
public:
    using held_type = typename kind::held_type;

    holder(holder &&other) noexcept : held_(other.detach()) {}
    holder &operator=(holder &&other) noexcept
    {
        give_back(std::exchange(held_, other.detach()));
        return *this;
    }

    explicit operator bool() const noexcept { return held_ != kind::nothing(); }

    /* Hand over what is held; the object then holds nothing. */
    [[nodiscard]] held_type detach() noexcept { return std::exchange(held_, kind::nothing()); }

protected:
    constexpr holder() noexcept = default;
    constexpr explicit holder(held_type held) noexcept : held_(held) {}
    ~holder() { give_back(held_); }

    held_type held_ = kind::nothing();

private:
    static void give_back(held_type held)
    {
        if (held != kind::nothing())
            kind::give_back(held);
    }
};

/* ---- Memory (memory.h) ---- */

template <typename guard> struct owner_kind {
    using held_type = uint64_t;
    static constexpr held_type nothing() noexcept { return 0; }
    static void give_back(uint64_t tag)
    {
        [[maybe_unused]] const guard inside{};
        ZR_memm_free_all(tag);
    }
};

/* A memory tag: its blocks are released at the end of the owner's scope. Releasing runs no destructors.
 *
 * Where the standard library has <memory_resource> it is a std::pmr::memory_resource, equal to itself alone:
 * containers take its address, so end them before it, and do not move it meanwhile. A request that asks for
 * more than the 16 bytes' alignment of every block is recorded with up to `alignment` bytes in front. One
 * that is refused ends in std::bad_alloc; without exceptions, nobody catching it, the program ends there.
 *
 * Tag 0 stands for nothing held: an owner that holds nothing must not allocate. */
template <typename guard = unguarded> class basic_owner final :
#if __has_include(<memory_resource>)
    public std::pmr::memory_resource,
#endif
    public holder<owner_kind<guard>> {
    using base = holder<owner_kind<guard>>;

public:
    /* Draws a unique tag. */
    explicit basic_owner(call_site from = call_site()) : base(unique_tag(from))
    {
    }
    /* Takes a tag over. Two owners of one tag would release each other's blocks. */
    explicit basic_owner(uint64_t tag) noexcept : base(tag)
    {
    }
    explicit basic_owner(none_t) noexcept
    {
    }
    basic_owner(basic_owner &&) noexcept = default;
    basic_owner &operator=(basic_owner &&) noexcept = default;
    ~basic_owner() = default;

    uint64_t tag() const noexcept
    {
        return this->held_;
    }

    LPVOID alloc(uint64_t size, call_site from = call_site())
    {
        [[maybe_unused]] const guard inside{};
        return ZR_memm_alloc(tag(), size, from.file, from.line);
    }
    /* Where the result is null, `block` is still the caller's. */
    LPVOID associate(LPVOID block, uint64_t size)
    {
        [[maybe_unused]] const guard inside{};
        return ZR_memm_associate(tag(), block, size);
    }
    LPVOID free(LPVOID block, call_site from = call_site())
    {
        [[maybe_unused]] const guard inside{};
        return ZR_memm_free(tag(), block, from.file, from.line);
    }
    /* A refused resize loses the old block. Pass no null. */
    [[nodiscard]] LPVOID realloc(LPVOID block, uint64_t size, call_site from = call_site())
    {
        [[maybe_unused]] const guard inside{};
        return ZR_memm_realloc(tag(), block, size, from.file, from.line);
    }
    /* Pass no null. */
    LPVOID disassociate(LPVOID block)
    {
        [[maybe_unused]] const guard inside{};
        return ZR_memm_disassociate(tag(), block);
    }
    /* Release the blocks now; the tag stays the owner's. */
    LONG free_all()
    {
        [[maybe_unused]] const guard inside{};
        return ZR_memm_free_all(tag());
    }
    [[nodiscard]] uint64_t flags(LPVOID block) const
    {
        [[maybe_unused]] const guard inside{};
        return ZR_memm_flags(tag(), block);
    }

    /* An object in a block of its own, made of `arguments`, the members' values where it has no constructor
     * for them; null, and none made, when there is no memory. One that needs its destructor is ended with
     * std::destroy_at before the block is released. */
    template <typename type, typename... argument_types> type *make(argument_types &&...arguments)
    {
        static_assert(alignof(type) <= BLOCK_ALIGNMENT, "blocks are aligned to 16 bytes");
        const LPVOID block = alloc(sizeof(type));
        if (block == nullptr)
            return nullptr;
        if constexpr (std::is_constructible_v<type, argument_types...>)
            return ::new (block) type(std::forward<argument_types>(arguments)...);
        else
            return ::new (block) type{std::forward<argument_types>(arguments)...};
    }

private:
    enum : size_t { BLOCK_ALIGNMENT = 16 };

    static uint64_t unique_tag(const call_site &from)
    {
        [[maybe_unused]] const guard inside{};
        return ZR_memm_unique_tag_get(from.file, from.line);
    }

#if __has_include(<memory_resource>)
    void *do_allocate(size_t size, size_t alignment) override
    {
        const LPVOID block = alignment <= BLOCK_ALIGNMENT ? alloc(size) : alloc_aligned(size, alignment);
        // The resource that throws std::bad_alloc, where this file may be compiled without exceptions.
        return block != nullptr ? block : std::pmr::null_memory_resource()->allocate(size, alignment);
    }
    void do_deallocate(void *block, size_t, size_t alignment) override
    {
        free(alignment <= BLOCK_ALIGNMENT ? block : static_cast<LPVOID *>(block)[-1]);
    }
    bool do_is_equal(const std::pmr::memory_resource &other) const noexcept override
    {
        return this == &other;
    }

    // The block's own address stands in front of the piece. Both are multiples of 16, so there is room.
    LPVOID alloc_aligned(size_t size, size_t alignment)
    {
        if (size > SIZE_MAX - alignment)
            return nullptr;
        auto *block = static_cast<BYTE *>(alloc(size + alignment));
        if (block == nullptr)
            return nullptr;
        BYTE *piece = block + (alignment - reinterpret_cast<uintptr_t>(block) % alignment);
        reinterpret_cast<LPVOID *>(piece)[-1] = block;
        return piece;
    }
#endif
};

using owner = basic_owner<>;

/* ---- Pointer array (array.h) ---- */

/* A place in an array. It stays what it is while the array changes: reading behind the end gives null. In
 * C++20 a random access iterator; before, an input iterator that can do more, because it gives elements by
 * value. */
template <typename element> class array_iterator {
public:
    using iterator_concept = std::random_access_iterator_tag;
    using iterator_category = std::input_iterator_tag;
    using value_type = element *;
    using difference_type = ptrdiff_t;
    using reference = element *;
    using pointer = void;

    constexpr array_iterator() noexcept = default;
    constexpr array_iterator(ZT_DT_ANY *array, uint64_t index) noexcept : array_(array), index_(index) {}

    element *operator*() const
    {
        LPVOID found = nullptr;
        ZR_array_ptr_get(array_, index_, &found);
        return static_cast<element *>(found);
    }
    element *operator[](ptrdiff_t steps) const { return *(*this + steps); }

    array_iterator &operator+=(ptrdiff_t steps) noexcept
    {
        index_ += static_cast<uint64_t>(steps);
        return *this;
    }
    array_iterator &operator-=(ptrdiff_t steps) noexcept
    {
        index_ -= static_cast<uint64_t>(steps);
        return *this;
    }
    array_iterator &operator++() noexcept { return *this += 1; }
    array_iterator &operator--() noexcept { return *this -= 1; }
    array_iterator operator++(int) noexcept { return std::exchange(*this, *this + 1); }
    array_iterator operator--(int) noexcept { return std::exchange(*this, *this - 1); }

    friend array_iterator operator+(array_iterator a, ptrdiff_t steps) noexcept { return a += steps; }
    friend array_iterator operator+(ptrdiff_t steps, array_iterator a) noexcept { return a += steps; }
    friend array_iterator operator-(array_iterator a, ptrdiff_t steps) noexcept { return a -= steps; }
    friend ptrdiff_t operator-(const array_iterator &a, const array_iterator &b) noexcept
    {
        return static_cast<ptrdiff_t>(a.index_ - b.index_);
    }

    /* Of one array. */
    friend bool operator==(const array_iterator &a, const array_iterator &b) noexcept
    {
        return a.index_ == b.index_;
    }
    friend bool operator!=(const array_iterator &a, const array_iterator &b) noexcept { return !(a == b); }
    friend bool operator<(const array_iterator &a, const array_iterator &b) noexcept
    {
        return a.index_ < b.index_;
    }
    friend bool operator>(const array_iterator &a, const array_iterator &b) noexcept { return b < a; }
    friend bool operator<=(const array_iterator &a, const array_iterator &b) noexcept { return !(b < a); }
    friend bool operator>=(const array_iterator &a, const array_iterator &b) noexcept { return !(a < b); }

private:
    ZT_DT_ANY *array_ = nullptr;
    uint64_t index_ = 0;
};

template <typename guard> struct array_kind {
    using held_type = ZT_DT_ANY *;
    static constexpr held_type nothing() noexcept { return nullptr; }
    static void give_back(ZT_DT_ANY *array)
    {
        [[maybe_unused]] const guard inside{};
        ZR_array_ptr_delete(array);
    }
};

/* A pointer array whose elements are `element *`; what they point to is not the array's. It stands under a
 * tag, whose release takes it too: the array ends before. Making one under a tag for which there is no memory
 * gives an array that holds nothing, whose calls give -1. */
template <typename element, typename guard = unguarded> class array : public holder<array_kind<guard>> {
    using base = holder<array_kind<guard>>;

public:
    using iterator = array_iterator<element>;
    using const_iterator = iterator;
    using value_type = element *;

    array() noexcept = default;
    explicit array(none_t) noexcept {}
    /* In insertion order, and not to be searched. */
    array(uint64_t tag, uint64_t increment) : base(create(tag, increment, 0, nullptr)) {}

    /* In the order of `compare`, a function of two elements that returns an INT and does not throw. */
    template <auto compare> static array sorted(uint64_t tag, uint64_t increment)
    {
        return array(create(tag, increment, 1, compare_elements<compare>));
    }
    /* In insertion order, and searched with `compare` from the front. */
    template <auto compare> static array searchable(uint64_t tag, uint64_t increment)
    {
        return array(create(tag, increment, 0, compare_elements<compare>));
    }
    static array adopt(ZT_DT_ANY *handle) noexcept { return array(handle); }

    ZT_DT_ANY *handle() const noexcept { return this->held_; }

    /* 0 also says that a sorted array could not get its new vector: then nothing was added and `*index` is as
     * it was. Preset it, to UINT64_MAX for example, to tell. */
    ZT_ERRCOUNT add(element *added, uint64_t *index = nullptr)
    {
        [[maybe_unused]] const guard inside{};
        return ZR_array_ptr_add(handle(), untyped(added), index);
    }
    ZT_ERRCOUNT set(uint64_t index, element *stored)
    {
        return ZR_array_ptr_set(handle(), index, untyped(stored));
    }
    ZT_ERRCOUNT get(uint64_t index, element *&stored) const
    {
        LPVOID found = untyped(stored);
        const ZT_ERRCOUNT status = ZR_array_ptr_get(handle(), index, &found);
        stored = static_cast<element *>(found);
        return status;
    }
    ZT_ERRCOUNT find(element *key, element *&match) const
    {
        LPVOID found = untyped(match);
        const ZT_ERRCOUNT status = ZR_array_ptr_find(handle(), untyped(key), &found);
        match = static_cast<element *>(found);
        return status;
    }
    ZT_ERRCOUNT index_get(element *key, uint64_t *index) const
    {
        return ZR_array_ptr_index_get(handle(), untyped(key), index);
    }
    ZT_ERRCOUNT remove(uint64_t index, uint64_t *removed = nullptr)
    {
        [[maybe_unused]] const guard inside{};
        return ZR_array_ptr_remove(handle(), index, removed);
    }
    ZT_ERRCOUNT remove_ex(uint64_t index, uint64_t *removed, uint64_t keep_order)
    {
        [[maybe_unused]] const guard inside{};
        return ZR_array_ptr_remove_ex(handle(), index, removed, keep_order);
    }

    /* The number of elements; 0 where nothing is held. */
    uint64_t size() const
    {
        uint64_t count = 0;
        ZR_array_ptr_count_get(handle(), &count);
        return count;
    }
    [[nodiscard]] bool empty() const { return size() == 0; }
    /* The element at `index`, or null behind the end. */
    element *operator[](uint64_t index) const { return *iterator(handle(), index); }
    iterator begin() const noexcept { return {handle(), 0}; }
    iterator end() const { return {handle(), size()}; }

private:
    explicit array(ZT_DT_ANY *handle) noexcept : base(handle) {}

    static ZT_DT_ANY *create(uint64_t tag, uint64_t increment, INT sorted, ZT_ARRAY_PTR_COMPARE compare)
    {
        [[maybe_unused]] const guard inside{};
        ZT_DT_ANY *handle = nullptr;
        ZR_array_ptr_alloc(tag, &handle, increment, sorted, compare);
        return handle;
    }
    template <auto compare> static INT compare_elements(LPVOID a, LPVOID b) noexcept
    {
        return compare(static_cast<element *>(a), static_cast<element *>(b));
    }
    static LPVOID untyped(element *pointer) noexcept
    {
        return const_cast<std::remove_cv_t<element> *>(pointer);
    }
};

/* ---- Objects for threads (os.h) ---- */

template <typename guard> struct section_kind {
    struct held_type {
        LPVOID section;
        uint64_t tag;
        friend bool operator!=(held_type a, held_type b) noexcept { return a.section != b.section; }
    };
    static constexpr held_type nothing() noexcept { return {nullptr, 0}; }
    static void give_back(held_type held)
    {
        [[maybe_unused]] const guard inside{};
        OS_sync_cs_free(held.tag, held.section);
    }
};

/* A critical section under a tag, for std::lock_guard. Freed at the end of its scope, in which no thread may
 * be inside, and before its tag is released. */
template <typename guard = unguarded> class basic_section : public holder<section_kind<guard>> {
    using base = holder<section_kind<guard>>;

public:
    basic_section() noexcept = default;
    explicit basic_section(none_t) noexcept {}
    explicit basic_section(uint64_t tag) : base({create(tag), tag}) {}
    static basic_section adopt(uint64_t tag, LPVOID handle) noexcept
    {
        basic_section taken_over;
        taken_over.held_ = {handle, tag};
        return taken_over;
    }

    LPVOID handle() const noexcept { return this->held_.section; }
    [[nodiscard]] LPVOID detach() noexcept { return base::detach().section; }

    void lock() { OS_sync_cs_enter(handle()); }
    void unlock() { OS_sync_cs_leave(handle()); }

private:
    static LPVOID create(uint64_t tag)
    {
        [[maybe_unused]] const guard inside{};
        LPVOID section = nullptr;
        OS_sync_cs_allocate(tag, &section);
        return section;
    }
};

using section = basic_section<>;

/* An object of the system's, held by an untyped handle that `give_back_function` takes. */
template <auto give_back_function> struct handle_kind {
    using held_type = LPVOID;
    static constexpr held_type nothing() noexcept { return nullptr; }
    static void give_back(LPVOID handle) { give_back_function(handle); }
};

/* A critical section outside every tag, as for a lock around the memory manager; for std::lock_guard. One
 * that is made with qv::none may be a global: it is initialised before the program runs. */
class mem_section : public holder<handle_kind<OS_mem_sync_cs_free>> {
public:
    mem_section() { OS_mem_sync_cs_allocate(&held_); }
    constexpr explicit mem_section(none_t) noexcept {}
    static mem_section adopt(LPVOID handle) noexcept
    {
        mem_section taken_over(none);
        taken_over.held_ = handle;
        return taken_over;
    }

    LPVOID handle() const noexcept { return held_; }

    void lock() { OS_sync_cs_enter(held_); }
    void unlock() { OS_sync_cs_leave(held_); }
};

/* A mutex identifier; for std::lock_guard, which ignores that a lock may fail. Emulated, a second lock gives
 * 0 at once, and the unlock that belongs to it releases the identifier under the first. */
class identifier : public holder<handle_kind<OS_mutex_ID_free>> {
public:
    identifier() { OS_mutex_ID_allocate(&held_); }
    constexpr explicit identifier(none_t) noexcept {}
    static identifier adopt(LPVOID handle) noexcept
    {
        identifier taken_over(none);
        taken_over.held_ = handle;
        return taken_over;
    }

    LPVOID handle() const noexcept { return held_; }

    /* What OS_mutex_open stores, and OS_mutex_release takes, is the identifier itself. */
    ZT_BOOL lock()
    {
        LPVOID opened = nullptr;
        return OS_mutex_open(held_, nullptr, &opened);
    }
    ZT_BOOL unlock() { return OS_mutex_release(held_); }
};

/* A manual-reset event. */
class event : public holder<handle_kind<OS_close_event>> {
public:
    explicit event(UINT initial_state = 0) { OS_create_event(&held_, initial_state, nullptr); }
    constexpr explicit event(none_t) noexcept {}
    static event adopt(LPVOID handle) noexcept
    {
        event taken_over(none);
        taken_over.held_ = handle;
        return taken_over;
    }

    LPVOID handle() const noexcept { return held_; }

    ZT_BOOL set() { return OS_set_event(held_); }
    ZT_BOOL reset() { return OS_reset_event(held_); }
    ZT_BOOL wait() { return OS_wait_for_event(held_); }
};

/* ---- Modules and files (os.h) ---- */

/* A module, given back at the end of its scope: end before it, or detach, whatever lies in its code. */
class loaded_module : public holder<handle_kind<OS_sys_module_unload>> {
public:
    loaded_module() noexcept = default;
    explicit loaded_module(none_t) noexcept {}
    /* Null gives the process image. */
    explicit loaded_module(const CHAR *name) : holder(OS_sys_module_load(name)) {}
    static loaded_module adopt(LPVOID handle) noexcept
    {
        loaded_module taken_over;
        taken_over.held_ = handle;
        return taken_over;
    }

    LPVOID handle() const noexcept { return held_; }

    /* The function or object `name`, of a type that nothing checks, such as decltype(of_a_declared_function);
     * null when it is not found, and where no module is held. */
    template <typename type> [[nodiscard]] type *symbol(const CHAR *name) const
    {
        return held_ != nullptr ? reinterpret_cast<type *>(OS_sys_sym_get(held_, name)) : nullptr;
    }
    /* Give it back now; 0 where none is held. */
    INT unload()
    {
        const LPVOID module = detach();
        return module != nullptr ? OS_sys_module_unload(module) : 0;
    }
};

struct file_kind {
    using held_type = INT;
    static constexpr held_type nothing() noexcept { return -1; }
    static void give_back(INT descriptor) { OS_close(descriptor); }
};

/* A file descriptor, closed at the end of its scope. */
class file : public holder<file_kind> {
public:
    file() noexcept = default;
    explicit file(none_t) noexcept {}
    file(const CHAR *path, INT flags, UINT permissions = 0) : holder(OS_open(path, flags, permissions)) {}
    static file create(const CHAR *path) { return adopt(OS_create(path)); }
    static file adopt(INT descriptor) noexcept
    {
        file taken_over;
        taken_over.held_ = descriptor;
        return taken_over;
    }

    /* -1 where none is held. */
    INT descriptor() const noexcept { return held_; }

    [[nodiscard]] LONG read(LPVOID buffer, UINT count) { return OS_read(held_, buffer, count); }
    LONG write(const void *buffer, UINT count) { return OS_write(held_, buffer, count); }
    LONG seek(INT offset, UINT origin) { return OS_seek(held_, offset, origin); }
    LONG size_change(INT length) { return OS_size_change(held_, length); }
    /* Close now, to see whether that succeeds; the descriptor is gone either way. */
    INT close() { return OS_close(detach()); }
};

}  // namespace qv

#endif
