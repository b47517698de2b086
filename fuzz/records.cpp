// Every record's reader: hostile bytes give a value; what is written of it is read back whole and written the same
// again; and the parcel inspector, which knows the framing a second time, agrees about status and position.

#include "fuzz/Fuzz.h"
#include "sim/json/Types.h"
#include "sim/parcel/Walk.h"

namespace fuzz {
namespace {

template <typename R>
Bytes written(const R& record) {
    const ndk::ScopedAParcel parcel = newParcel();
    invariant(record.writeToParcel(parcel.get()) == STATUS_OK, "what was read can be written");
    return wordsOf(parcel.get());
}

template <typename R>
void tryRecord(AParcel* parcel, int32_t start) {
    R record;
    AParcel_setDataPosition(parcel, start);
    const binder_status_t status = record.readFromParcel(parcel);
    const int32_t position = AParcel_getDataPosition(parcel);
    if (status == STATUS_OK) invariant(position >= start + 4, "a record takes at least its size");
    const Bytes first = written(record);

    if (start == 0) {
        AParcel_setDataPosition(parcel, 0);
        sim::Walk walk(parcel);
        walk.walkWhole(sim::typeOf<R>());
        invariant(walk.failure.empty() == (status == STATUS_OK), "the inspector's walk fails where the reader fails");
        invariant(status != STATUS_OK || AParcel_getDataPosition(parcel) == position, "and ends where the reader ends");
    }

    const ndk::ScopedAParcel copy = newParcel();
    appendWords(copy.get(), first);
    AParcel_setDataPosition(copy.get(), 0);
    R again;
    invariant(again.readFromParcel(copy.get()) == STATUS_OK, "what was written can be read");
    invariant(AParcel_getDataPosition(copy.get()) == static_cast<int32_t>(first.size()), "and is read to its end");
    invariant(written(again) == first, "and is the same value");
}

template <size_t... I>
void tryOne(size_t which, AParcel* parcel, int32_t start, std::index_sequence<I...>) {
    (void)((which == I && (tryRecord<std::tuple_element_t<I, wire::Records>>(parcel, start), true)) || ...);
}

}  // namespace
}  // namespace fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzz;
    FuzzedDataProvider input(data, size);
    const size_t which = input.ConsumeIntegralInRange<uint8_t>(0, std::tuple_size_v<wire::Records> - 1);
    const int32_t start = input.ConsumeIntegralInRange<uint8_t>(0, 9);  // unaligned, and past the end, too
    const Bytes bytes = input.ConsumeRemainingBytes<uint8_t>();
    const ndk::ScopedAParcel parcel = newParcel();
    AParcel_unmarshal(parcel.get(), bytes.data(), bytes.size());
    tryOne(which, parcel.get(), start, std::make_index_sequence<std::tuple_size_v<wire::Records>>{});
    return 0;
}
