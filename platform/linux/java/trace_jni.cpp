// Native side of the stand-in's android.os.Trace.
#include <jni.h>

#include "../src/Trace.h"

extern "C" JNIEXPORT void JNICALL Java_android_os_Trace_beginSection(JNIEnv* env, jclass, jstring name) {
    const char* const text = name == nullptr ? nullptr : env->GetStringUTFChars(name, nullptr);
    if (text == nullptr) return;
    standin::beginSection(text);
    env->ReleaseStringUTFChars(name, text);
}

extern "C" JNIEXPORT void JNICALL Java_android_os_Trace_endSection(JNIEnv*, jclass) { standin::endSection(); }
