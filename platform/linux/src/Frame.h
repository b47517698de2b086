// What goes over a connection: frames, and how they are told apart from noise. Both ends run on one machine, so numbers
// are in its own order.
//
// A frame: the header, the bytes of the parcel, one WireObject for each object among them. File descriptors travel
// beside its first byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace standin {

enum class FrameType : uint32_t {
    Transaction = 1,  // sequence: to be named by the reply; 0: one-way
    Reply,            // sequence, status
    Release,          // target, sequence: "I no longer hold it, forget so many times that you gave it to me"
    Done,             // sequence: "so many bytes of one-way calls are worked off"
};

constexpr uint32_t kFrameMagic = 0x3158424f;
// What a process takes in at once, and how much of it may be one-way calls.
constexpr size_t kMaxTransaction = (1 << 20) - 8192;
constexpr size_t kMaxOneway = kMaxTransaction / 2;
constexpr size_t kMaxDescriptors = 250;
// How much of the data an object takes.
constexpr size_t kObjectSize = 24;

struct FrameHeader {
    uint32_t magic = kFrameMagic;
    FrameType type;
    uint32_t dataSize = 0;
    uint32_t objectCount = 0;
    uint64_t sequence = 0;
    uint32_t target = 0;
    uint32_t code = 0;
    int32_t status = 0;
    uint32_t number = 0;  // of a traced transaction, among its sender's
};
static_assert(sizeof(FrameHeader) == 40);

enum class ObjectKind : uint32_t {
    Senders = 1,  // a binder of the sender, by its id
    Receivers,    // a binder of the receiver, by its id
    Descriptor,   // the next one beside the frame
};

struct WireObject {
    uint32_t offset;
    ObjectKind kind;
    uint32_t id;
    int32_t stability;
};
static_assert(sizeof(WireObject) == 16);

// Points into the bytes that it was parsed from.
struct Frame {
    FrameHeader header;
    std::span<const uint8_t> data;
    std::span<const uint8_t> table;
    size_t descriptors = 0;

    WireObject object(size_t index) const;
    size_t size() const { return sizeof(header) + data.size() + table.size(); }
};

enum class ParseResult { Complete, Incomplete, Violation };

// Looks for one frame at the start of the bytes. A complete one has objects that lie inside its data, in order, without
// overlap; whether their ids mean anything is not known here. Reads nothing beyond the bytes and allocates nothing.
ParseResult parseFrame(std::span<const uint8_t> bytes, Frame& frame);

// What a transaction counts against the limits. Small ones cost memory too.
inline size_t costOf(size_t dataSize) { return dataSize < 64 ? 64 : dataSize; }

}  // namespace standin
