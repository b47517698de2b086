#include "Parcel.h"

#include <android/binder_parcel.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>

#include "Object.h"

namespace standin {
namespace {

constexpr size_t kMaxSize = std::numeric_limits<int32_t>::max();

constexpr uint32_t kBinderType = 0x73622a85;      // "sb*\x85": a local binder
constexpr uint32_t kHandleType = 0x73682a85;      // "sh*\x85": a remote one
constexpr uint32_t kDescriptorType = 0x66642a85;  // "fd*\x85"
constexpr uint32_t kPriorityFlags = 0x13;
constexpr uint32_t kAcceptsDescriptors = 0x100;

constexpr int32_t kStrictMode = std::numeric_limits<int32_t>::min();
constexpr int32_t kNoWorkSource = -1;
constexpr uint32_t kTokenWord = 0x53595354;  // the letters "SYST", lowest last

constexpr size_t padded(size_t length) { return (length + 3) & ~size_t{3}; }

FlatObject flatten(const Object& object) {
    if (object.descriptor.get() >= 0) {
        return {kDescriptorType, 0, static_cast<uint32_t>(object.descriptor.get()), 1};
    }
    AIBinder* binder = object.binder.get();
    if (binder == nullptr) return {kBinderType, kPriorityFlags, 0, 0};
    if (const RemoteBinder* remote = binder->asRemote()) return {kHandleType, kPriorityFlags, remote->id, 0};
    const auto address = reinterpret_cast<uintptr_t>(binder);
    return {kBinderType, kPriorityFlags | kAcceptsDescriptors, address, address};
}

// The platform trusts the first byte of a sequence for its length and masks the others, so any bytes give some text.
size_t sequenceLength(uint8_t lead) { return lead < 0xc0 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4; }

uint32_t codePoint(const uint8_t* sequence, size_t length) {
    constexpr uint8_t kLeadBits[] = {0xff, 0x1f, 0x0f, 0x07};
    uint32_t value = sequence[0] & kLeadBits[length - 1];
    for (size_t i = 1; i < length; ++i) value = value << 6 | (sequence[i] & 0x3f);
    return value;
}

// Calls emit(unit) for each UTF-16 unit; false if the last sequence is cut short.
template <typename Emit>
bool eachUnit(const uint8_t* text, size_t length, Emit emit) {
    for (size_t i = 0; i < length;) {
        const size_t sequence = sequenceLength(text[i]);
        if (sequence > length - i) return false;
        const uint32_t value = codePoint(text + i, sequence);
        if (value > 0xffff) {
            emit(static_cast<uint16_t>(((value - 0x10000) >> 10) + 0xd800));
            emit(static_cast<uint16_t>(((value - 0x10000) & 0x3ff) + 0xdc00));
        } else {
            emit(static_cast<uint16_t>(value));
        }
        i += sequence;
    }
    return true;
}

uint16_t unitAt(const uint8_t* units, size_t index) {
    return static_cast<uint16_t>(units[2 * index] | units[2 * index + 1] << 8);
}

// Calls emit(byte) for each byte of UTF-8; surrogates without a partner are left out.
template <typename Emit>
void eachByte(const uint8_t* units, size_t count, Emit emit) {
    const auto tail = [&](uint32_t value, int shift) { emit(static_cast<char>(0x80 | (value >> shift & 0x3f))); };
    for (size_t i = 0; i < count; ++i) {
        uint32_t value = unitAt(units, i);
        const bool paired = (value & 0xfc00) == 0xd800 && i + 1 < count && (unitAt(units, i + 1) & 0xfc00) == 0xdc00;
        if (paired) {
            value = 0x10000 + ((value & 0x3ff) << 10) + (unitAt(units, ++i) & 0x3ffu);
            emit(static_cast<char>(0xf0 | value >> 18));
            tail(value, 12);
            tail(value, 6);
            tail(value, 0);
        } else if (value < 0x80) {
            emit(static_cast<char>(value));
        } else if (value < 0x800) {
            emit(static_cast<char>(0xc0 | value >> 6));
            tail(value, 0);
        } else if ((value & 0xf800) != 0xd800) {
            emit(static_cast<char>(0xe0 | value >> 12));
            tail(value, 6);
            tail(value, 0);
        }
    }
}

}  // namespace

int duplicateHigh(int fd) {
    constexpr int kFirst = 512;
    const int high = fcntl(fd, F_DUPFD_CLOEXEC, kFirst);
    // Above the process's limit: any number is better than none.
    return high < 0 && errno == EINVAL ? fcntl(fd, F_DUPFD_CLOEXEC, 3) : high;
}

void Parcel::clear() {
    bytes.clear();
    objects.clear();
    position = 0;
}

uint8_t* Parcel::grow(size_t length) {
    if (length > kMaxSize || position > kMaxSize - padded(length)) return nullptr;
    const size_t end = position + padded(length);
    // What is written over is gone, objects too.
    std::erase_if(objects, [&](const Object& object) {
        return object.offset < end && position < object.offset + sizeof(FlatObject);
    });
    if (bytes.size() < end) bytes.resize(end);
    uint8_t* room = bytes.data() + position;
    std::memset(room + length, 0, padded(length) - length);
    position = end;
    return room;
}

const uint8_t* Parcel::take(size_t length) {
    if (length > kMaxSize || padded(length) > left()) return nullptr;
    const uint8_t* data = bytes.data() + position;
    position += padded(length);
    return data;
}

binder_status_t Parcel::writeString(const char* string, int32_t length) {
    if (string == nullptr) return length == -1 ? write(int32_t{-1}) : STATUS_BAD_VALUE;
    if (length < 0) return STATUS_BAD_VALUE;
    const auto* text = reinterpret_cast<const uint8_t*>(string);
    const auto size = static_cast<size_t>(length);
    size_t count = 0;
    if (!eachUnit(text, size, [&](uint16_t) { ++count; })) return STATUS_BAD_VALUE;
    uint8_t* room = grow(sizeof(int32_t) + (count + 1) * 2);
    if (room == nullptr) return STATUS_NO_MEMORY;
    const auto units = static_cast<int32_t>(count);
    std::memcpy(room, &units, sizeof(units));
    room += sizeof(units);
    const auto put = [&](uint16_t unit) {
        std::memcpy(room, &unit, sizeof(unit));
        room += sizeof(unit);
    };
    eachUnit(text, size, put);
    put(0);
    return STATUS_OK;
}

binder_status_t Parcel::readString(void* target, AParcel_stringAllocator allocator) {
    int32_t count = 0;
    const uint8_t* units = nullptr;
    // A count that is not there counts as 0, and then the terminator is missing too.
    (void)read(&count);
    if (count >= 0) units = take((static_cast<size_t>(count) + 1) * 2);
    if (units == nullptr || unitAt(units, static_cast<size_t>(count)) != 0) {
        return allocator(target, -1, nullptr) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
    }
    const auto length = static_cast<size_t>(count);
    size_t size = 1;
    eachByte(units, length, [&](char) { ++size; });
    if (size > kMaxSize) return STATUS_BAD_VALUE;
    char* out = nullptr;
    if (!allocator(target, static_cast<int32_t>(size), &out) || out == nullptr) return STATUS_NO_MEMORY;
    eachByte(units, length, [&](char byte) { *out++ = byte; });
    *out = '\0';
    return STATUS_OK;
}

bool Parcel::readString(std::string& string) {
    const auto allocate = [](void* target, int32_t length, char** buffer) {
        if (length < 0) return false;
        auto& text = *static_cast<std::string*>(target);
        text.resize(static_cast<size_t>(length) - 1);
        *buffer = text.data();
        return true;
    };
    return readString(&string, allocate) == STATUS_OK;
}

void Parcel::place(Object object) {
    const FlatObject flat = flatten(object);
    std::memcpy(bytes.data() + object.offset, &flat, sizeof(flat));
    // Null is only its bytes.
    if (object.binder.get() != nullptr || object.descriptor.get() >= 0) objects.push_back(std::move(object));
}

binder_status_t Parcel::writeBinder(AIBinder* binder) {
    const size_t start = position;
    if (grow(sizeof(FlatObject) + sizeof(int32_t)) == nullptr) return STATUS_NO_MEMORY;
    AIBinder_incStrong(binder);
    place({start, ndk::SpAIBinder(binder), {}});
    const int32_t stability = binder == nullptr ? 0 : binder->stability.load();
    std::memcpy(bytes.data() + start + sizeof(FlatObject), &stability, sizeof(stability));
    return STATUS_OK;
}

// The object of this kind at the position. As on the device the position moves on whatever is found there.
const Object* Parcel::takeObject(uint32_t type, bool& isNull) {
    const size_t start = position;
    FlatObject flat;
    if (read(&flat) != STATUS_OK) return nullptr;
    isNull = flat.type == type && flat.handle == 0 && flat.cookie == 0;
    const auto found = std::find_if(objects.begin(), objects.end(), [&](const Object& o) { return o.offset == start; });
    return found == objects.end() ? nullptr : &*found;
}

binder_status_t Parcel::readBinder(AIBinder** binder) {
    bool isNull = false;
    const Object* object = takeObject(kBinderType, isNull);
    if (!isNull && (object == nullptr || object->binder.get() == nullptr)) return STATUS_BAD_TYPE;
    int32_t stability = 0;
    const binder_status_t status = read(&stability);
    if (status != STATUS_OK) return status;
    *binder = object == nullptr ? nullptr : object->binder.get();
    AIBinder_incStrong(*binder);
    return STATUS_OK;
}

binder_status_t Parcel::writeDescriptor(ndk::ScopedFileDescriptor descriptor) {
    const size_t start = position;
    if (grow(sizeof(FlatObject)) == nullptr) return STATUS_NO_MEMORY;
    place({start, nullptr, std::move(descriptor)});
    return STATUS_OK;
}

binder_status_t Parcel::readDescriptor(int* fd) {
    bool isNull = false;
    const Object* object = takeObject(kDescriptorType, isNull);
    if (object == nullptr || object->descriptor.get() < 0) return STATUS_BAD_TYPE;
    const int copy = fcntl(object->descriptor.get(), F_DUPFD_CLOEXEC, 0);
    if (copy < 0) return STATUS_UNKNOWN_ERROR;
    *fd = copy;
    return STATUS_OK;
}

binder_status_t Parcel::writeToken(const char* descriptor) {
    binder_status_t status = write(kStrictMode);
    if (status == STATUS_OK) status = write(kNoWorkSource);
    if (status == STATUS_OK) status = write(kTokenWord);
    if (status == STATUS_OK) status = writeString(descriptor, static_cast<int32_t>(std::strlen(descriptor)));
    return status;
}

bool Parcel::checkToken(const char* descriptor) {
    int32_t ignored = 0;
    uint32_t word = 0;
    std::string name;
    return read(&ignored) == STATUS_OK && read(&ignored) == STATUS_OK && read(&word) == STATUS_OK &&
           word == kTokenWord && readString(name) && name == descriptor;
}

}  // namespace standin

