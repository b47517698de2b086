package vendor.nuvel.data.orvixservice;

/**
 * Technology of the foreground network.
 *
 * The values are agreed between the service and the application; every int is passed on unchanged. An enumeration needs
 * a name at least, so there is one for "not set".
 */
@VintfStability
@Backing(type="int")
enum TechType {
    UNKNOWN = -1,
}
