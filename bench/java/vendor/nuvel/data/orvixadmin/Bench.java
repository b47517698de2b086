package vendor.nuvel.data.orvixadmin;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.concurrent.locks.LockSupport;

/**
 * The application's half of the benchmarks: the library on a real VM. Commands come on standard input, results go to
 * standard output as "NAME nanoseconds nanoseconds ...".
 *
 * <p>The library is loaded from libOrvixBench, which is the library and the bare sequences beside it. Times are those of
 * System.nanoTime, which on Linux is the clock of the service's process too.
 */
public final class Bench {
    private static final int BATCHES = 200;

    /** From a call to the library, or to the bare sequence, of the same arguments. */
    private static native void bareSend(int ratType, long value, int techType);

    /** Finds the service's binder for bareSend. */
    private static native void prepare();

    /**
     * Nanoseconds of so many call-outs of each kind on a thread that is not attached; in turn the library's, the bare
     * sequence's and that of the bare sequence with the library's log lines. What disturbs them disturbs all three.
     */
    private static native long[] callOuts(int count);

    /** Nanoseconds of the four parts of so many call-outs, by turns the library's and the bare sequence's. */
    private static native long[] parts(int count);

    /** Makes the service ask a callback that calls Java at once, on the binder's thread. */
    private static native void registerBare();

    /** Nanoseconds of JNI_OnLoad, one load an element. */
    private static native long[] loads(int count);

    private static final long[] arrivals = new long[100_000];
    private static volatile int arrived;

    private Bench() {}

    public static void main(String[] args) throws IOException {
        SorvixAidlClient.setSink(Bench::called);
        System.loadLibrary("OrvixBench");
        var in = new BufferedReader(new InputStreamReader(System.in, StandardCharsets.UTF_8));
        for (String line = in.readLine(); line != null; line = in.readLine()) {
            String[] words = line.split(" ");
            switch (words[0]) {
                case "loads" -> print("loads", loads(200));
                case "callOuts" -> {
                    callOuts(13_000);  // warm
                    print("callOuts", callOuts(40_000));
                }
                case "parts" -> {
                    parts(2000);  // warm
                    print("parts", parts(2000));
                }
                case "registerBare" -> registerBare();
                case "initialize" -> JniHelper.initialize();
                case "sends" -> {
                    prepare();
                    sends();
                    print("sends", sends());
                }
                case "calls", "bareCalls" -> {
                    for (int i = 0; i < Integer.parseInt(words[1]); i++) {
                        if (words[0].equals("calls")) JniHelper.sendFGNetworkInfo(1, System.nanoTime(), 1);
                        else bareSend(1, System.nanoTime(), 1);
                        LockSupport.parkNanos(1_000_000);
                    }
                    print(words[0]);
                }
                case "arrivals" -> {
                    print("arrivals", Arrays.copyOf(arrivals, arrived));
                    arrived = 0;
                }
                default -> throw new IllegalArgumentException(line);
            }
        }
        System.exit(0);
    }

    // Entry of a Java method: the first thing that is done is to look at the clock.
    private static void called(String method, Object... args) {
        long now = System.nanoTime();
        if (method.equals("startUidStatsPolling")) {
            if (arrived < arrivals.length) arrivals[arrived++] = now - (long) args[0];
        } else if (method.equals("onIServiceBinderAvailable")) {
            print("available", (boolean) args[0] ? 1 : 0, now);
        }
    }

    // Nanoseconds a call; the even batches are the library's. Between batches the service catches up.
    private static long[] sends() {
        int each = 200;
        long[] times = new long[2 * BATCHES];
        for (int batch = 0; batch < times.length; batch++) {
            long begin = System.nanoTime();
            if (batch % 2 == 0) {
                for (int i = 0; i < each; i++) JniHelper.sendFGNetworkInfo(5, -i, 7);
            } else {
                for (int i = 0; i < each; i++) bareSend(5, -i, 7);
            }
            times[batch] = (System.nanoTime() - begin) / each;
            LockSupport.parkNanos(10_000_000);
        }
        return times;
    }

    private static synchronized void print(String name, long... values) {
        StringBuilder line = new StringBuilder(name);
        for (long value : values) line.append(' ').append(value);
        System.out.println(line);
        System.out.flush();
    }
}
