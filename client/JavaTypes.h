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
struct ToJava {
    static_assert(std::is_enum_v<T>, "a Java method takes bool, int32_t, int64_t, an enumeration, a string or bytes");
    static jint from(JNIEnv*, T value) { return static_cast<jint>(value); }
};
template <>
struct ToJava<bool> {
    static jboolean from(JNIEnv*, bool value) { return value ? JNI_TRUE : JNI_FALSE; }
};
template <>
struct ToJava<int32_t> {
    static jint from(JNIEnv*, int32_t value) { return value; }
};
template <>
struct ToJava<int64_t> {
    static jlong from(JNIEnv*, int64_t value) { return value; }
};
template <>
struct ToJava<std::string> {
    static jstring from(JNIEnv* env, const std::string& value) { return env->NewStringUTF(value.c_str()); }
};
template <>
struct ToJava<std::vector<uint8_t>> {
    static jbyteArray from(JNIEnv* env, const std::vector<uint8_t>& value) {
        const auto length = static_cast<jsize>(value.size());
        jbyteArray array = env->NewByteArray(length);
        env->SetByteArrayRegion(array, 0, length, reinterpret_cast<const jbyte*>(value.data()));
        return array;
    }
};
template <typename T>
using JavaType = decltype(ToJava<T>::from(nullptr, std::declval<T>()));

}  // namespace orvix