using standin::Parcel;

namespace {

Parcel& content(const AParcel* parcel) { return *parcel->content; }

// The count before the elements of an array: -1 for null, which only null data may have.
binder_status_t writeCount(AParcel* parcel, bool isNull, int32_t length) {
    if (length < -1 || (isNull ? length > 0 : length < 0)) return STATUS_BAD_VALUE;
    return content(parcel).write(length);
}

// The count of an array to be read. A refused or impossible one is answered before anything is allocated for it.
binder_status_t readCount(const AParcel* parcel, int32_t* length) {
    const binder_status_t status = content(parcel).read(length);
    if (status != STATUS_OK) return status;
    if (*length < -1) return STATUS_BAD_VALUE;
    if (*length > 0 && static_cast<size_t>(*length) > content(parcel).left()) return STATUS_NO_MEMORY;
    return STATUS_OK;
}

}  // namespace

AParcel* AParcel_create() { return new AParcel; }
void AParcel_delete(AParcel* parcel) { delete parcel; }
binder_status_t AParcel_reset(AParcel* parcel) {
    content(parcel).clear();
    return STATUS_OK;
}

binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position) {
    if (position < 0) return STATUS_BAD_VALUE;
    content(parcel).position = static_cast<size_t>(position);
    return STATUS_OK;
}
int32_t AParcel_getDataPosition(const AParcel* parcel) { return static_cast<int32_t>(content(parcel).position); }
int32_t AParcel_getDataSize(const AParcel* parcel) { return static_cast<int32_t>(content(parcel).size()); }

