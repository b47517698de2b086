package vendor.nuvel.data.orvixadmin;

/** Something typed is wrong; the message tells a person what and what would be right, on one line. */
final class BadInputException extends Exception {
    BadInputException(String message) {
        super(message);
    }
}
