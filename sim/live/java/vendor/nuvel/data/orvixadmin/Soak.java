package vendor.nuvel.data.orvixadmin;

import android.os.Parcel;
import android.os.Trace;
import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.util.SplittableRandom;
import java.util.concurrent.atomic.AtomicLongArray;
import java.util.concurrent.locks.LockSupport;
import vendor.nuvel.data.orvixservice.ByteTuple;

/**
 * The application's half of the endurance run: Soak THREADS SEED. Prints "available 0|1" and "request NUMBER" as it is
 * called; on "sent", what each thread has sent. Ends at the end of its input.
 */
public final class Soak {
    private static AtomicLongArray sent;

    private Soak() {}

    public static void main(String[] args) throws IOException {
        // Standard error is the library's log, which nobody reads here.
        System.setErr(System.out);
        int threads = Integer.parseInt(args[0]);
        sent = new AtomicLongArray(threads);
        SorvixAidlClient.setSink(Soak::called);
        System.loadLibrary("OrvixJni");
        JniHelper.initialize();
        var random = new SplittableRandom(Long.parseLong(args[1]));
        for (int i = 0; i < threads; i++) {
            int thread = i;
            SplittableRandom own = random.split();
            var started = new Thread(() -> traffic(thread, own));
            started.setDaemon(true);
            started.start();
        }
        var in = new BufferedReader(new InputStreamReader(System.in, StandardCharsets.UTF_8));
        for (String line = in.readLine(); line != null; line = in.readLine()) {
            if (line.equals("collect")) System.gc();
            StringBuilder answer = new StringBuilder(line);
            if (line.equals("sent")) {
                for (int i = 0; i < threads; i++) answer.append(' ').append(sent.get(i));
            }
            System.out.println(answer);
        }
        System.exit(0);
    }

    private static void traffic(int thread, SplittableRandom random) {
        for (long sequence = 1;; sequence++) {
            sent.set(thread, sequence);
            Trace.beginSection("JniHelper, report " + sequence + " of thread " + thread);
            send(thread, sequence);
            Trace.endSection();
            LockSupport.parkNanos(random.nextLong(250_000, 750_000));
        }
    }

    private static void send(int thread, long sequence) {
        switch ((int) (sequence % 4)) {
            case 0 -> {
                ByteBuffer blob = ByteBuffer.allocate(8 + (int) (sequence % 500)).order(ByteOrder.LITTLE_ENDIAN);
                JniHelper.sendBlobToMirel(thread, blob.putLong(sequence).array());
            }
            case 1 -> {
                ByteTuple bytes = new ByteTuple();
                bytes.long1 = sequence;
                bytes.long2 = ~sequence;
                Parcel parcel = Parcel.obtain();
                bytes.writeToParcel(parcel, 0);
                parcel.setDataPosition(0);
                JniHelper.sendNetworkStatsForNetworkType(thread, parcel);
                parcel.recycle();
            }
            default -> JniHelper.sendFGNetworkInfo(thread, sequence, (int) (sequence * 7));
        }
    }

    private static void called(String method, Object... args) {
        Trace.beginSection("SorvixAidlClient." + method);
        if (method.equals("onIServiceBinderAvailable")) {
            System.out.println((boolean) args[0] ? "available 1" : "available 0");
        } else {
            System.out.println("request " + numberOf(method, args));
        }
        Trace.endSection();
    }

    /** The number in a request, or -1 if it is not what was sent. */
    private static long numberOf(String method, Object[] args) {
        switch (method) {
            case "startUidStatsPolling":
                return (long) args[0];
            case "updateStats":
                return args[7].equals(Long.toString((long) args[0])) ? (long) args[0] : -1;
            case "sendBlobToApkJava":
                byte[] blob = (byte[]) args[1];
                long number = ByteBuffer.wrap(blob).order(ByteOrder.LITTLE_ENDIAN).getLong();
                return blob.length == 8 + (int) number % 1000 ? number : -1;
            default:
                return -1;
        }
    }
}
