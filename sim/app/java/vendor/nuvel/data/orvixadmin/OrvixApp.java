package vendor.nuvel.data.orvixadmin;

import android.os.Parcel;
import android.os.Parcelable;
import android.os.Trace;

import java.io.BufferedOutputStream;
import java.io.BufferedReader;
import java.io.FileDescriptor;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.PrintStream;
import java.lang.reflect.Method;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Iterator;
import java.util.List;
import java.util.OptionalInt;
import java.util.function.Function;
import java.util.stream.Collectors;
import java.util.stream.Stream;

import vendor.nuvel.data.orvixservice.BatteryState;
import vendor.nuvel.data.orvixservice.BuildInfoParams;
import vendor.nuvel.data.orvixservice.ByteTuple;
import vendor.nuvel.data.orvixservice.NetworkInfo;
import vendor.nuvel.data.orvixservice.NetworkStatsParams;
import vendor.nuvel.data.orvixservice.TelephonyInfoParams;

/**
 * The sample application: loads the library, takes the native methods as verbs on standard input and prints every call
 * that comes back from the library.
 *
 * <p>Of the platform it uses android.os.Parcel and Trace alone, and of those only what Android's own has.
 */
public final class OrvixApp {
    private static final String USAGE = "usage: OrvixApp [--json]   (verbs on standard input; help lists them)";
    private static final int EXIT_BAD_INPUT = 2;

    private record Parameter(String name, Class<?> type) {}

    private interface Action {
        void run(Object[] args) throws BadInputException;
    }

    /** A line that can be typed. */
    private record Verb(String name, List<Parameter> parameters, String exampleArguments, Action action) {
        String example() {
            return (name + " " + exampleArguments).strip();
        }

        String synopsis() {
            return parameters.stream()
                    .map(p -> " " + p.name + ":" + p.type.getSimpleName())
                    .collect(Collectors.joining("", name, ""));
        }
    }

    private static final String BUILD_EXAMPLE = "{\"text1\":\"Linux\",\"text2\":\"6.1\",\"text3\":\"#1\","
            + "\"text4\":\"aarch64\",\"text5\":\"debian\",\"text6\":\"12\",\"text7\":\"Debian 12\",\"text8\":\"host\"}";
    private static final String NETWORK_EXAMPLE = "{\"int1\":2,\"flag1\":true,\"flag2\":true,\"text1\":\"wlan0\","
            + "\"text2\":\"\",\"int2\":1500,\"dns1\":{\"text1\":\"192.0.2.1\",\"text2\":\"IPv4\"},"
            + "\"dns2\":{\"text1\":\"\",\"text2\":\"\"},\"text3\":\"192.0.2.7\",\"text4\":\"192.0.2.1\",\"int3\":24,"
            + "\"optText1\":null,\"int4\":-1,\"flag3\":true,\"int5\":-1,\"flag4\":false}";

    private static final List<Parameter> MILLISECONDS = List.of(new Parameter("milliseconds", int.class));

    private final PrintStream out = utf8(FileDescriptor.out);
    private final PrintStream err = utf8(FileDescriptor.err);
    private final boolean json;
    private final Object availability = new Object();
    private boolean available;

    private final List<Verb> verbs = List.of(
            verb("initialize", ""),
            verb("sendRadioStatus", "true false true"),
            verb("sendNetworkStatsForAllUids", "1 [{\"uid\":10123,\"flag1\":true,\"flag2\":false,\"text1\":\"wlan0\","
                    + "\"bytes\":{\"long1\":1000,\"long2\":200}}]", NetworkStatsParams.class),
            verb("sendNetworkStatsForNetworkType", "1 {\"long1\":1000,\"long2\":200}", ByteTuple.class),
            verb("sendScreenState", "true"),
            verb("sendCensusInfo", BUILD_EXAMPLE + " [{\"int1\":0,\"text1\":\"a\",\"text2\":\"b\",\"text3\":\"c\","
                    + "\"text4\":\"d\",\"int2\":1}]", BuildInfoParams.class, TelephonyInfoParams.class),
            verb("sendBootCompleteInfo", "true"),
            verb("sendNetworkInfo", "3 " + NETWORK_EXAMPLE, NetworkInfo.class),
            verb("sendFGNetworkInfo", "5 123456789012 7"),
            verb("sendLPMStatus", "false"),
            verb("sendThermalStatus", "2"),
            verb("sendBatteryStatus", "87 true"),
            verb("sendHotspotStatus", "true"),
            verb("queryStats", ""),
            verb("sendBlobToMirel", "5 hex:00ff"),
            new Verb("sendMachineData", List.of(), "", a -> sendMachineData(new MachineData())),
            new Verb("waitForService", MILLISECONDS, "5000", a -> waitForService((int) a[0])),
            new Verb("sleep", MILLISECONDS, "500", a -> sleep((int) a[0])));

    private OrvixApp(boolean json) {
        this.json = json;
    }

