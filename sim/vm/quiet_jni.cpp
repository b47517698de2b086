#include "sim/vm/quiet_jni.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <mutex>
#include <utility>

namespace quiet {

std::function<void(const Call&)> onCall;
std::atomic<jint> attachResult = JNI_OK;
std::atomic<int> localReferences = 0;

namespace {

struct Method {
    std::string name;
    std::string signature;
};

// Found once, kept for ever, as methods are in a VM.
const Method* methodOf(const char* name, const char* signature) {
    static auto& mutex = *new std::mutex;  // threads come here while the process ends
    static auto* const methods = new std::map<std::string, Method, std::less<>>;
    const std::lock_guard lock(mutex);
    const auto found = methods->find(std::string_view(name));
    if (found != methods->end() && found->second.signature == signature) return &found->second;
    return &methods->insert_or_assign(name, Method{name, signature}).first->second;
}

Object gAny;  // every class, and every object on which methods are called
thread_local bool tAttached = false;
thread_local int tLocals = 0;
thread_local std::deque<Object> tMade;  // strings and arrays of this thread, until it detaches

template <typename T = jobject>
T local(Object& object) {
    ++tLocals;
    ++localReferences;
    return reinterpret_cast<T>(&object);
}

Object& of(jobject object) {
    if (object == nullptr) {
        std::fputs("a null reference was passed to the VM\n", stderr);
        std::abort();
    }
    return *reinterpret_cast<Object*>(object);
}

void checkRange(bool inside) {
    if (inside) return;
    std::fputs("an index outside of a Java array\n", stderr);
    std::abort();
}

void checkRegion(jbyteArray array, jsize start, jsize length) {
    checkRange(start >= 0 && length >= 0 &&
               static_cast<size_t>(start) + static_cast<size_t>(length) <= of(array).bytes.size());
}

std::vector<Value> gather(const std::string& signature, va_list values) {
    std::vector<Value> gathered;
    for (size_t i = 1; signature[i] != ')'; ++i) {
        switch (signature[i]) {
            case 'Z': gathered.emplace_back(va_arg(values, int) != 0); break;
            case 'I': gathered.emplace_back(int32_t{va_arg(values, jint)}); break;
            case 'J': gathered.emplace_back(int64_t{va_arg(values, jlong)}); break;
            case 'L':
                gathered.emplace_back(of(va_arg(values, jobject)).text);
                i = signature.find(';', i);
                break;
            default: gathered.emplace_back(of(va_arg(values, jobject)).bytes); ++i;
        }
    }
    return gathered;
}

JNINativeInterface makeTable() {
    JNINativeInterface t{};
    t.FindClass = [](JNIEnv*, const char*) { return local<jclass>(gAny); };
    t.RegisterNatives = [](JNIEnv*, jclass, const JNINativeMethod*, jint) { return jint{JNI_OK}; };
    t.NewGlobalRef = [](JNIEnv*, jobject object) { return object; };
    t.DeleteLocalRef = [](JNIEnv*, jobject object) {
        if (object == nullptr) return;
        --tLocals;
        --localReferences;
    };
    t.GetMethodID = [](JNIEnv*, jclass, const char* name, const char* signature) {
        return reinterpret_cast<jmethodID>(const_cast<Method*>(methodOf(name, signature)));
    };
    t.AllocObject = [](JNIEnv*, jclass) { return local(gAny); };
    t.CallVoidMethodV = [](JNIEnv*, jobject object, jmethodID id, va_list values) {
        (void)of(object);
        const Method& method = *reinterpret_cast<Method*>(id);
        if (onCall) onCall({method.name, gather(method.signature, values)});
    };
    t.NewStringUTF = [](JNIEnv*, const char* text) { return local<jstring>(tMade.emplace_back(Object{.text = text})); };
    t.NewByteArray = [](JNIEnv*, jsize length) {
        return local<jbyteArray>(
            tMade.emplace_back(Object{.bytes = std::vector<uint8_t>(static_cast<size_t>(length))}));
    };
    t.SetByteArrayRegion = [](JNIEnv*, jbyteArray array, jsize start, jsize length, const jbyte* from) {
        checkRegion(array, start, length);
        std::copy_n(from, length, of(array).bytes.begin() + start);
    };
    t.GetByteArrayRegion = [](JNIEnv*, jbyteArray array, jsize start, jsize length, jbyte* to) {
        checkRegion(array, start, length);
        std::copy_n(of(array).bytes.begin() + start, length, to);
    };
    t.GetArrayLength = [](JNIEnv*, jarray array) {
        return static_cast<jsize>(of(array).elements.size() + of(array).bytes.size());
    };
    // A native method's references end when it returns, so they are not counted.
    t.GetObjectArrayElement = [](JNIEnv*, jobjectArray array, jsize index) {
        checkRange(index >= 0 && static_cast<size_t>(index) < of(array).elements.size());
        return ref(*of(array).elements[static_cast<size_t>(index)]);
    };
    // How the platform finds the parcel behind Java's.
    t.GetObjectClass = [](JNIEnv*, jobject) { return local<jclass>(gAny); };
    t.GetFieldID = [](JNIEnv*, jclass, const char*, const char*) { return reinterpret_cast<jfieldID>(&gAny); };
    t.GetLongField = [](JNIEnv*, jobject object, jfieldID) { return reinterpret_cast<jlong>(of(object).parcel); };
    return t;
}

const JNINativeInterface kTable = makeTable();
JNIEnv gEnv{&kTable};

JNIInvokeInterface makeVmTable() {
    JNIInvokeInterface t{};
    t.AttachCurrentThread = [](JavaVM*, JNIEnv** out, void*) {
        const jint result = attachResult;
        if (result != JNI_OK) return result;
        tAttached = true;
        *out = &gEnv;
        return result;
    };
    t.DetachCurrentThread = [](JavaVM*) {
        localReferences -= std::exchange(tLocals, 0);
        tMade.clear();
        tAttached = false;
        return jint{JNI_OK};
    };
    t.GetEnv = [](JavaVM*, void** out, jint) {
        if (!tAttached) return jint{JNI_EDETACHED};
        *out = &gEnv;
        return jint{JNI_OK};
    };
    return t;
}

const JNIInvokeInterface kVmTable = makeVmTable();
JavaVM gVm{&kVmTable};

}  // namespace

JavaVM* vm() { return &gVm; }
JNIEnv* env() {
    tAttached = true;
    return &gEnv;
}

}  // namespace quiet
