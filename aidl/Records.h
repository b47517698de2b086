// The eleven records and four enumerations of the interface.
//
// Plain values: copying copies their strings and lists. What members with positional names mean is agreed between the
// service and the application; the library carries them unchanged. readFromParcel reads over the current values, so a
// member that the bytes do not have keeps what it held.
#pragma once

#include "aidl/Record.h"

namespace aidl::vendor::nuvel::data::orvixservice {

// Any int32 is a value of these: the library never looks inside. The enumerators belong to service and application.
enum class RatType : int32_t {};
enum class TechType : int32_t {};
enum class ThermalState : int32_t {};
enum class SlotId : int32_t {};

struct BatteryState {
    int32_t int1 = 0;
    bool flag1 = false;

    using R = BatteryState;
    static constexpr const char* descriptor = "vendor.nuvel.data.orvixservice.BatteryState";
    static constexpr auto members = std::tuple{field("int1", &R::int1), field("flag1", &R::flag1)};
    binder_status_t writeToParcel(AParcel* parcel) const { return writeRecord(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readRecord(parcel, *this); }
};

struct RadioTechStatus {
    bool flag1 = false;
    bool flag2 = false;
    bool flag3 = false;
    bool flag4 = false;
    bool flag5 = false;

    using R = RadioTechStatus;
    static constexpr const char* descriptor = "vendor.nuvel.data.orvixservice.RadioTechStatus";
    static constexpr auto members =
        std::tuple{field("flag1", &R::flag1), field("flag2", &R::flag2), field("flag3", &R::flag3),
                   field("flag4", &R::flag4), field("flag5", &R::flag5)};
    binder_status_t writeToParcel(AParcel* parcel) const { return writeRecord(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readRecord(parcel, *this); }
};

struct ByteTuple {
    int64_t long1 = 0;
    int64_t long2 = 0;

    using R = ByteTuple;
    static constexpr const char* descriptor = "vendor.nuvel.data.orvixservice.ByteTuple";
    static constexpr auto members = std::tuple{field("long1", &R::long1), field("long2", &R::long2)};
    binder_status_t writeToParcel(AParcel* parcel) const { return writeRecord(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readRecord(parcel, *this); }
};

// One entry of the statistics of all UIDs.
struct NetworkStatsParams {
    int32_t uid = 0;
    bool flag1 = false;
    bool flag2 = false;
    std::string text1;
    ByteTuple bytes;

    using R = NetworkStatsParams;
    static constexpr const char* descriptor = "vendor.nuvel.data.orvixservice.NetworkStatsParams";
    static constexpr auto members =
        std::tuple{field("uid", &R::uid), field("flag1", &R::flag1), field("flag2", &R::flag2),
                   field("text1", &R::text1), field("bytes", &R::bytes)};
    binder_status_t writeToParcel(AParcel* parcel) const { return writeRecord(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readRecord(parcel, *this); }
};

struct NetworkStats {
    int64_t long1 = 0;
    int64_t long2 = 0;
    int64_t long3 = 0;
    int64_t long4 = 0;
    int32_t int1 = 0;
    int32_t int2 = 0;
    int32_t int3 = 0;
    std::string text1;

    using R = NetworkStats;
    static constexpr const char* descriptor = "vendor.nuvel.data.orvixservice.NetworkStats";
    static constexpr auto members = std::tuple{
        field("long1", &R::long1), field("long2", &R::long2), field("long3", &R::long3), field("long4", &R::long4),
        field("int1", &R::int1),   field("int2", &R::int2),   field("int3", &R::int3),   field("text1", &R::text1)};
    binder_status_t writeToParcel(AParcel* parcel) const { return writeRecord(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readRecord(parcel, *this); }
};

struct BuildInfoParams {
    std::string text1;
    std::string text2;
    std::string text3;
    std::string text4;
    std::string text5;
    std::string text6;
    std::string text7;
    std::string text8;

    using R = BuildInfoParams;
    static constexpr const char* descriptor = "vendor.nuvel.data.orvixservice.BuildInfoParams";
    static constexpr auto members = std::tuple{
        field("text1", &R::text1), field("text2", &R::text2), field("text3", &R::text3), field("text4", &R::text4),
        field("text5", &R::text5), field("text6", &R::text6), field("text7", &R::text7), field("text8", &R::text8)};
    binder_status_t writeToParcel(AParcel* parcel) const { return writeRecord(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readRecord(parcel, *this); }
};

struct TelephonyInfoParams {
    int32_t int1 = 0;
    std::string text1;
    std::string text2;
    std::string text3;
    std::string text4;
    int32_t int2 = 0;

