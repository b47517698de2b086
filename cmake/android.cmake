# Android on AArch64, API level 35, outside a platform tree. Give one of
#   ORVIX_ANDROID_NDK     folder of an NDK; its clang and headers are used
#   ORVIX_ANDROID_CLANG   a clang++ (a platform tree's, say), with ORVIX_ANDROID_SYSROOT for headers and C library
# as cache variable or in the environment.
foreach(name ORVIX_ANDROID_NDK ORVIX_ANDROID_CLANG ORVIX_ANDROID_SYSROOT)
    if(NOT ${name} AND DEFINED ENV{${name}})
        set(${name} $ENV{${name}})
    endif()
endforeach()
if(ORVIX_ANDROID_NDK)
    set(ORVIX_ANDROID_CLANG ${ORVIX_ANDROID_NDK}/toolchains/llvm/prebuilt/linux-x86_64/bin/clang++)
endif()
if(NOT ORVIX_ANDROID_CLANG)
    message(FATAL_ERROR "the android preset needs -DORVIX_ANDROID_NDK=FOLDER or -DORVIX_ANDROID_CLANG=CLANG++")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ORVIX_ANDROID_CLANG ORVIX_ANDROID_SYSROOT)

# "Linux" to CMake, whose own knowledge of Android wants an NDK.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER ${ORVIX_ANDROID_CLANG})
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-android35)
if(ORVIX_ANDROID_SYSROOT)
    set(CMAKE_SYSROOT ${ORVIX_ANDROID_SYSROOT})
endif()
set(CMAKE_CXX_FLAGS_INIT -fno-rtti)  # as the platform's build
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_SKIP_RPATH ON)
