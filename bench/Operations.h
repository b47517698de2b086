// What is measured, one by one: an operation of the library and its floor, doing the same to the same bytes.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct Operation {
    std::string name;
    std::function<void()> library;
    std::function<void()> floor = {};   // none where there is nothing to compare with
    std::function<void()> locked = {};  // the floor with what every native method owes beside its transaction
};

// All of them, ready to run on the calling thread, with the library loaded and bound to a service in this process.
std::vector<Operation> operations();
