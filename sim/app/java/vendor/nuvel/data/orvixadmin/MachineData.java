package vendor.nuvel.data.orvixadmin;

import java.io.IOException;
import java.net.Inet4Address;
import java.net.InterfaceAddress;
import java.net.NetworkInterface;
import java.net.SocketException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
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
    private static final Path PROC = Path.of("/proc");
    private static final Path SYS = Path.of("/sys/class");
    private static final Path ETC = Path.of("/etc");

    /** Received and sent bytes of each interface. The kernel counts for all UIDs, so uid is -1; text1 is the name. */
    List<NetworkStatsParams> trafficPerInterface() {
        List<NetworkStatsParams> all = new ArrayList<>();
        for (Path directory : list(SYS.resolve("net"))) {
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
     * The first interface that is up, loopback aside. Empty without one.
     *
     * <p>int1 index, flag1 up, flag2 carrier, text1 name, text2 hardware address, int2 MTU, dns1 and dns2 name servers
     * with family, text3 IPv4 address, int3 IPv4 prefix length, optText1 IPv6 address, int4 IPv6 prefix length, flag3
     * IPv4, int5 speed in Mbit/s, flag4 IPv6.
     */
    Optional<NetworkInfo> network() {
        try {
            for (NetworkInterface device : Collections.list(NetworkInterface.getNetworkInterfaces())) {
                if (device.isUp() && !device.isLoopback()) return Optional.of(networkOf(device));
            }
        } catch (SocketException e) {
            // As if there were none.
        }
        return Optional.empty();
    }

    private static NetworkInfo networkOf(NetworkInterface device) throws SocketException {
        Path directory = SYS.resolve("net/" + device.getName());
        NetworkInfo info = new NetworkInfo();
        info.int1 = device.getIndex();
        info.flag1 = true;
        info.flag2 = read(directory.resolve("carrier")).equals("1");
        info.text1 = device.getName();
        info.text2 = read(directory.resolve("address"));
        info.int2 = device.getMTU();
        List<String> servers = nameServers();
        info.dns1 = nameServer(servers, 0);
        info.dns2 = nameServer(servers, 1);
        info.text3 = "";
        info.text4 = "";
        info.int3 = -1;
        info.int4 = -1;
        info.int5 = (int) readLong(directory.resolve("speed")).orElse(-1);
        for (InterfaceAddress address : device.getInterfaceAddresses()) {
            String text = address.getAddress().getHostAddress().replaceFirst("%.*", "");
            if (address.getAddress() instanceof Inet4Address) {
                info.flag3 = true;
                info.text3 = text;
                info.int3 = address.getNetworkPrefixLength();
            } else {
                info.flag4 = true;
                info.optText1 = text;
                info.int4 = address.getNetworkPrefixLength();
            }
        }
        return info;
    }

    /** Charge in percent, and whether it is charging. Empty without a battery. */
    Optional<BatteryState> battery() {
        for (Path supply : list(SYS.resolve("power_supply"))) {
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
        return list(SYS.resolve("thermal")).stream()
                .map(zone -> readLong(zone.resolve("temp")))
                .filter(OptionalLong::isPresent)
                .mapToInt(milliDegrees -> (int) Math.floorDiv(milliDegrees.getAsLong(), 1000L))
                .max();
    }

    /** Kernel name, release, build and architecture; system id, version and full name; host name. */
    BuildInfoParams build() {
        BuildInfoParams build = new BuildInfoParams();
        build.text1 = read(PROC.resolve("sys/kernel/ostype"));
        build.text2 = read(PROC.resolve("sys/kernel/osrelease"));
        build.text3 = read(PROC.resolve("sys/kernel/version"));
        build.text4 = System.getProperty("os.arch", "");
        build.text5 = osRelease("ID");
        build.text6 = osRelease("VERSION_ID");
        build.text7 = osRelease("PRETTY_NAME");
        build.text8 = read(PROC.resolve("sys/kernel/hostname"));
        return build;
    }

    /** Seconds since the machine started. */
    OptionalLong uptime() {
        String text = read(PROC.resolve("uptime"));
        int point = text.indexOf('.');
        return point < 0 ? OptionalLong.empty() : parseLong(text.substring(0, point));
    }

    private static List<String> nameServers() {
        return lines(ETC.resolve("resolv.conf")).stream()
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

    private static String osRelease(String key) {
        for (String line : lines(ETC.resolve("os-release"))) {
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
