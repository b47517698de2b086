package vendor.nuvel.data.orvixservice;

/**
 * Radio access technology that statistics, network information or a request are about.
 *
 * The values are agreed between the service and the application; every int is passed on unchanged. An enumeration needs
 * a name at least, so there is one for "not set".
 */
@VintfStability
@Backing(type="int")
enum RatType {
    UNKNOWN = -1,
}
