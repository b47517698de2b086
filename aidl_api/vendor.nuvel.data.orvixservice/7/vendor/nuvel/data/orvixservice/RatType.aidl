package vendor.nuvel.data.orvixservice;
@VintfStability
@Backing(type="int")
enum RatType {
    UNKNOWN = -1,
}
