package vendor.nuvel.data.orvixservice;
@VintfStability
@Backing(type="int")
enum TechType {
    UNKNOWN = -1,
}
