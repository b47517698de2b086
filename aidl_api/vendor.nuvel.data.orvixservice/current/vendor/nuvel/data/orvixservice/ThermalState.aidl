package vendor.nuvel.data.orvixservice;
@VintfStability
@Backing(type="int")
enum ThermalState {
    UNKNOWN = -1,
}
