// What is measured, one by one: an operation of the library and its floor, doing the same to the same bytes.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct Operation {
    std::string name;
    std::function<void()> library;
    std::function<void()> floor = {};     // none where there is nothing to compare with
    std::function<void()> promised = {};  // the floor with what the library has promised to do beside it
};

// All of them, ready to run on the calling thread, with the library loaded and bound to a service in this process.
std::vector<Operation> operations();