    public static void main(String[] args) throws IOException {
        for (String arg : args) {
            if (arg.equals("--json")) continue;
            if (arg.equals("--help")) {
                System.out.println(USAGE);
                new OrvixApp(false).printHelp();
                System.exit(0);
            }
            System.err.println("unknown option " + arg + "; " + USAGE);
            System.exit(EXIT_BAD_INPUT);
        }
        OrvixApp app = new OrvixApp(args.length > 0);
        SorvixAidlClient.setSink(app::printCallOut);
        try {
            System.loadLibrary("OrvixJni");
        } catch (UnsatisfiedLinkError e) {
            app.err.println("cannot load libOrvixJni: " + e.getMessage());
            System.exit(1);
        }
        JniHelper.initialize();
        // The library's threads never end; an application ends in spite of them.
        System.exit(app.readLines());
    }

    private int readLines() throws IOException {
        boolean terminal = inputIsTerminal();
        boolean allGood = true;
        if (terminal) err.println("help lists the verbs, quit ends");
        BufferedReader in = new BufferedReader(new InputStreamReader(System.in, StandardCharsets.UTF_8));
        for (String line = in.readLine(); line != null; line = in.readLine()) {
            List<String> words = Words.split(line);
            if (words.isEmpty() || words.get(0).startsWith("#")) continue;
            if (words.get(0).equals("quit")) break;
            try {
                run(words.get(0), words.subList(1, words.size()));
            } catch (BadInputException e) {
                err.println(e.getMessage());
                allGood = false;
            }
        }
        return allGood || terminal ? 0 : EXIT_BAD_INPUT;
    }

    private void run(String name, List<String> words) throws BadInputException {
        if (name.equals("help")) {
            printHelp();
            return;
        }
        Verb verb = find(name);
        if (words.size() != verb.parameters.size()) {
            throw new BadInputException(verb.name + ": takes " + verb.parameters.size() + " arguments ("
                    + verb.synopsis() + "), not " + words.size() + "; example: " + verb.example());
        }
        Object[] args = new Object[words.size()];
        for (int i = 0; i < args.length; i++) {
            Parameter parameter = verb.parameters.get(i);
            try {
                args[i] = Values.parse(parameter.type, words.get(i));
            } catch (BadInputException e) {
                throw new BadInputException(verb.name + ": argument " + parameter.name + " ("
                        + parameter.type.getSimpleName() + "): " + e.getMessage() + "; example: " + verb.example());
            }
        }
        if (!json) out.println("Java  -> " + String.join(" ", name, String.join(" ", words)).strip());
        verb.action.run(args);
    }

    // Runs on the library's thread, one call at a time.
    private void printCallOut(String method, Object... args) {
        Trace.beginSection("SorvixAidlClient." + method);
        if (json) {
            out.println("{\"java\":\"" + method + "\",\"args\":[" + join(",", Values::toJson, args) + "]}");
        } else {
            out.println("Java  <- " + method + "(" + join(", ", Values::toText, args) + ")");
        }
        if (method.equals("onIServiceBinderAvailable")) {
            synchronized (availability) {
                available = (boolean) args[0];
                availability.notifyAll();
            }
        }
        Trace.endSection();
    }

    private static String join(String separator, Function<Object, String> form, Object... args) {
        return Arrays.stream(args).map(form).collect(Collectors.joining(separator));
    }

    private void printHelp() {
        // With --json, standard output belongs to the calls.
        PrintStream to = json ? err : out;
        for (Verb verb : verbs) to.println(verb.synopsis() + "\n    " + verb.example());
        to.println("help\n    help\nquit\n    quit");
    }

    private Verb find(String name) throws BadInputException {
        for (Verb verb : verbs) {
            if (verb.name.equals(name)) return verb;
        }
        throw new BadInputException(unknown(name));
    }

    private String unknown(String name) {
        List<String> names = Stream.concat(verbs.stream().map(Verb::name), Stream.of("help", "quit")).toList();
        int least = names.stream().mapToInt(known -> Words.distance(name, known)).min().orElseThrow();
        String nearest = names.stream().filter(known -> Words.distance(name, known) == least)
                .limit(3).collect(Collectors.joining(" or "));
        return name + ": no such verb; nearest: " + nearest + "; help lists all";
    }

    /** A native method, with the parameters that it has; of each parcel it is told which record it holds. */
    private static Verb verb(String name, String exampleArguments, Class<?>... records) {
        Method method = Arrays.stream(JniHelper.class.getDeclaredMethods())
                .filter(candidate -> candidate.getName().equals(name)).findFirst().orElseThrow();
        Iterator<Class<?>> held = List.of(records).iterator();
        List<Parameter> parameters = new ArrayList<>();
        for (var parameter : method.getParameters()) {
            Class<?> type = parameter.getType();
            if (type == Parcel.class) type = held.next();
            if (type == Parcel[].class) type = held.next().arrayType();
            parameters.add(new Parameter(parameter.getName(), type));
        }
        return new Verb(name, parameters, exampleArguments, args -> call(method, args));
    }

