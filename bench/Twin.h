// Straight-line twins of three records' codecs: a flat one, one of strings, one with a record and a list in it. Written
// out call by call over the platform alone, as one would by hand for each record. They are the floor that the record
// layer is measured against, and an independent opinion about the bytes. Not inlined, as they would stand in a file of
// their own.
#pragma once

#include <android/binder_parcel.h>

#include <cstdint>
#include <limits>

#include "aidl/Records.h"

namespace twin {

namespace orvix = aidl::vendor::nuvel::data::orvixservice;

inline bool allocate(void* string, int32_t length, char** buffer) {
    if (length < 1) return false;
    auto* target = static_cast<std::string*>(string);
    target->resize(static_cast<size_t>(length) - 1);
    *buffer = target->data();
    return true;
}
inline binder_status_t readText(const AParcel* p, std::string& text) { return AParcel_readString(p, &text, allocate); }
inline binder_status_t writeText(AParcel* p, const std::string& text) {
    if (text.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) return STATUS_BAD_VALUE;
    return AParcel_writeString(p, text.data(), static_cast<int32_t>(text.size()));
}
inline binder_status_t finish(AParcel* p, int32_t start) {
    const int32_t end = AParcel_getDataPosition(p);
    AParcel_setDataPosition(p, start);
    const binder_status_t status = AParcel_writeInt32(p, end - start);
    AParcel_setDataPosition(p, end);
    return status;
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

[[gnu::noinline]] inline binder_status_t write(AParcel* p, const orvix::BatteryState& r) {
    const int32_t start = AParcel_getDataPosition(p);
    binder_status_t status = AParcel_writeInt32(p, 0);
    if (status != STATUS_OK) return status;
    status = AParcel_writeInt32(p, r.int1);
    if (status != STATUS_OK) return status;
    status = AParcel_writeBool(p, r.flag1);
    if (status != STATUS_OK) return status;
    return finish(p, start);
}
[[gnu::noinline]] inline binder_status_t read(const AParcel* p, orvix::BatteryState& r) {
    int32_t start = 0;
    int32_t size = 0;
    binder_status_t status = begin(p, start, size);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = AParcel_readInt32(p, &r.int1);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = AParcel_readBool(p, &r.flag1);
    if (status != STATUS_OK) return status;
    AParcel_setDataPosition(p, start + size);
    return STATUS_OK;
}

[[gnu::noinline]] inline binder_status_t write(AParcel* p, const orvix::BuildInfoParams& r) {
    const int32_t start = AParcel_getDataPosition(p);
    binder_status_t status = AParcel_writeInt32(p, 0);
    if (status != STATUS_OK) return status;
    status = writeText(p, r.text1);
    if (status != STATUS_OK) return status;
    status = writeText(p, r.text2);
    if (status != STATUS_OK) return status;
    status = writeText(p, r.text3);
    if (status != STATUS_OK) return status;
    status = writeText(p, r.text4);
    if (status != STATUS_OK) return status;
    status = writeText(p, r.text5);
    if (status != STATUS_OK) return status;
    status = writeText(p, r.text6);
    if (status != STATUS_OK) return status;
    status = writeText(p, r.text7);
    if (status != STATUS_OK) return status;
    status = writeText(p, r.text8);
    if (status != STATUS_OK) return status;
    return finish(p, start);
}
[[gnu::noinline]] inline binder_status_t read(const AParcel* p, orvix::BuildInfoParams& r) {
    int32_t start = 0;
    int32_t size = 0;
    binder_status_t status = begin(p, start, size);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = readText(p, r.text1);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = readText(p, r.text2);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = readText(p, r.text3);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = readText(p, r.text4);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = readText(p, r.text5);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = readText(p, r.text6);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = readText(p, r.text7);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = readText(p, r.text8);
    if (status != STATUS_OK) return status;
    AParcel_setDataPosition(p, start + size);
    return STATUS_OK;
}

[[gnu::noinline]] inline binder_status_t write(AParcel* p, const orvix::TelephonyInfoParams& r) {
    const int32_t start = AParcel_getDataPosition(p);
    binder_status_t status = AParcel_writeInt32(p, 0);
    if (status != STATUS_OK) return status;
    status = AParcel_writeInt32(p, r.int1);
    if (status != STATUS_OK) return status;
    status = writeText(p, r.text1);
    if (status != STATUS_OK) return status;
    status = writeText(p, r.text2);
    if (status != STATUS_OK) return status;
    status = writeText(p, r.text3);
    if (status != STATUS_OK) return status;
    status = writeText(p, r.text4);
    if (status != STATUS_OK) return status;
    status = AParcel_writeInt32(p, r.int2);
    if (status != STATUS_OK) return status;
    return finish(p, start);
}
[[gnu::noinline]] inline binder_status_t read(const AParcel* p, orvix::TelephonyInfoParams& r) {
    int32_t start = 0;
    int32_t size = 0;
    binder_status_t status = begin(p, start, size);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = AParcel_readInt32(p, &r.int1);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = readText(p, r.text1);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = readText(p, r.text2);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = readText(p, r.text3);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = readText(p, r.text4);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = AParcel_readInt32(p, &r.int2);
    if (status != STATUS_OK) return status;
    AParcel_setDataPosition(p, start + size);
    return STATUS_OK;
}

[[gnu::noinline]] inline binder_status_t write(AParcel* p, const orvix::CensusInfo& r) {
    const int32_t start = AParcel_getDataPosition(p);
    binder_status_t status = AParcel_writeInt32(p, 0);
    if (status != STATUS_OK) return status;
    status = AParcel_writeInt32(p, 1);
    if (status != STATUS_OK) return status;
    status = write(p, r.buildInfo);
    if (status != STATUS_OK) return status;
    if (r.telephonyInfos.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) return STATUS_BAD_VALUE;
    status = AParcel_writeParcelableArray(
        p, &r.telephonyInfos, static_cast<int32_t>(r.telephonyInfos.size()),
        [](AParcel* out, const void* infos, size_t index) -> binder_status_t {
            const binder_status_t marked = AParcel_writeInt32(out, 1);
            if (marked != STATUS_OK) return marked;
            return write(out, static_cast<const std::vector<orvix::TelephonyInfoParams>*>(infos)->at(index));
        });
    if (status != STATUS_OK) return status;
    return finish(p, start);
}
[[gnu::noinline]] inline binder_status_t read(const AParcel* p, orvix::CensusInfo& r) {
    int32_t start = 0;
    int32_t size = 0;
    binder_status_t status = begin(p, start, size);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    int32_t marker = 0;
    status = AParcel_readInt32(p, &marker);
    if (status != STATUS_OK) return status;
    if (marker == 0) return STATUS_UNEXPECTED_NULL;
    status = read(p, r.buildInfo);
    if (status != STATUS_OK) return status;
    if (ends(p, start, size)) return STATUS_OK;
    status = AParcel_readParcelableArray(
        p, &r.telephonyInfos,
        [](void* infos, int32_t length) {
            if (length < 0) return false;
            static_cast<std::vector<orvix::TelephonyInfoParams>*>(infos)->resize(static_cast<size_t>(length));
            return true;
        },
        [](const AParcel* in, void* infos, size_t index) -> binder_status_t {
            int32_t mark = 0;
            const binder_status_t marked = AParcel_readInt32(in, &mark);
            if (marked != STATUS_OK) return marked;
            if (mark == 0) return STATUS_UNEXPECTED_NULL;
            return read(in, static_cast<std::vector<orvix::TelephonyInfoParams>*>(infos)->at(index));
        });
    if (status != STATUS_OK) return status;
    AParcel_setDataPosition(p, start + size);
    return STATUS_OK;
}

}  // namespace twin