    using R = TelephonyInfoParams;
    static constexpr const char* descriptor = "vendor.nuvel.data.orvixservice.TelephonyInfoParams";
    static constexpr auto members =
        std::tuple{field("int1", &R::int1),   field("text1", &R::text1), field("text2", &R::text2),
                   field("text3", &R::text3), field("text4", &R::text4), field("int2", &R::int2)};
    binder_status_t writeToParcel(AParcel* parcel) const { return writeRecord(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readRecord(parcel, *this); }
};

struct CensusInfo {
    BuildInfoParams buildInfo;
    std::vector<TelephonyInfoParams> telephonyInfos;

    using R = CensusInfo;
    static constexpr const char* descriptor = "vendor.nuvel.data.orvixservice.CensusInfo";
    static constexpr auto members =
        std::tuple{field("buildInfo", &R::buildInfo), field("telephonyInfos", &R::telephonyInfos)};
    binder_status_t writeToParcel(AParcel* parcel) const { return writeRecord(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readRecord(parcel, *this); }
};

struct DnsAddress {
    std::string text1;
    std::string text2;

    using R = DnsAddress;
    static constexpr const char* descriptor = "vendor.nuvel.data.orvixservice.DnsAddress";
    static constexpr auto members = std::tuple{field("text1", &R::text1), field("text2", &R::text2)};
    binder_status_t writeToParcel(AParcel* parcel) const { return writeRecord(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readRecord(parcel, *this); }
};

struct NetworkInfo {
    int32_t int1 = 0;
    bool flag1 = false;
    bool flag2 = false;
    std::string text1;
    std::string text2;
    int32_t int2 = 0;
    DnsAddress dns1;
    DnsAddress dns2;
    std::string text3;
    std::string text4;
    int32_t int3 = 0;
    std::optional<std::string> optText1;  // may be absent
    int32_t int4 = 0;
    bool flag3 = false;
    int32_t int5 = 0;
    bool flag4 = false;

    using R = NetworkInfo;
    static constexpr const char* descriptor = "vendor.nuvel.data.orvixservice.NetworkInfo";
    static constexpr auto members =
        std::tuple{field("int1", &R::int1),   field("flag1", &R::flag1), field("flag2", &R::flag2),
                   field("text1", &R::text1), field("text2", &R::text2), field("int2", &R::int2),
                   field("dns1", &R::dns1),   field("dns2", &R::dns2),   field("text3", &R::text3),
                   field("text4", &R::text4), field("int3", &R::int3),   field("optText1", &R::optText1),
                   field("int4", &R::int4),   field("flag3", &R::flag3), field("int5", &R::int5),
                   field("flag4", &R::flag4)};
    binder_status_t writeToParcel(AParcel* parcel) const { return writeRecord(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readRecord(parcel, *this); }
};

struct SocketInfo {
    int32_t socketId = 0;    // comes back as the first argument of sendSocketFd
    int32_t uid = 0;         // the UID to tag the socket with; -1: none
    int32_t ipFamily = 0;    // 2: IPv6; any other: IPv4
    int32_t socketType = 0;  // 2: datagram; any other: stream
    int32_t protocol = 0;    // 1: TCP; 2: UDP; any other: the family's default

    using R = SocketInfo;
    static constexpr const char* descriptor = "vendor.nuvel.data.orvixservice.SocketInfo";
    static constexpr auto members =
        std::tuple{field("socketId", &R::socketId), field("uid", &R::uid), field("ipFamily", &R::ipFamily),
                   field("socketType", &R::socketType), field("protocol", &R::protocol)};
    binder_status_t writeToParcel(AParcel* parcel) const { return writeRecord(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readRecord(parcel, *this); }
};

// All of them, in the order above, for whatever goes through every record.
using Records = std::tuple<BatteryState, RadioTechStatus, ByteTuple, NetworkStatsParams, NetworkStats, BuildInfoParams,
                           TelephonyInfoParams, CensusInfo, DnsAddress, NetworkInfo, SocketInfo>;

}  // namespace aidl::vendor::nuvel::data::orvixservice
