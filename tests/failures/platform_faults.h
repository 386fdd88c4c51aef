// Each function of the platform that the library calls and that can fail, and how it is made to.
#pragma once

#include "failures/scenario.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

constexpr int INJECTED_ERRNO = 4242;  // what a function sets that was made to fail

// The n-th call of a function from now on, counted from 1: once, or it and all later ones.
class fault {
public:
    fault(unsigned n, bool stays) : n_(n), stays_(stays) {}

    unsigned n() const { return n_; }
    bool stays() const { return stays_; }
    bool has_struck() const { return has_struck_; }

    bool strikes();  // asked in every call
    void strike();   // told by what counts for itself

private:
    unsigned n_;
    bool stays_;
    bool has_struck_ = false;
    unsigned calls_ = 0;
};

struct platform_function {
    std::string name;
    int failure_errno;  // what stands in errno after a failure; 0: the function leaves it alone
    // The fault is in force as long as the result lives.
    std::function<std::shared_ptr<void>(const scenario &in, call_trace &calls, fault &which)> arm;
};

const std::vector<platform_function> &platform_functions();

// What the function's fake answers in a scenario when no fault strikes.
long ordinary_answer(const scenario &in, thread_function function);
