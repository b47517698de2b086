#include "Frame.h"

#include <cstring>

namespace standin {

WireObject Frame::object(size_t index) const {
    WireObject object;
    std::memcpy(&object, table.data() + index * sizeof(object), sizeof(object));
    return object;
}

ParseResult parseFrame(std::span<const uint8_t> bytes, Frame& frame) {
    if (bytes.size() < sizeof(FrameHeader)) return ParseResult::Incomplete;
    FrameHeader& header = frame.header;
    std::memcpy(&header, bytes.data(), sizeof(header));
    if (header.magic != kFrameMagic || header.type < FrameType::Transaction || header.type > FrameType::Done ||
        header.dataSize > kMaxTransaction || header.objectCount > header.dataSize / kObjectSize) {
        return ParseResult::Violation;
    }
    const size_t tableSize = header.objectCount * sizeof(WireObject);
    if (bytes.size() < sizeof(header) + header.dataSize + tableSize) return ParseResult::Incomplete;
    frame.data = bytes.subspan(sizeof(header), header.dataSize);
    frame.table = bytes.subspan(sizeof(header) + header.dataSize, tableSize);
    frame.descriptors = 0;
    size_t free = 0;  // where the next object may begin
    for (size_t i = 0; i < header.objectCount; ++i) {
        const WireObject object = frame.object(i);
        if (object.kind < ObjectKind::Senders || object.kind > ObjectKind::Descriptor || object.offset < free ||
            object.offset > header.dataSize - kObjectSize) {
            return ParseResult::Violation;
        }
        free = object.offset + kObjectSize;
        if (object.kind == ObjectKind::Descriptor) ++frame.descriptors;
    }
    return frame.descriptors > kMaxDescriptors ? ParseResult::Violation : ParseResult::Complete;
}

}  // namespace standin
