// A row of the native method table: a signature that does not fit its C++ function does not compile.
#pragma once

#include <jni.h>

#include <string_view>

namespace orvix {

template <typename T>
inline constexpr std::string_view kLetters{};
template <>
inline constexpr std::string_view kLetters<jboolean> = "Z";
template <>
inline constexpr std::string_view kLetters<jint> = "I";
template <>
inline constexpr std::string_view kLetters<jlong> = "J";
template <>
inline constexpr std::string_view kLetters<jbyteArray> = "[B";
template <>
inline constexpr std::string_view kLetters<jobject> = "Landroid/os/Parcel;";
template <>
inline constexpr std::string_view kLetters<jobjectArray> = "[Landroid/os/Parcel;";

// Whether signature is that of a void method with these parameters.
template <typename... Args>
constexpr bool fits(std::string_view signature, void (*)(JNIEnv*, jobject, Args...)) {
    const auto take = [&signature](std::string_view letters) {
        if (letters.empty() || signature.substr(0, letters.size()) != letters) return false;
        signature.remove_prefix(letters.size());
        return true;
    };
    return take("(") && (take(kLetters<Args>) && ...) && take(")V") && signature.empty();
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
