// The calls that a call_trace has recorded, put into words. For thread_functions.cpp alone.
#pragma once

#include "support/thread_functions.h"

#include <stdint.h>

#include <string>
#include <vector>

// One call of a fake, or the place in the sequence of what the heap recorded until then.
struct fake_call {
    thread_function function;
    std::vector<const void *> addresses;  // of its arguments
    std::string more;                     // its other argument
    size_t heap_calls_before;
};

// Puts calls of the heap and of the fakes into words, oldest first.
class call_writer {
public:
    // `record` is the block that is called so; a new block takes its place.
    explicit call_writer(const void *&record) : record_(record) {}

    void write(const heap_call &call)
    {
        switch (call.kind) {
        case heap_call::MALLOC:
            if (call.block != nullptr)
                record_ = call.block;
            written_.push_back("malloc " + std::to_string(call.size) + outcome(call));
            break;
        case heap_call::CALLOC:
            written_.push_back("calloc " + std::to_string(call.size) + outcome(call));
            break;
        case heap_call::REALLOC:
            written_.push_back("realloc");  // no operation of these makes one
            break;
        case heap_call::FREE:
            written_.push_back("free " + name(call.block));
            break;
        }
    }

    void write(const fake_call &call)
    {
        if (call.function == thread_function::MUTEXATTR_INIT)
            attribute_ = call.addresses.front();
        std::string arguments;
        for (const void *address : call.addresses)
            arguments += (arguments.empty() ? "" : ", ") + name(address);
        const char *function = thread_function_names[static_cast<size_t>(call.function)];
        written_.push_back(function + ("(" + arguments + call.more + ")"));
    }

    steps written() const { return written_; }

private:
    std::string name(const void *address) const
    {
        constexpr uintptr_t LARGEST_RECORD = 96;
        if (address == nullptr)
            return "null";
        if (address == attribute_)
            return "attribute";
        const uintptr_t start = reinterpret_cast<uintptr_t>(record_);
        const uintptr_t position = reinterpret_cast<uintptr_t>(address);
        const bool is_in_record = start != 0 && position >= start && position - start < LARGEST_RECORD;
        if (!is_in_record)
            return "unknown";
        return position == start ? "record" : "record+" + std::to_string(position - start);
    }

    std::string outcome(const heap_call &call) const
    {
        return call.block != nullptr ? " = " + name(call.block) : " refused";
    }

    steps written_;
    const void *&record_;
    const void *attribute_ = nullptr;
};
