// The types of Java methods: their letters in a signature, and how C++ values become their arguments.
#pragma once

#include <jni.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace orvix {

// The letters of a JNI type; an object that is neither string nor array is a parcel here.
template <typename T>
inline constexpr std::string_view kLetters{};
template <>
inline constexpr std::string_view kLetters<jboolean> = "Z";
template <>
inline constexpr std::string_view kLetters<jint> = "I";
template <>
inline constexpr std::string_view kLetters<jlong> = "J";
template <>
inline constexpr std::string_view kLetters<jstring> = "Ljava/lang/String;";
template <>
inline constexpr std::string_view kLetters<jbyteArray> = "[B";
template <>
inline constexpr std::string_view kLetters<jobject> = "Landroid/os/Parcel;";
template <>
inline constexpr std::string_view kLetters<jobjectArray> = "[Landroid/os/Parcel;";

// The signature of a void method with these parameters, ended by a 0.
template <typename... T>
consteval auto signatureOf() {
    static_assert((!kLetters<T>.empty() && ...), "a type that no Java method of this library has");
    std::array<char, (kLetters<T>.size() + ... + sizeof "()V")> text{};
    size_t at = 0;
    const auto add = [&](std::string_view letters) {
        for (const char letter : letters) text[at++] = letter;
    };
    add("(");
    (add(kLetters<T>), ...);
    add(")V");
    return text;
}
template <typename... T>
inline constexpr auto kSignature = signatureOf<T...>();

// A value as CallVoidMethod takes it: exactly a jboolean, jint, jlong or a new local reference, since varargs promote
// anything else differently.
template <typename T>
auto toJava([[maybe_unused]] JNIEnv* env, const T& value) {
    if constexpr (std::is_same_v<T, bool>) {
        return static_cast<jboolean>(value ? JNI_TRUE : JNI_FALSE);
    } else if constexpr (std::is_same_v<T, int64_t>) {
        return jlong{value};
    } else if constexpr (std::is_same_v<T, std::string>) {
        return env->NewStringUTF(value.c_str());
    } else if constexpr (std::is_same_v<T, std::vector<uint8_t>>) {
        const auto length = static_cast<jsize>(value.size());
        jbyteArray array = env->NewByteArray(length);
        env->SetByteArrayRegion(array, 0, length, reinterpret_cast<const jbyte*>(value.data()));
        return array;
    } else {
        static_assert(std::is_same_v<T, int32_t> || std::is_enum_v<T>,
                      "a Java method takes bool, int32_t, int64_t, an enumeration, a string or bytes");
        return static_cast<jint>(value);
    }
}
template <typename T>
using JavaType = decltype(toJava(nullptr, std::declval<T>()));

}  // namespace orvix