    private static void call(Method method, Object[] args) {
        List<Parcel> parcels = new ArrayList<>();
        Object[] passed = args.clone();
        for (int i = 0; i < args.length; i++) {
            if (args[i] instanceof Parcelable record) {
                passed[i] = parcelOf(record, parcels);
            } else if (args[i] instanceof Parcelable[] records) {
                passed[i] = Arrays.stream(records).map(record -> parcelOf(record, parcels)).toArray(Parcel[]::new);
            }
        }
        Trace.beginSection("JniHelper." + method.getName());
        try {
            method.invoke(null, passed);
        } catch (ReflectiveOperationException e) {
            throw new AssertionError(method + " cannot be called", e);
        } finally {
            Trace.endSection();
        }
        parcels.forEach(Parcel::recycle);
    }

    /** Positioned at its start, as the library wants it. */
    private static Parcel parcelOf(Parcelable record, List<Parcel> made) {
        Parcel parcel = Parcel.obtain();
        record.writeToParcel(parcel, 0);
        parcel.setDataPosition(0);
        made.add(parcel);
        return parcel;
    }

    /** What this machine has, and a word about what it has not. The rat type is -1, as none is known. */
    private void sendMachineData(MachineData machine) throws BadInputException {
        int unknownRat = -1;
        NetworkStatsParams[] traffic = machine.trafficPerInterface().toArray(new NetworkStatsParams[0]);
        ByteTuple total = machine.totalTraffic().orElse(null);
        NetworkInfo network = machine.network().orElse(null);
        BatteryState battery = machine.battery().orElse(null);
        OptionalInt temperature = machine.temperature();
        if (traffic.length == 0) absent("network interface", "sendNetworkStatsForAllUids");
        else call("sendNetworkStatsForAllUids", unknownRat, traffic);
        if (total == null) absent("network interface but loopback", "sendNetworkStatsForNetworkType");
        else call("sendNetworkStatsForNetworkType", unknownRat, total);
        if (network == null) absent("network interface but loopback that is up", "sendNetworkInfo");
        else call("sendNetworkInfo", unknownRat, network);
        if (battery == null) absent("battery", "sendBatteryStatus");
        else call("sendBatteryStatus", battery.int1, battery.flag1);
        if (temperature.isEmpty()) absent("thermal zone", "sendThermalStatus");
        else call("sendThermalStatus", temperature.getAsInt());
        call("sendCensusInfo", machine.build(), new TelephonyInfoParams[0]);
        if (machine.uptime().isEmpty()) absent("uptime", "sendBootCompleteInfo");
        else call("sendBootCompleteInfo", true);
    }

    /** A call that nobody typed: shown, so that its values can be told. */
    private void call(String name, Object... args) throws BadInputException {
        out.println(json ? "{\"native\":\"" + name + "\",\"args\":[" + join(",", Values::toJson, args) + "]}"
                : "Java  -> " + name + " " + join(" ", Values::toText, args));
        find(name).action.run(args);
    }

    private void absent(String what, String method) {
        out.println(json ? "{\"native\":\"" + method + "\",\"absent\":\"" + what + "\"}"
                : "Java  .. this machine has no " + what + ": " + method + " is not called");
    }

    private void waitForService(int milliseconds) throws BadInputException {
        long end = System.nanoTime() + milliseconds * 1_000_000L;
        synchronized (availability) {
            for (long left = milliseconds; !available; left = (end - System.nanoTime()) / 1_000_000) {
                if (left <= 0) throw new BadInputException("waitForService: no service within " + milliseconds + " ms");
                await(left);
            }
        }
    }

    private void await(long milliseconds) {
        try {
            availability.wait(milliseconds);
        } catch (InterruptedException e) {
            throw new IllegalStateException("nobody interrupts the main thread", e);
        }
    }

    private static void sleep(int milliseconds) throws BadInputException {
        if (milliseconds < 0) throw new BadInputException("sleep: argument milliseconds must not be negative");
        try {
            Thread.sleep(milliseconds);
        } catch (InterruptedException e) {
            throw new IllegalStateException("nobody interrupts the main thread", e);
        }
    }

    /** One line, one write, so that it stays whole beside the library's log; and UTF-8 whatever the locale. */
    private static PrintStream utf8(FileDescriptor descriptor) {
        return new PrintStream(
                new BufferedOutputStream(new FileOutputStream(descriptor), 1 << 16), true, StandardCharsets.UTF_8);
    }

    private static boolean inputIsTerminal() {
        try {
            String target = Files.readSymbolicLink(Path.of("/proc/self/fd/0")).toString();
            return target.startsWith("/dev/pts/") || target.startsWith("/dev/tty") || target.equals("/dev/console");
        } catch (IOException e) {
            return false;
        }
    }
}
