package vendor.nuvel.data.orvixadmin;

import java.util.concurrent.CountDownLatch;

/**
 * Ends the virtual machine in the way that is its first argument, once the service is there and, if the second says so,
 * has asked for something a hundred times and goes on asking.
 */
public final class JvmExit {
    private JvmExit() {}

    public static void main(String[] args) throws InterruptedException {
        String way = args[0];
        CountDownLatch calls = new CountDownLatch(args[1].equals("busy") ? 100 : 1);
        SorvixAidlClient.setSink((method, values) -> {
            calls.countDown();
            if (way.equals("exitInCallOut") && calls.getCount() == 0) end(way);
        });
        System.loadLibrary("OrvixJni");
        JniHelper.initialize();
        calls.await();
        if (way.equals("exitInCallOut")) Thread.sleep(60_000);
        end(way);
    }

    private static void end(String way) {
        // One line, so that the time from here on can be told.
        System.out.println("{\"ending\":\"" + way + "\"}");
        switch (way) {
            case "return" -> {}
            case "exit" -> System.exit(7);
            case "halt" -> Runtime.getRuntime().halt(8);
            case "exitInCallOut" -> System.exit(9);
            default -> throw new IllegalArgumentException(way);
        }
    }
}
