// The content of a parcel: bytes, a position, and the objects among the bytes.
#pragma once

#include <android/binder_auto_utils.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Frame.h"

namespace standin {

// How an object looks among the bytes.
struct FlatObject {
    uint32_t type;
    uint32_t flags;
    uint64_t handle;
    uint64_t cookie;
};
static_assert(sizeof(FlatObject) == kObjectSize);

// The reference behind a FlatObject: a binder or a descriptor.
struct Object {
    ndk::SpAIBinder binder;
    ndk::ScopedFileDescriptor descriptor;
};

class Parcel {
  public:
    std::vector<uint8_t> bytes;
    std::map<size_t, Object> objects;  // by their offset; they never overlap
    size_t position = 0;               // may be past the end

    size_t size() const { return bytes.size() > position ? bytes.size() : position; }
    size_t left() const { return bytes.size() > position ? bytes.size() - position : 0; }
    void clear();

    // Room for so many bytes at the position, padded to 4 with zeros; null if a position could not say where it ends.
    uint8_t* grow(size_t length);
    // The bytes at the position, or null if they and their padding are not all there.
    const uint8_t* take(size_t length);

    template <typename T>
    binder_status_t write(T value) {
        uint8_t* room = grow(sizeof(value));
        if (room == nullptr) return STATUS_NO_MEMORY;
        std::memcpy(room, &value, sizeof(value));
        return STATUS_OK;
    }
    template <typename T>
    binder_status_t read(T* value) {
        const uint8_t* data = take(sizeof(*value));
        if (data == nullptr) return STATUS_NOT_ENOUGH_DATA;
        std::memcpy(value, data, sizeof(*value));
        return STATUS_OK;
    }

    binder_status_t writeString(std::string_view string);
    // Nothing for null and for a string that is cut short.
    std::optional<std::string> readString();

    binder_status_t writeBinder(AIBinder* binder);
    // With a reference for the caller; null is fine.
    binder_status_t readBinder(AIBinder** binder);
    // A duplicate, which is the parcel's.
    binder_status_t writeDescriptor(int fd);
    // A duplicate for the caller.
    binder_status_t readDescriptor(int* fd);

    // What a transaction begins with, and what its receiver checks before anything else.
    binder_status_t writeToken(const std::string& descriptor);
    bool checkToken(const std::string& descriptor);

    // Puts an object into the bytes at an offset, where they must be, whatever they said before.
    void place(size_t offset, Object object);

  private:
    const Object* takeObject(uint32_t type, bool& isNull);
};

// A duplicate at a high number: a program that closes one of its own descriptors twice must not hit it. -1 and errno if
// the descriptor is not open.
int duplicateHigh(int fd);

}  // namespace standin

// Several AParcels may share one content: a view of a Java parcel is such a one.
struct AParcel {
    std::shared_ptr<standin::Parcel> content = std::make_shared<standin::Parcel>();
    ndk::SpAIBinder binder = nullptr;  // the one that it was prepared for
};
