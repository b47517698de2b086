// From C++ values to the arguments of a Java method: the type decides the signature and the conversion.
#pragma once

#include <jni.h>

#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

namespace orvix {

// signature: the type's letters in a JNI method signature. from: the value as CallVoidMethod takes it, exactly a
// jboolean, jint, jlong or a new local reference, since varargs promote anything else differently.
template <typename T>
struct JavaType {
    static_assert(std::is_enum_v<T>, "a Java method takes bool, int32_t, int64_t, an enumeration, a string or bytes");
    static constexpr const char* signature = "I";
    static jint from(JNIEnv*, T value) { return static_cast<jint>(value); }
};
template <>
struct JavaType<bool> {
    static constexpr const char* signature = "Z";
    static jboolean from(JNIEnv*, bool value) { return value ? JNI_TRUE : JNI_FALSE; }
};
template <>
struct JavaType<int32_t> {
    static constexpr const char* signature = "I";
    static jint from(JNIEnv*, int32_t value) { return value; }
};
template <>
struct JavaType<int64_t> {
    static constexpr const char* signature = "J";
    static jlong from(JNIEnv*, int64_t value) { return value; }
};
template <>
struct JavaType<std::string> {
    static constexpr const char* signature = "Ljava/lang/String;";
    static jstring from(JNIEnv* env, const std::string& value) { return env->NewStringUTF(value.c_str()); }
};
template <>
struct JavaType<std::vector<uint8_t>> {
    static constexpr const char* signature = "[B";
    static jbyteArray from(JNIEnv* env, const std::vector<uint8_t>& value) {
        const auto length = static_cast<jsize>(value.size());
        jbyteArray array = env->NewByteArray(length);
        env->SetByteArrayRegion(array, 0, length, reinterpret_cast<const jbyte*>(value.data()));
        return array;
    }
};

// The signature of a void method with these parameters.
template <typename... Args>
std::string signatureOf() {
    return (std::string("(") + ... + JavaType<Args>::signature) + ")V";
}

}  // namespace orvix