binder_status_t AParcel_marshal(const AParcel* parcel, uint8_t* buffer, size_t start, size_t len) {
    const Parcel& from = content(parcel);
    if (!from.objects.empty()) return STATUS_INVALID_OPERATION;
    // Not size(): behind a position past the end there is nothing yet.
    if (len > from.bytes.size() || start > from.bytes.size() - len) return STATUS_BAD_VALUE;
    if (from.bytes.data() == nullptr) return STATUS_UNEXPECTED_NULL;  // never written
    std::memcpy(buffer, from.bytes.data() + start, len);
    return STATUS_OK;
}

binder_status_t AParcel_unmarshal(AParcel* parcel, const uint8_t* buffer, size_t len) {
    content(parcel).clear();
    if (len == 0) return STATUS_OK;
    uint8_t* room = content(parcel).grow(len);
    if (room == nullptr) return STATUS_NO_MEMORY;
    std::memcpy(room, buffer, len);
    return STATUS_OK;
}

binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value) { return content(parcel).write(value); }
binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value) { return content(parcel).write(value); }
binder_status_t AParcel_writeBool(AParcel* parcel, bool value) { return content(parcel).write(int32_t{value}); }
binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value) { return content(parcel).read(value); }
binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value) { return content(parcel).read(value); }
binder_status_t AParcel_readBool(const AParcel* parcel, bool* value) {
    int32_t word = 0;
    const binder_status_t status = content(parcel).read(&word);
    *value = word != 0;
    return status;
}

binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length) {
    return content(parcel).writeString(string, length);
}
binder_status_t AParcel_readString(const AParcel* parcel, void* stringData, AParcel_stringAllocator allocator) {
    return content(parcel).readString(stringData, allocator);
}

binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* arrayData, int32_t length) {
    const size_t start = content(parcel).position;
    const binder_status_t status = writeCount(parcel, arrayData == nullptr, length);
    if (status != STATUS_OK || length <= 0) return status;
    uint8_t* room = content(parcel).grow(static_cast<size_t>(length));
    if (room == nullptr) {
        content(parcel).position = start;
        return STATUS_NO_MEMORY;
    }
    std::memcpy(room, arrayData, static_cast<size_t>(length));
    return STATUS_OK;
}

binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData, AParcel_byteArrayAllocator allocator) {
    int32_t length = 0;
    const binder_status_t status = readCount(parcel, &length);
    if (status != STATUS_OK) return status;
    int8_t* buffer = nullptr;
    if (length == -1) return allocator(arrayData, -1, nullptr) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
    if (!allocator(arrayData, length, &buffer)) return STATUS_NO_MEMORY;
    if (length == 0) return STATUS_OK;
    if (buffer == nullptr) return STATUS_NO_MEMORY;
    const uint8_t* data = content(parcel).take(static_cast<size_t>(length));
    if (data == nullptr) return STATUS_NOT_ENOUGH_DATA;
    std::memcpy(buffer, data, static_cast<size_t>(length));
    return STATUS_OK;
}

binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter) {
    // The data may be a null pointer for any length: only the writer knows what it points to.
    binder_status_t status = writeCount(parcel, length < 0, length);
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = elementWriter(parcel, arrayData, static_cast<size_t>(i));
    }
    return status;
}

binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* arrayData,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader) {
    int32_t length = 0;
    binder_status_t status = readCount(parcel, &length);
    if (status != STATUS_OK) return status;
    if (length == -1) return allocator(arrayData, -1) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
    if (!allocator(arrayData, length)) return STATUS_NO_MEMORY;
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = elementReader(parcel, arrayData, static_cast<size_t>(i));
    }
    return status;
}

binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder) {
    return content(parcel).writeBinder(binder);
}
binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder) {
    return content(parcel).readBinder(binder);
}

// A parcelable of its own on the device: a mark, the absence of a second (communication) descriptor, the descriptor.
binder_status_t AParcel_writeParcelFileDescriptor(AParcel* parcel, int fd) {
    if (fd < -1) return STATUS_UNKNOWN_ERROR;
    if (fd == -1) return content(parcel).write(int32_t{0});
    binder_status_t status = content(parcel).write(int32_t{1});
    ndk::ScopedFileDescriptor copy(standin::duplicateHigh(fd));
    if (copy.get() < 0) return STATUS_UNKNOWN_ERROR;
    if (status == STATUS_OK) status = content(parcel).write(int32_t{0});
    return status == STATUS_OK ? content(parcel).writeDescriptor(std::move(copy)) : status;
}

binder_status_t AParcel_readParcelFileDescriptor(const AParcel* parcel, int* fd) {
    int32_t mark = 0;
    binder_status_t status = content(parcel).read(&mark);
    if (status != STATUS_OK) return status;
    if (mark == 0) {
        *fd = -1;
        return STATUS_OK;
    }
    status = content(parcel).read(&mark);
    return status == STATUS_OK ? content(parcel).readDescriptor(fd) : status;
}
