package android.os;

/** Stand-in of android.os.BadParcelableException: a parcel holds what no writer would have written. */
public class BadParcelableException extends RuntimeException {
    public BadParcelableException(String message) {
        super(message);
    }
}
