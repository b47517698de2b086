// The value codecs: how each type of the interface is written to and read from a parcel.
//
// writeValue and readValue have one overload a type; records, methods and replies are built on nothing else. The
// platform's status is returned unchanged; two are the codecs' own: BAD_VALUE for a length that no int32 holds, and
// UNEXPECTED_NULL for a record or descriptor that is none. A failed read leaves the parcel's position where the
// platform left it.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <syslog.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace aidl::vendor::nuvel::data::orvixservice {

// A record lists its members in wire order; see Record.h.
template <typename T>
concept Record = requires {
    T::members;
};

template <typename T>
concept Enumeration = std::is_enum_v<T> && std::is_same_v<std::underlying_type_t<T>, int32_t>;

namespace codec {

// Allocators get the length with the terminator, or -1 for a null string.
inline bool allocateString(void* target, int32_t length, char** buffer) {
    if (length < 1) return false;
    auto& string = *static_cast<std::string*>(target);
    string.resize(static_cast<size_t>(length) - 1);
    *buffer = string.data();
    return true;
}

inline bool allocateNullableString(void* target, int32_t length, char** buffer) {
    auto& string = *static_cast<std::optional<std::string>*>(target);
    if (length == 0) return false;
    if (length < 0) {
        string.reset();
        return true;
    }
    return allocateString(&string.emplace(), length, buffer);
}

template <typename T>
bool allocateVector(void* target, int32_t length) {
    if (length < 0) return false;
    static_cast<std::vector<T>*>(target)->resize(static_cast<size_t>(length));
    return true;
}

inline bool allocateBytes(void* target, int32_t length, int8_t** buffer) {
    if (!allocateVector<uint8_t>(target, length)) return false;
    *buffer = reinterpret_cast<int8_t*>(static_cast<std::vector<uint8_t>*>(target)->data());
    return true;
}

inline constexpr size_t kMaxLength = std::numeric_limits<int32_t>::max();

}  // namespace codec

inline binder_status_t writeValue(AParcel* parcel, bool value) { return AParcel_writeBool(parcel, value); }
inline binder_status_t readValue(const AParcel* parcel, bool& value) { return AParcel_readBool(parcel, &value); }

inline binder_status_t writeValue(AParcel* parcel, int32_t value) { return AParcel_writeInt32(parcel, value); }
inline binder_status_t readValue(const AParcel* parcel, int32_t& value) { return AParcel_readInt32(parcel, &value); }

inline binder_status_t writeValue(AParcel* parcel, int64_t value) { return AParcel_writeInt64(parcel, value); }
inline binder_status_t readValue(const AParcel* parcel, int64_t& value) { return AParcel_readInt64(parcel, &value); }

// Enumerations pass through unchanged: any int32 is a value.
template <Enumeration E>
binder_status_t writeValue(AParcel* parcel, E value) {
    return AParcel_writeInt32(parcel, static_cast<int32_t>(value));
}
template <Enumeration E>
binder_status_t readValue(const AParcel* parcel, E& value) {
    auto number = static_cast<int32_t>(value);
    const binder_status_t status = AParcel_readInt32(parcel, &number);
    value = static_cast<E>(number);
    return status;
}

inline binder_status_t writeValue(AParcel* parcel, const std::string& value) {
    if (value.size() > codec::kMaxLength) return STATUS_BAD_VALUE;
    return AParcel_writeString(parcel, value.data(), static_cast<int32_t>(value.size()));
}
inline binder_status_t readValue(const AParcel* parcel, std::string& value) {
    return AParcel_readString(parcel, &value, codec::allocateString);
}

inline binder_status_t writeValue(AParcel* parcel, const std::optional<std::string>& value) {
    return value ? writeValue(parcel, *value) : AParcel_writeString(parcel, nullptr, -1);
}
inline binder_status_t readValue(const AParcel* parcel, std::optional<std::string>& value) {
    return AParcel_readString(parcel, &value, codec::allocateNullableString);
}

inline binder_status_t writeValue(AParcel* parcel, const std::vector<uint8_t>& value) {
    if (value.size() > codec::kMaxLength) return STATUS_BAD_VALUE;
    return AParcel_writeByteArray(parcel, reinterpret_cast<const int8_t*>(value.data()),
                                  static_cast<int32_t>(value.size()));
}
inline binder_status_t readValue(const AParcel* parcel, std::vector<uint8_t>& value) {
    return AParcel_readByteArray(parcel, &value, codec::allocateBytes);
}

// A record travels as never null: the marker 1, then itself.
template <Record R>
binder_status_t writeValue(AParcel* parcel, const R& record) {
    const binder_status_t status = AParcel_writeInt32(parcel, 1);
    return status == STATUS_OK ? record.writeToParcel(parcel) : status;
}
template <Record R>
binder_status_t readValue(const AParcel* parcel, R& record) {
    int32_t marker = 0;
    const binder_status_t status = AParcel_readInt32(parcel, &marker);
    if (status != STATUS_OK) return status;
    return marker == 0 ? STATUS_UNEXPECTED_NULL : record.readFromParcel(parcel);
}

// The platform writes the count and checks it; at() holds it to the vector.
template <Record R>
binder_status_t writeValue(AParcel* parcel, const std::vector<R>& records) {
    if (records.size() > codec::kMaxLength) return STATUS_BAD_VALUE;
    return AParcel_writeParcelableArray(
        parcel, &records, static_cast<int32_t>(records.size()), [](AParcel* out, const void* vector, size_t index) {
            return writeValue(out, static_cast<const std::vector<R>*>(vector)->at(index));
        });
}
template <Record R>
binder_status_t readValue(const AParcel* parcel, std::vector<R>& records) {
    return AParcel_readParcelableArray(parcel, &records, codec::allocateVector<R>,
                                       [](const AParcel* in, void* vector, size_t index) {
                                           return readValue(in, static_cast<std::vector<R>*>(vector)->at(index));
                                       });
}

// The descriptor is duplicated on the way; the caller keeps and closes its own.
inline binder_status_t writeValue(AParcel* parcel, const ndk::ScopedFileDescriptor& descriptor) {
    if (descriptor.get() < 0) {
        syslog(LOG_ERR, "Passing -1 file descriptor as non-@nullable AIDL ParcelFileDescriptor");
        return STATUS_UNEXPECTED_NULL;
    }
    return AParcel_writeParcelFileDescriptor(parcel, descriptor.get());
}
inline binder_status_t readValue(const AParcel* parcel, ndk::ScopedFileDescriptor& descriptor) {
    const binder_status_t status = AParcel_readParcelFileDescriptor(parcel, descriptor.getR());
    return status == STATUS_OK && descriptor.get() < 0 ? STATUS_UNEXPECTED_NULL : status;
}

template <typename I>
binder_status_t writeValue(AParcel* parcel, const std::shared_ptr<I>& object) {
    return I::writeToParcel(parcel, object);
}
template <typename I>
binder_status_t readValue(const AParcel* parcel, std::shared_ptr<I>& object) {
    return I::readFromParcel(parcel, &object);
}

}  // namespace aidl::vendor::nuvel::data::orvixservice
