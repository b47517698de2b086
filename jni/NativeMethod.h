// A row of the native method table: a signature that does not fit its C++ function does not compile.
#pragma once

#include <jni.h>

#include <string_view>

#include "client/JavaTypes.h"

namespace orvix {

template <typename... Args>
constexpr bool fits(std::string_view signature, void (*)(JNIEnv*, jobject, Args...)) {
    return signature == kSignature<Args...>.data();
}

// Not constexpr: reaching it at compile time is the error.
void theSignatureDoesNotFitTheFunction();

template <auto Function>
class NativeSignature {
  public:
    consteval NativeSignature(const char* signature) : text(signature) {
        if (!fits(signature, Function)) theSignatureDoesNotFitTheFunction();
    }
    const char* text;
};

// The function's address is a run-time value: the table is filled in at load.
template <auto Function>
JNINativeMethod native(const char* name, NativeSignature<Function> signature) {
    return {name, signature.text, reinterpret_cast<void*>(Function)};
}

}  // namespace orvix
