package vendor.nuvel.data.orvixadmin;

import java.io.IOException;
import java.net.Inet4Address;
import java.net.InetAddress;
import java.net.InterfaceAddress;
import java.net.NetworkInterface;
import java.net.SocketException;
import java.net.UnknownHostException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HexFormat;
import java.util.List;
import java.util.Optional;
import java.util.OptionalInt;
import java.util.OptionalLong;
import java.util.stream.Stream;

import vendor.nuvel.data.orvixservice.BatteryState;
import vendor.nuvel.data.orvixservice.BuildInfoParams;
import vendor.nuvel.data.orvixservice.ByteTuple;
import vendor.nuvel.data.orvixservice.DnsAddress;
import vendor.nuvel.data.orvixservice.NetworkInfo;
import vendor.nuvel.data.orvixservice.NetworkStatsParams;

/**
 * What a Linux machine tells about itself, as the interface's records. Nothing is invented: what the machine does not
 * have comes back empty, a text it does not have is "", a number it does not have is -1.
 *
 * <p>The members with positional names carry here what the comments say; another application and its service may agree
 * otherwise.
 */
final class MachineData {
    private static final long ROUTE_REJECTED = 0x200;

    private final Path proc;
    private final Path sys;
    private final Path etc;

    MachineData() {
        this(Path.of("/"));
    }

    /** Reads below another root, which a test can fill. Interfaces are always those of this machine. */
    MachineData(Path root) {
        proc = root.resolve("proc");
        sys = root.resolve("sys/class");
        etc = root.resolve("etc");
    }

    /** Received and sent bytes of each interface. The kernel counts for all UIDs, so uid is -1; text1 is the name. */
    List<NetworkStatsParams> trafficPerInterface() {
        List<NetworkStatsParams> all = new ArrayList<>();
        for (Path directory : list(sys.resolve("net"))) {
            OptionalLong received = readLong(directory.resolve("statistics/rx_bytes"));
            OptionalLong sent = readLong(directory.resolve("statistics/tx_bytes"));
            if (received.isEmpty() || sent.isEmpty()) continue;
            NetworkStatsParams entry = new NetworkStatsParams();
            entry.uid = -1;
            entry.flag1 = read(directory.resolve("operstate")).equals("up");
            entry.text1 = directory.getFileName().toString();
            entry.bytes = new ByteTuple();
            entry.bytes.long1 = received.getAsLong();
            entry.bytes.long2 = sent.getAsLong();
            all.add(entry);
        }
        return all;
    }

    /** Received and sent bytes over all interfaces but loopback. Empty without any. */
    Optional<ByteTuple> totalTraffic() {
        ByteTuple total = new ByteTuple();
        boolean any = false;
        for (NetworkStatsParams entry : trafficPerInterface()) {
            if (entry.text1.equals("lo")) continue;
            any = true;
            total.long1 += entry.bytes.long1;
            total.long2 += entry.bytes.long2;
        }
        return any ? Optional.of(total) : Optional.empty();
    }

    /**
     * The interface of the default route, IPv4's before IPv6's. Empty without such a route.
     *
     * <p>int1 index, flag1 up, flag2 carrier, text1 name, text2 hardware address, int2 MTU, dns1 and dns2 name servers
     * with family, text3 IPv4 address, text4 gateway, int3 IPv4 prefix length, optText1 IPv6 address, int4 IPv6 prefix
     * length, flag3 IPv4 default route, int5 speed in Mbit/s, flag4 IPv6 default route.
     */
    Optional<NetworkInfo> defaultNetwork() {
        Optional<Route> route4 = defaultRoute4();
        Optional<Route> route6 = defaultRoute6();
        Optional<Route> route = route4.or(() -> route6);
        if (route.isEmpty()) return Optional.empty();
        String name = route.get().device;

        NetworkInfo info = new NetworkInfo();
        info.int1 = readInt(sys.resolve("net/" + name + "/ifindex"));
        info.flag1 = read(sys.resolve("net/" + name + "/operstate")).equals("up");
        info.flag2 = read(sys.resolve("net/" + name + "/carrier")).equals("1");
        info.text1 = name;
        info.text2 = read(sys.resolve("net/" + name + "/address"));
        info.int2 = readInt(sys.resolve("net/" + name + "/mtu"));
        List<String> servers = nameServers();
        info.dns1 = nameServer(servers, 0);
        info.dns2 = nameServer(servers, 1);
        InterfaceAddress address4 = null;
        InterfaceAddress address6 = null;
        for (InterfaceAddress address : addressesOf(name)) {
            boolean is4 = address.getAddress() instanceof Inet4Address;
            if (is4 && address4 == null) address4 = address;
            // An address that is known beyond the link tells more than one that is not.
            if (!is4 && (address6 == null || address6.getAddress().isLinkLocalAddress())) address6 = address;
        }
        info.text3 = address4 == null ? "" : address4.getAddress().getHostAddress();
        info.text4 = route.get().gateway;
        info.int3 = address4 == null ? -1 : address4.getNetworkPrefixLength();
        info.optText1 = address6 == null ? null : withoutScope(address6.getAddress().getHostAddress());
        info.int4 = address6 == null ? -1 : address6.getNetworkPrefixLength();
        info.flag3 = route4.isPresent();
        info.int5 = readInt(sys.resolve("net/" + name + "/speed"));
        info.flag4 = route6.isPresent();
        return Optional.of(info);
    }

