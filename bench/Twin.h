// Straight-line twins of two records' codecs, a flat one and one with a text and a record in it, written out call by
// call over the platform alone. They are the floor that the record layer is measured against. Not inlined, as they
// would stand in a file of their own.
#pragma once

#include <android/binder_parcel.h>

#include <cstdint>
#include <limits>

#include "aidl/Records.h"

namespace twin {

namespace orvix = aidl::vendor::nuvel::data::orvixservice;

inline binder_status_t finish(AParcel* p, int32_t start) {
    const int32_t end = AParcel_getDataPosition(p);
    AParcel_setDataPosition(p, start);
    AParcel_writeInt32(p, end - start);
    AParcel_setDataPosition(p, end);
    return STATUS_OK;
}
inline binder_status_t begin(const AParcel* p, int32_t& start, int32_t& size) {
    start = AParcel_getDataPosition(p);
    const binder_status_t status = AParcel_readInt32(p, &size);
    if (status != STATUS_OK) return status;
    if (size < 4 || start > std::numeric_limits<int32_t>::max() - size) return STATUS_BAD_VALUE;
    return STATUS_OK;
}
// Whether an older writer's record ends here.
inline bool ends(const AParcel* p, int32_t start, int32_t size) {
    if (AParcel_getDataPosition(p) - start < size) return false;
    AParcel_setDataPosition(p, start + size);
    return true;
}
inline bool allocate(void* string, int32_t length, char** buffer) {
    if (length < 1) return false;
    auto* target = static_cast<std::string*>(string);
    target->resize(static_cast<size_t>(length) - 1);
    *buffer = target->data();
    return true;
}

[[gnu::noinline]] inline binder_status_t write(AParcel* p, const orvix::ByteTuple& r) {
    const int32_t start = AParcel_getDataPosition(p);
    binder_status_t status = AParcel_writeInt32(p, 0);
    if (status != STATUS_OK) return status;
    status = AParcel_writeInt64(p, r.long1);
    if (status != STATUS_OK) return status;
    status = AParcel_writeInt64(p, r.long2);
    if (status != STATUS_OK) return status;
    return finish(p, start);
}
[[gnu::noinline]] inline binder_status_t read(const AParcel* p, orvix::ByteTuple& r) {
    int32_t start = 0;
    int32_t size = 0;
    binder_status_t status = begin(p, start, size);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = AParcel_readInt64(p, &r.long1);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = AParcel_readInt64(p, &r.long2);
    if (status != STATUS_OK) return status;
    AParcel_setDataPosition(p, start + size);
    return STATUS_OK;
}

[[gnu::noinline]] inline binder_status_t write(AParcel* p, const orvix::NetworkStatsParams& r) {
    const int32_t start = AParcel_getDataPosition(p);
    binder_status_t status = AParcel_writeInt32(p, 0);
    if (status != STATUS_OK) return status;
    status = AParcel_writeInt32(p, r.uid);
    if (status != STATUS_OK) return status;
    status = AParcel_writeBool(p, r.flag1);
    if (status != STATUS_OK) return status;
    status = AParcel_writeBool(p, r.flag2);
    if (status != STATUS_OK) return status;
    if (r.text1.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) return STATUS_BAD_VALUE;
    status = AParcel_writeString(p, r.text1.data(), static_cast<int32_t>(r.text1.size()));
    if (status != STATUS_OK) return status;
    status = AParcel_writeInt32(p, 1);
    if (status != STATUS_OK) return status;
    status = write(p, r.bytes);
    if (status != STATUS_OK) return status;
    return finish(p, start);
}
[[gnu::noinline]] inline binder_status_t read(const AParcel* p, orvix::NetworkStatsParams& r) {
    int32_t start = 0;
    int32_t size = 0;
    binder_status_t status = begin(p, start, size);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = AParcel_readInt32(p, &r.uid);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = AParcel_readBool(p, &r.flag1);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = AParcel_readBool(p, &r.flag2);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = AParcel_readString(p, &r.text1, allocate);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    int32_t marker = 0;
    status = AParcel_readInt32(p, &marker);
    if (status != STATUS_OK) return status;
    if (marker == 0) return STATUS_UNEXPECTED_NULL;
    status = read(p, r.bytes);
    if (status != STATUS_OK) return status;
    AParcel_setDataPosition(p, start + size);
    return STATUS_OK;
}

}  // namespace twin
