// From an android.os.Parcel to its native side.
#pragma once

#include <android/binder_parcel.h>
#include <jni.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

// A view: it shares content and position with the Java parcel, and must be deleted (AParcel_delete) while that lives.
// Null for a null or recycled parcel.
AParcel* AParcel_fromJavaParcel(JNIEnv* env, jobject parcel) __attribute__((warn_unused_result));

__END_DECLS
