#include <android/binder_parcel_jni.h>

#include "Parcel.h"

AParcel* AParcel_fromJavaParcel(JNIEnv* env, jobject parcel) {
    if (parcel == nullptr) return nullptr;
    jclass javaClass = env->GetObjectClass(parcel);
    jfieldID field = env->GetFieldID(javaClass, "mNativePtr", "J");
    env->DeleteLocalRef(javaClass);
    if (field == nullptr) return nullptr;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): Java keeps the pointer in a long.
    const auto* behind = reinterpret_cast<const AParcel*>(env->GetLongField(parcel, field));
    if (behind != nullptr) return new AParcel{behind->content, nullptr};
    env->ThrowNew(env->FindClass("java/lang/IllegalStateException"), "The parcel has been recycled");
    return nullptr;
}
