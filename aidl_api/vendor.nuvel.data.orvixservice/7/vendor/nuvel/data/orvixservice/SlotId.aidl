package vendor.nuvel.data.orvixservice;
@VintfStability
@Backing(type="int")
enum SlotId {
    UNKNOWN = -1,
}
