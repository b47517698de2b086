// Calls and objects that cross between system and vendor, in the part that the library uses; a public NDK lacks this
// header.
#pragma once

#include <android/binder_ibinder.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

// The caller belongs to the vendor partition.
enum { FLAG_PRIVATE_VENDOR = 0x10000000 };

// Allows a local binder to cross. Call it before the binder is given away.
void AIBinder_markVintfStability(AIBinder* binder);

__END_DECLS
