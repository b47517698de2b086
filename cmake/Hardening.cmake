# The device build's hardening for any clang with lld. Included after the platform, which brings its own.
#
# Control-flow integrity checks virtual calls, member-function calls and casts against the classes of one linked object,
# so everything that links the library is built for it too. The check of plain indirect calls (cfi-icall) stays out: in
# one object it knows that object's functions only, and a call through a JNI function table ends in the Java VM. The
# platform build has it across objects, with the system's help.
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "the hardened build needs clang, not ${CMAKE_CXX_COMPILER_ID}")
endif()

set(cfi -flto -fsanitize=cfi -fno-sanitize=cfi-icall)
add_compile_options(${cfi} -fvisibility=hidden -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2
                    -fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/hardening.ignore)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    add_compile_options(-mbranch-protection=standard -moutline-atomics)
endif()
add_link_options(${cfi} -fuse-ld=lld -Wl,-z,relro,-z,now,-z,noexecstack,-z,max-page-size=16384)

# The minimal runtime stands beside the builtins, for the targets that a toolchain has it for; a shared library must
# name it. Without one the check is a trap, which ends the process as well.
separate_arguments(target_flags UNIX_COMMAND "${CMAKE_CXX_FLAGS}")
if(CMAKE_CXX_COMPILER_TARGET)
    list(PREPEND target_flags --target=${CMAKE_CXX_COMPILER_TARGET})
endif()
execute_process(COMMAND ${CMAKE_CXX_COMPILER} ${target_flags} --rtlib=compiler-rt -print-libgcc-file-name
                OUTPUT_VARIABLE minimal_runtime OUTPUT_STRIP_TRAILING_WHITESPACE)
string(REPLACE builtins ubsan_minimal minimal_runtime "${minimal_runtime}")
if(NOT EXISTS "${minimal_runtime}")
    message(STATUS "no minimal sanitizer runtime for this target: an integer overflow traps")
    set(minimal_runtime "")
endif()
link_libraries(${minimal_runtime})

# Overflow ends the process, unsigned too: in the library's own code alone.
function(orvix_check_integers target)
    set(checks signed-integer-overflow,unsigned-integer-overflow)
    target_compile_options(${target} PRIVATE -fsanitize=${checks})
    if(minimal_runtime)
        target_compile_options(${target} PRIVATE -fsanitize-minimal-runtime -fno-sanitize-recover=${checks})
    else()
        target_compile_options(${target} PRIVATE -fsanitize-trap=${checks})
    endif()
endfunction()
