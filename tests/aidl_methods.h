// The methods and types of the two interfaces as data, values of them behind pointers: who needs no more compiles fast.
// An interface is "IOrvixService" or "IRequest".
#pragma once

#include <android/binder_interface_utils.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/json/Type.h"

namespace orvix_test {

// In the order of the interface's file.
std::vector<sim::Method> methodsOf(const std::string& interface);

// Calls the method of its interface. The arguments are a value of its type of arguments.
ndk::ScopedAStatus call(ndk::ICInterface& object, const sim::Method& method, const void* arguments);

// A proxy, as another process has it, of a stub that tells its calls to `record`.
using OnCall = std::function<void(const sim::Method& method, const void* arguments)>;
std::shared_ptr<ndk::ICInterface> recorderOf(const std::string& interface, const OnCall& record);

// What the interface's own stub does with a transaction to such a binder.
binder_status_t dispatch(const std::string& interface, AIBinder* binder, transaction_code_t code, const AParcel* in,
                         AParcel* out);

// A type that the interface has, or a list that it could have.
const sim::Type& typeNamed(const std::string& name);

}  // namespace orvix_test
