// How references to binders and descriptors look among the words of a parcel.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sim {

inline constexpr int32_t kLocalBinderType = 0x73622a85;
inline constexpr int32_t kRemoteBinderType = 0x73682a85;
inline constexpr int32_t kDescriptorType = 0x66642a85;

// An object: type, flags, handle (two words), cookie (two words). Handle and cookie are good in one process only.
inline constexpr size_t kObjectWords = 6;
inline constexpr size_t kLocalFrom = 2;
// A binder: the object, then its stability.
inline constexpr size_t kBinderWords = kObjectWords + 1;
// A descriptor: there is one; there is no second one; the object.
inline constexpr size_t kDescriptorFrom = 2;
inline constexpr size_t kDescriptorWords = kDescriptorFrom + kObjectWords;

// What there is to say of a descriptor, read or written.
inline constexpr const char* kNoPath = "a descriptor's path is not in the bytes: reading gives /dev/null for any";

}  // namespace sim
