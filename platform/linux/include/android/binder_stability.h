// Stability: who may talk to whom across the border between system and vendor.
#pragma once

#include <android/binder_ibinder.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

enum {
    // The caller belongs to the vendor partition. Checked on the caller's side; it does not travel.
    FLAG_PRIVATE_VENDOR = 0x10000000,
    FLAG_PRIVATE_LOCAL = FLAG_PRIVATE_VENDOR,
};

// Allows a local binder to cross that border. To be called before the binder is given away.
void AIBinder_markVintfStability(AIBinder* binder);

__END_DECLS
