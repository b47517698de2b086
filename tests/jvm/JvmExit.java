package vendor.nuvel.data.orvixadmin;

import java.util.Map;
import java.util.concurrent.CountDownLatch;

/**
 * Ends the virtual machine in the way that is its first argument, once the service is there and, if the second says so,
 * has asked for something a hundred times and goes on asking.
 */
public final class JvmExit {
    public static void main(String[] args) throws InterruptedException {
        Map<String, Runnable> ways = Map.of("return", () -> {}, "exit", () -> System.exit(7),
                "halt", () -> Runtime.getRuntime().halt(8), "exitInCallOut", () -> System.exit(9));
        Runnable end = () -> {
            // One line, so that the time from here on can be told.
            System.out.println("{\"ending\":\"" + args[0] + "\"}");
            ways.get(args[0]).run();
        };
        CountDownLatch calls = new CountDownLatch(args[1].equals("busy") ? 100 : 1);
        SorvixAidlClient.setSink((method, values) -> {
            calls.countDown();
            if (args[0].equals("exitInCallOut") && calls.getCount() == 0) end.run();
        });
        System.loadLibrary("OrvixJni");
        JniHelper.initialize();
        calls.await();
        if (args[0].equals("exitInCallOut")) Thread.sleep(60_000);
        end.run();
    }
}
