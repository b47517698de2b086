// A JVMTI agent that writes down what libOrvixJni.so does on a real virtual machine, in the words of the transcripts.
//
//   java -agentpath:libjvm_recorder.so=FD ...

#include <dlfcn.h>
#include <jvmti.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "tests/jni_recorder.h"

namespace {

int file = -1;

void writeLine(const std::string& line) {
    const std::string text = line + '\n';
    if (write(file, text.data(), text.size()) < 0) std::perror("jvm_recorder");
}

bool isLibrary(const void* address) {
    Dl_info info{};
    return dladdr(address, &info) != 0 && std::string_view(info.dli_fname).ends_with("/libOrvixJni.so");
}

void logLine(const __android_log_message* message) {
    recorder::logLine(message);
    __android_log_stderr_logger(message);
}

// The machine can only now take another table; the library is not loaded yet.
void JNICALL vmInit(jvmtiEnv* jvmti, JNIEnv* env, jthread) {
    jniNativeInterface* table = nullptr;
    JavaVM* vm = nullptr;
    if (jvmti->GetJNIFunctionTable(&table) != JVMTI_ERROR_NONE || env->GetJavaVM(&vm) != JNI_OK) {
        env->FatalError("jvm_recorder: no function table");
    }
    static const recorder::Tables tables = recorder::tablesOver(table, vm->functions, writeLine, isLibrary);
    if (jvmti->SetJNIFunctionTable(&tables.env) != JVMTI_ERROR_NONE) env->FatalError("jvm_recorder: table refused");
    vm->functions = &tables.vm;
    __android_log_set_logger(logLine);
}

}  // namespace

extern "C" JNIEXPORT jint JNICALL Agent_OnLoad(JavaVM* vm, char* options, void*) {
    file = std::atoi(options);
    jvmtiEnv* jvmti = nullptr;
    if (vm->GetEnv(reinterpret_cast<void**>(&jvmti), JVMTI_VERSION_11) != JNI_OK) return JNI_ERR;
    jvmtiEventCallbacks callbacks{};
    callbacks.VMInit = vmInit;
    jvmti->SetEventCallbacks(&callbacks, sizeof callbacks);
    return jvmti->SetEventNotificationMode(JVMTI_ENABLE, JVMTI_EVENT_VM_INIT, nullptr) == JVMTI_ERROR_NONE ? JNI_OK
                                                                                                           : JNI_ERR;
}
