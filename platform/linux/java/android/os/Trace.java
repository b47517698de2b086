package android.os;

/** Stand-in of android.os.Trace: sections of work, nested on each thread, in the log where ORVIX_TRACE is set. */
public final class Trace {
    static {
        System.loadLibrary("android_runtime");
    }

    private Trace() {}

    public static native void beginSection(String sectionName);

    public static native void endSection();
}
