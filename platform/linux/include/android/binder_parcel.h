// Parcels: typed values one after the other, in the device's bytes. A parcel is for one thread at a time.
//
// A number that cannot be read leaves value and position as they were; longer reads stop where they failed. A write
// that is refused wrote nothing. Objects (binders, file descriptors) are references: the parcel holds its own until it
// is deleted.
#pragma once

#include <android/binder_status.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/cdefs.h>

// C programs read this too. NOLINTBEGIN(modernize-use-using)
__BEGIN_DECLS

struct AIBinder;
typedef struct AIBinder AIBinder;
struct AParcel;
typedef struct AParcel AParcel;

AParcel* AParcel_create(void);
void AParcel_delete(AParcel* parcel);
binder_status_t AParcel_reset(AParcel* parcel);

// Bytes. Negative: STATUS_BAD_VALUE. Past the end is allowed.
binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position);
int32_t AParcel_getDataPosition(const AParcel* parcel);
int32_t AParcel_getDataSize(const AParcel* parcel);

// Raw bytes from `start`. STATUS_INVALID_OPERATION if the parcel holds objects, STATUS_BAD_VALUE out of range.
binder_status_t AParcel_marshal(const AParcel* parcel, uint8_t* buffer, size_t start, size_t len);
// Replaces the content and leaves the position at the end; the size is padded to 4.
binder_status_t AParcel_unmarshal(AParcel* parcel, const uint8_t* buffer, size_t len);

binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value);
binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value);
binder_status_t AParcel_writeBool(AParcel* parcel, bool value);
binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value);
binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value);
// Sets the target to false when it fails.
binder_status_t AParcel_readBool(const AParcel* parcel, bool* value);

// UTF-8 in memory, UTF-16 in the parcel. Null travels as (null, -1).
binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length);
// Asked for `length` bytes, the terminator among them, or told of a null string by -1. False refuses: STATUS_NO_MEMORY,
// for null STATUS_UNEXPECTED_NULL.
typedef bool (*AParcel_stringAllocator)(void* stringData, int32_t length, char** buffer);
// A string that is cut short reads as null.
binder_status_t AParcel_readString(const AParcel* parcel, void* stringData, AParcel_stringAllocator allocator);

binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* arrayData, int32_t length);
// As with strings; the length is that of the array.
typedef bool (*AParcel_byteArrayAllocator)(void* arrayData, int32_t length, int8_t** outBuffer);
binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData, AParcel_byteArrayAllocator allocator);

typedef binder_status_t (*AParcel_writeParcelableElement)(AParcel* parcel, const void* arrayData, size_t index);
typedef bool (*AParcel_parcelableArrayAllocator)(void* arrayData, int32_t length);
typedef binder_status_t (*AParcel_readParcelableElement)(const AParcel* parcel, void* arrayData, size_t index);
// The count, then each element by the caller's function; the first failure is the answer.
binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter);
binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* arrayData,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader);

// Null is allowed.
binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder);
// The caller gets a reference of its own.
binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder);

// Duplicates; -1 travels as null.
binder_status_t AParcel_writeParcelFileDescriptor(AParcel* parcel, int fd);
// Duplicates (close-on-exec): the caller closes its own. Null reads as -1.
binder_status_t AParcel_readParcelFileDescriptor(const AParcel* parcel, int* fd);

// A status of AStatus_fromStatus writes nothing: it is the answer.
binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status);
// The caller deletes the status.
binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status);

__END_DECLS
// NOLINTEND(modernize-use-using)
