package vendor.nuvel.data.orvixservice;

/**
 * SIM slot that a WWAN network is requested on or released from.
 *
 * The values are agreed between the service and the application; every int is passed on unchanged. An enumeration needs
 * a name at least, so there is one for "not set".
 */
@VintfStability
@Backing(type="int")
enum SlotId {
    UNKNOWN = -1,
}