    /** Charge in percent, and whether it is charging. Empty without a battery. */
    Optional<BatteryState> battery() {
        for (Path supply : list(sys.resolve("power_supply"))) {
            OptionalLong capacity = readLong(supply.resolve("capacity"));
            if (!read(supply.resolve("type")).equals("Battery") || capacity.isEmpty()) continue;
            BatteryState state = new BatteryState();
            state.int1 = (int) capacity.getAsLong();
            state.flag1 = read(supply.resolve("status")).equals("Charging");
            return Optional.of(state);
        }
        return Optional.empty();
    }

    /** The hottest thermal zone, in whole degrees Celsius. Empty without a zone that tells. */
    OptionalInt temperature() {
        return list(sys.resolve("thermal")).stream()
                .map(zone -> readLong(zone.resolve("temp")))
                .filter(OptionalLong::isPresent)
                .mapToInt(milliDegrees -> (int) Math.floorDiv(milliDegrees.getAsLong(), 1000L))
                .max();
    }

    /** Kernel name, release, build and architecture; system id, version and full name; host name. */
    BuildInfoParams build() {
        BuildInfoParams build = new BuildInfoParams();
        build.text1 = read(proc.resolve("sys/kernel/ostype"));
        build.text2 = read(proc.resolve("sys/kernel/osrelease"));
        build.text3 = read(proc.resolve("sys/kernel/version"));
        build.text4 = System.getProperty("os.arch", "");
        build.text5 = osRelease("ID");
        build.text6 = osRelease("VERSION_ID");
        build.text7 = osRelease("PRETTY_NAME");
        build.text8 = read(proc.resolve("sys/kernel/hostname"));
        return build;
    }

    /** Seconds since the machine started. */
    OptionalLong uptime() {
        String text = read(proc.resolve("uptime"));
        int point = text.indexOf('.');
        return point < 0 ? OptionalLong.empty() : parseLong(text.substring(0, point));
    }

    private record Route(String device, String gateway, long metric) {}

    private Optional<Route> defaultRoute4() {
        Route best = null;
        for (String line : lines(proc.resolve("net/route"))) {
            String[] column = line.split("\\s+");
            if (column.length < 8 || !column[1].equals("00000000") || !column[7].equals("00000000")) continue;
            Route route = new Route(column[0], address4(column[2]), Long.parseLong(column[6]));
            if (best == null || route.metric < best.metric) best = route;
        }
        return Optional.ofNullable(best);
    }

    private Optional<Route> defaultRoute6() {
        Route best = null;
        for (String line : lines(proc.resolve("net/ipv6_route"))) {
            String[] column = line.split("\\s+");
            if (column.length < 10 || !column[0].matches("0{32}") || !column[1].equals("00")) continue;
            if ((Long.parseLong(column[8], 16) & ROUTE_REJECTED) != 0) continue;
            Route route = new Route(column[9], address6(column[4]), Long.parseLong(column[5], 16));
            if (best == null || route.metric < best.metric) best = route;
        }
        return Optional.ofNullable(best);
    }

    // The kernel prints an IPv4 address as one number in the machine's order, little-endian wherever this runs.
    private static String address4(String hex) {
        long bits = Long.parseLong(hex, 16);
        return (bits & 255) + "." + (bits >> 8 & 255) + "." + (bits >> 16 & 255) + "." + (bits >> 24 & 255);
    }

    private static String address6(String hex) {
        byte[] bytes = HexFormat.of().parseHex(hex);
        try {
            return InetAddress.getByAddress(bytes).getHostAddress();
        } catch (UnknownHostException e) {
            return "";
        }
    }

    private static String withoutScope(String address) {
        return address.replaceFirst("%.*", "");
    }

    private static List<InterfaceAddress> addressesOf(String device) {
        try {
            NetworkInterface found = NetworkInterface.getByName(device);
            return found == null ? List.of() : found.getInterfaceAddresses();
        } catch (SocketException e) {
            return List.of();
        }
    }

    private List<String> nameServers() {
        return lines(etc.resolve("resolv.conf")).stream()
                .map(line -> line.strip().split("\\s+"))
                .filter(word -> word.length > 1 && word[0].equals("nameserver"))
                .map(word -> word[1])
                .toList();
    }

    private static DnsAddress nameServer(List<String> servers, int index) {
        DnsAddress dns = new DnsAddress();
        dns.text1 = index < servers.size() ? servers.get(index) : "";
        dns.text2 = dns.text1.isEmpty() ? "" : dns.text1.contains(":") ? "IPv6" : "IPv4";
        return dns;
    }

    private String osRelease(String key) {
        for (String line : lines(etc.resolve("os-release"))) {
            if (line.startsWith(key + "=")) return line.substring(key.length() + 1).replaceAll("^\"|\"$", "");
        }
        return "";
    }

    private static List<Path> list(Path directory) {
        try (Stream<Path> entries = Files.list(directory)) {
            return entries.sorted().toList();
        } catch (IOException e) {
            return List.of();
        }
    }

    private static List<String> lines(Path file) {
        return Arrays.asList(read(file).split("\n"));
    }

    private static OptionalLong readLong(Path file) {
        return parseLong(read(file));
    }

    private static int readInt(Path file) {
        return (int) readLong(file).orElse(-1);
    }

    private static OptionalLong parseLong(String text) {
        return text.matches("-?\\d{1,18}") ? OptionalLong.of(Long.parseLong(text)) : OptionalLong.empty();
    }

    // A file of /sys may be there and yet refuse to be read, as the speed of an interface that is down: "" then, too.
    private static String read(Path file) {
        try {
            return Files.readString(file, StandardCharsets.ISO_8859_1).strip();
        } catch (IOException e) {
            return "";
        }
    }
}
