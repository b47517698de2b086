// The framing of records: a size, then the members in wire order.
//
// The size counts itself and every member. A reader skips what a newer writer added and keeps the current values of
// what an older writer did not have, so records grow at their end without breaking anybody.
#pragma once

#include <cstdlib>
#include <tuple>
#include <utility>

#include "aidl/Codec.h"

namespace aidl::vendor::nuvel::data::orvixservice {

// One member of a record: its name for tools and tests, its place for the codecs.
template <typename R, typename M>
struct Field {
    const char* name;
    M R::*member;
};
template <typename R, typename M>
consteval Field<R, M> field(const char* name, M R::*member) {
    return {name, member};
}

namespace record {

struct Anything {
    template <typename T>
    operator T() const;
};
template <typename R, size_t... I>
consteval bool takes(std::index_sequence<I...>) {
    return requires { R{((void)I, Anything{})...}; };
}

constexpr bool same(const auto&, const auto&) { return false; }
template <typename R, typename M>
constexpr bool same(const Field<R, M>& a, const Field<R, M>& b) {
    return a.member == b.member;
}
constexpr bool isOnce(const auto& field, const auto&... all) { return (same(field, all) + ...) == 1; }

template <typename R>
inline constexpr size_t kMembers = std::tuple_size_v<std::remove_cvref_t<decltype(R::members)>>;
template <typename R>
inline constexpr bool kComplete = takes<R>(std::make_index_sequence<kMembers<R>>{}) &&
                                  !takes<R>(std::make_index_sequence<kMembers<R> + 1>{}) &&
                                  std::apply([](const auto&... all) { return (isOnce(all, all...) && ...); },
                                             R::members);

// Positions are the platform's and a record's size is their difference: an overflow here means that the parcel is not
// to be trusted any more, in every build.
inline int32_t distance(int32_t start, int32_t end) {
    int32_t size = 0;
    if (__builtin_sub_overflow(end, start, &size)) std::abort();
    return size;
}

// Inlined whole into the record's own functions, framing and visit cost what reads and writes in a straight line cost.
template <typename R, size_t... I>
[[gnu::always_inline]] inline binder_status_t writeMembers(AParcel* parcel, const R& record,
                                                           std::index_sequence<I...>) {
    binder_status_t status = STATUS_OK;
    (void)(((status = writeValue(parcel, record.*std::get<I>(R::members).member)) == STATUS_OK) && ...);
    return status;
}

// Stops without an error where the record's size ends.
template <typename R, size_t... I>
[[gnu::always_inline]] inline binder_status_t readMembers(const AParcel* parcel, R& record, int32_t start, int32_t size,
                                                          std::index_sequence<I...>) {
    binder_status_t status = STATUS_OK;
    (void)((distance(start, AParcel_getDataPosition(parcel)) < size &&
            (status = readValue(parcel, record.*std::get<I>(R::members).member)) == STATUS_OK) &&
           ...);
    return status;
}

}  // namespace record

// Writes the size after the members, in the place kept for it. A member that fails leaves that place 0.
template <typename R>
[[gnu::always_inline]] inline binder_status_t writeRecord(AParcel* parcel, const R& record) {
    static_assert(record::kComplete<R>, "R::members must list every member of the record, once");
    const int32_t start = AParcel_getDataPosition(parcel);
    binder_status_t status = AParcel_writeInt32(parcel, 0);
    if (status != STATUS_OK) return status;
    status = record::writeMembers(parcel, record, std::make_index_sequence<record::kMembers<R>>{});
    if (status != STATUS_OK) return status;
    const int32_t end = AParcel_getDataPosition(parcel);
    AParcel_setDataPosition(parcel, start);
    AParcel_writeInt32(parcel, record::distance(start, end));  // over what has been written: it cannot fail
    return AParcel_setDataPosition(parcel, end);
}

// STATUS_BAD_VALUE when the size cannot hold itself or runs past what a position can say. After a member that fails
// the position stays where the failed read put it.
template <typename R>
[[gnu::always_inline]] inline binder_status_t readRecord(const AParcel* parcel, R& record) {
    static_assert(record::kComplete<R>, "R::members must list every member of the record, once");
    const int32_t start = AParcel_getDataPosition(parcel);
    int32_t size, end;
    binder_status_t status = AParcel_readInt32(parcel, &size);
    if (status != STATUS_OK) return status;
    if (size < static_cast<int32_t>(sizeof(size))) return STATUS_BAD_VALUE;
    if (__builtin_add_overflow(start, size, &end)) return STATUS_BAD_VALUE;
    status = record::readMembers(parcel, record, start, size, std::make_index_sequence<record::kMembers<R>>{});
    if (status != STATUS_OK) return status;
    return AParcel_setDataPosition(parcel, end);
}

}  // namespace aidl::vendor::nuvel::data::orvixservice
