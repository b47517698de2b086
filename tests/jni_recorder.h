// The words of the transcripts, for any Java VM: what the library asks of it and what the library logs, one line each
// and in order, written before the call is passed on. What others call is passed on unseen.
#pragma once

#include <android/log.h>
#include <jni.h>

#include <string>
#include <type_traits>

namespace recorder {

// The tables have other names in Android's header than in that of a workstation's JVM.
using EnvTable = std::remove_const_t<std::remove_pointer_t<decltype(JNIEnv::functions)>>;
using VmTable = std::remove_const_t<std::remove_pointer_t<decltype(JavaVM::functions)>>;

// Function tables that record; a VM that is given them goes on with its own.
struct Tables {
    EnvTable env;
    VmTable vm;
};

// Tables over those of a VM. The lines go to sink, on the thread that makes them; a call is the library's if it returns
// to where isLibrary says so. Once a process, and for ever.
Tables tablesOver(const EnvTable* env, const VmTable* vm, void (*sink)(const std::string& line),
                  bool (*isLibrary)(const void* address));

// A logger: the library's lines, and nothing of the platform's.
void logLine(const __android_log_message* message);

}  // namespace recorder
