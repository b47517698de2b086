# What an NDK brings, from Debian's packages: to compile and link the library for a device, and to look at what came out.
# C and C++ headers are the cross compiler's and libc++'s; the platform's are the stand-in's, behind device/ndk's. What is
# linked cannot run.
set(cross /usr/aarch64-linux-gnu)
set(libcxx /usr/lib/llvm-14/lib/libc++.so.1 /usr/lib/llvm-14/lib/libc++abi.so.1)
file(GLOB libgcc /usr/lib/gcc-cross/aarch64-linux-gnu/*/libgcc.a)
add_compile_options(-nostdinc++)
include_directories(SYSTEM /usr/lib/llvm-14/include/c++/v1 ${cross}/include /usr/include/android/nativehelper
                    ${CMAKE_SOURCE_DIR}/platform/linux/include)

# Debian has libc++ for the host's processor only, but its names are the same.
set(names ${CMAKE_BINARY_DIR}/c++.symbols)
execute_process(COMMAND nm -D --defined-only --format=just-symbols ${libcxx} OUTPUT_FILE ${names}
                COMMAND_ERROR_IS_FATAL ANY)
link_stub(c++ ${names})
link_stub(log ${CMAKE_SOURCE_DIR}/device/ndk/log.symbols)
add_link_options(-nostdlib)
link_libraries(c++ ${cross}/lib/libc.so.6 ${libgcc})
