// Native side of the stand-in's android.os.Parcel, over the public functions of the binder NDK alone.
//
// A Java parcel owns the AParcel in its field mNativePtr. Reads never throw: past the end they give 0 or null, as on
// Android. Writes and bad positions throw.
#include <android/binder_parcel.h>
#include <jni.h>

#include <array>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

namespace {

// Java keeps pointers as longs.
AParcel* parcelOf(jlong ptr) {
    return reinterpret_cast<AParcel*>(static_cast<intptr_t>(ptr));  // NOLINT(performance-no-int-to-ptr)
}

void throwNew(JNIEnv* env, const char* className, const std::string& message) {
    if (jclass type = env->FindClass(className)) env->ThrowNew(type, message.c_str());
}

// False, with an exception pending, unless status is OK.
bool succeeded(JNIEnv* env, binder_status_t status, const char* what) {
    if (status == STATUS_OK) return true;
    throwNew(env, "java/lang/RuntimeException", std::string(what) + " failed with status " + std::to_string(status));
    return false;
}

jlong create(JNIEnv*, jclass) { return static_cast<jlong>(reinterpret_cast<intptr_t>(AParcel_create())); }

void destroy(JNIEnv*, jclass, jlong ptr) { AParcel_delete(parcelOf(ptr)); }

jint dataSize(JNIEnv*, jobject, jlong ptr) { return AParcel_getDataSize(parcelOf(ptr)); }

jint dataPosition(JNIEnv*, jobject, jlong ptr) { return AParcel_getDataPosition(parcelOf(ptr)); }

void setDataPosition(JNIEnv* env, jobject, jlong ptr, jint position) {
    if (AParcel_setDataPosition(parcelOf(ptr), position) == STATUS_OK) return;
    throwNew(env, "java/lang/IllegalArgumentException", "Bad parcel position " + std::to_string(position));
}

jbyteArray newByteArray(JNIEnv* env, const std::vector<uint8_t>& bytes) {
    const auto length = static_cast<jsize>(bytes.size());
    jbyteArray array = env->NewByteArray(length);
    if (array) env->SetByteArrayRegion(array, 0, length, reinterpret_cast<const jbyte*>(bytes.data()));
    return array;
}

// The caller has checked that the range lies within the array.
std::vector<uint8_t> copyRange(JNIEnv* env, jbyteArray array, jint offset, jint length) {
    std::vector<uint8_t> bytes(static_cast<size_t>(length));
    env->GetByteArrayRegion(array, offset, length, reinterpret_cast<jbyte*>(bytes.data()));
    return bytes;
}

jbyteArray marshall(JNIEnv* env, jobject, jlong ptr) {
    // A position past the end counts as size, but there is nothing to marshal; nor is there in an empty parcel.
    AParcel* const parcel = parcelOf(ptr);
    const int32_t position = AParcel_getDataPosition(parcel);
    AParcel_setDataPosition(parcel, 0);
    std::vector<uint8_t> bytes(static_cast<size_t>(AParcel_getDataSize(parcel)));
    AParcel_setDataPosition(parcel, position);
    const binder_status_t status = bytes.empty() ? STATUS_OK : AParcel_marshal(parcel, bytes.data(), 0, bytes.size());
    return succeeded(env, status, "Marshalling the parcel") ? newByteArray(env, bytes) : nullptr;
}

void unmarshall(JNIEnv* env, jobject, jlong ptr, jbyteArray data, jint offset, jint length) {
    const std::vector<uint8_t> bytes = copyRange(env, data, offset, length);
    // The NDK takes a parcel that needs no room for one that found none.
    const binder_status_t status =
        bytes.empty() ? AParcel_reset(parcelOf(ptr)) : AParcel_unmarshal(parcelOf(ptr), bytes.data(), bytes.size());
    succeeded(env, status, "Unmarshalling the parcel");
}

void writeInt(JNIEnv* env, jobject, jlong ptr, jint value) {
    succeeded(env, AParcel_writeInt32(parcelOf(ptr), value), "Writing an int");
}

void writeLong(JNIEnv* env, jobject, jlong ptr, jlong value) {
    succeeded(env, AParcel_writeInt64(parcelOf(ptr), value), "Writing a long");
}

uint32_t wordOf(jchar low, jchar high) { return static_cast<uint32_t>(low) | static_cast<uint32_t>(high) << 16; }

// Strings go over word by word: the NDK's own string functions carry UTF-8 and would lose lone surrogates.
void writeString(JNIEnv* env, jobject, jlong ptr, jstring value) {
    const jsize length = env->GetStringLength(value);
    // The terminator, and one more 0 where two units a word need it.
    std::vector<jchar> units(static_cast<size_t>(length) + 2, 0);
    env->GetStringRegion(value, 0, length, units.data());

    binder_status_t status = AParcel_writeInt32(parcelOf(ptr), length);
    for (size_t i = 0; status == STATUS_OK && i <= static_cast<size_t>(length); i += 2) {
        status = AParcel_writeInt32(parcelOf(ptr), static_cast<int32_t>(wordOf(units[i], units[i + 1])));
    }
    succeeded(env, status, "Writing a String");
}

void writeByteArray(JNIEnv* env, jobject, jlong ptr, jbyteArray array, jint offset, jint length) {
    const std::vector<uint8_t> bytes = copyRange(env, array, offset, length);
    // An empty vector may have no buffer, and no buffer would be taken for a null array.
    static constexpr int8_t kNothing = 0;
    const int8_t* data = bytes.empty() ? &kNothing : reinterpret_cast<const int8_t*>(bytes.data());
    succeeded(env, AParcel_writeByteArray(parcelOf(ptr), data, length), "Writing a byte array");
}

jint readInt(JNIEnv*, jobject, jlong ptr) {
    int32_t value = 0;
    AParcel_readInt32(parcelOf(ptr), &value);
    return value;
}

jlong readLong(JNIEnv*, jobject, jlong ptr) {
    int64_t value = 0;
    AParcel_readInt64(parcelOf(ptr), &value);
    return value;
}

jstring readString(JNIEnv* env, jobject, jlong ptr) {
    const AParcel* parcel = parcelOf(ptr);
    int32_t length = -1;
    if (AParcel_readInt32(parcel, &length) != STATUS_OK || length < 0) return nullptr;
    const int64_t words = length / 2 + 1;  // the terminator included
    if (words * 4 > AParcel_getDataSize(parcel) - AParcel_getDataPosition(parcel)) return nullptr;

    std::vector<jchar> units;
    units.reserve(static_cast<size_t>(words) * 2);
    for (int64_t i = 0; i < words; ++i) {
        int32_t word = 0;
        if (AParcel_readInt32(parcel, &word) != STATUS_OK) return nullptr;
        units.push_back(static_cast<jchar>(word & 0xffff));
        units.push_back(static_cast<jchar>(static_cast<uint32_t>(word) >> 16));
    }
    return units[static_cast<size_t>(length)] == 0 ? env->NewString(units.data(), length) : nullptr;
}

bool allocateBytes(void* bytes, int32_t length, int8_t** buffer) {
    if (length < 0) return false;
    auto& vector = *static_cast<std::vector<uint8_t>*>(bytes);
    vector.resize(static_cast<size_t>(length));
    *buffer = reinterpret_cast<int8_t*>(vector.data());
    return true;
}

// `start` is where the length stands; Java has looked at it already.
jbyteArray readByteArray(JNIEnv* env, jobject, jlong ptr, jint start) {
    std::vector<uint8_t> bytes;
    AParcel_setDataPosition(parcelOf(ptr), start);
    if (AParcel_readByteArray(parcelOf(ptr), &bytes, allocateBytes) != STATUS_OK) return nullptr;
    return newByteArray(env, bytes);
}

template <typename Function>
constexpr JNINativeMethod native(const char* name, const char* signature, Function* function) {
    return {name, signature, reinterpret_cast<void*>(function)};
}

}  // namespace

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void*) {
    JNIEnv* env = nullptr;
    if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6) != JNI_OK) return JNI_ERR;
    const std::array methods{
        native("nativeCreate", "()J", create),
        native("nativeDestroy", "(J)V", destroy),
        native("nativeDataSize", "(J)I", dataSize),
        native("nativeDataPosition", "(J)I", dataPosition),
        native("nativeSetDataPosition", "(JI)V", setDataPosition),
        native("nativeMarshall", "(J)[B", marshall),
        native("nativeUnmarshall", "(J[BII)V", unmarshall),
        native("nativeWriteInt", "(JI)V", writeInt),
        native("nativeWriteLong", "(JJ)V", writeLong),
        native("nativeWriteString", "(JLjava/lang/String;)V", writeString),
        native("nativeWriteByteArray", "(J[BII)V", writeByteArray),
        native("nativeReadInt", "(J)I", readInt),
        native("nativeReadLong", "(J)J", readLong),
        native("nativeReadString", "(J)Ljava/lang/String;", readString),
        native("nativeReadByteArray", "(JI)[B", readByteArray),
    };
    jclass parcel = env->FindClass("android/os/Parcel");
    if (!parcel || env->RegisterNatives(parcel, methods.data(), static_cast<jint>(methods.size())) != JNI_OK) {
        return JNI_ERR;
    }
    return JNI_VERSION_1_6;
}
