package vendor.nuvel.data.orvixadmin;

import android.os.BadParcelableException;
import android.os.Parcel;
import android.os.Parcelable;

import com.google.gson.JsonObject;
import com.google.gson.JsonParser;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.HexFormat;
import java.util.List;
import java.util.Objects;
import java.util.function.Consumer;

import vendor.nuvel.data.orvixservice.ByteTuple;

/** Holds the stand-in's Parcel and the generated records against bytes measured on a device. Argument: their folder. */
public final class ParcelGolden {
    private static int done;
    private static int failed;

    private ParcelGolden() {}

    public static void main(String[] args) throws Exception {
        for (String line : Files.readAllLines(Path.of(args[0], "records.jsonl"))) {
            JsonObject row = JsonParser.parseString(line).getAsJsonObject();
            String name = row.get("record").getAsString();
            String hex = row.get("hex").getAsString();
            Class<?> type = Class.forName("vendor.nuvel.data.orvixservice." + name);
            Parcelable record = (Parcelable) Values.parse(type, row.get("value").toString());
            equal(name + " written", hex, written(parcel -> record.writeToParcel(parcel, 0)));
            Parcelable.Creator<?> creator = (Parcelable.Creator<?>) type.getField("CREATOR").get(null);
            Parcelable copy = (Parcelable) creator.createFromParcel(parcel(hex));
            equal(name + " read and written", hex, written(parcel -> copy.writeToParcel(parcel, 0)));
        }
        semantics();
        System.out.println(done + " checks, " + failed + " failed");
        System.exit(failed == 0 && done > 110 ? 0 : 1);  // fewer: data was missing
    }

    private static void semantics() {
        equal("nulls and a part", "ffffffff" + "ffffffff" + "00000000" + "0300000002030400", written(parcel -> {
            parcel.writeString(null);
            parcel.writeByteArray(null);
            parcel.writeTypedObject(null, 0);
            parcel.writeByteArray(new byte[] {1, 2, 3, 4, 5}, 1, 3);
        }));
        for (String hex : List.of("", "ffffffff", "feffffff", "05000000" + "61006200", "ffffff7f")) {
            equal("no String in " + hex, null, parcel(hex).readString());
        }
        Parcel parcel = parcel("0a000000" + "0b000000" + "0c000000");
        parcel.setDataPosition(4);
        parcel.writeInt(1);
        parcel.marshall();
        equal("overwritten", List.of(12, 8, 12), List.of(parcel.dataSize(), parcel.dataPosition(), parcel.readInt()));
        fails(BadParcelableException.class, p -> parcel("ffffff7f").createTypedArray(ByteTuple.CREATOR));
        fails(BadParcelableException.class, p -> parcel("00000000").enforceNoDataAvail());
        fails(IllegalArgumentException.class, p -> p.setDataPosition(-1));
        fails(IllegalArgumentException.class, p -> p.unmarshall(new byte[4], 2, 3));
        fails(ArrayIndexOutOfBoundsException.class, p -> p.writeByteArray(new byte[4], 2, 3));
    }

    private static void equal(String what, Object expected, Object actual) {
        done++;
        if (Objects.equals(expected, actual)) return;
        failed++;
        System.out.println("FAILED " + what + ": expected " + expected + ", got " + actual);
    }

    private static void fails(Class<? extends Exception> type, Consumer<Parcel> use) {
        try {
            use.accept(Parcel.obtain());
            equal("no exception", type, null);
        } catch (RuntimeException e) {
            equal("exception", type, e.getClass());
        }
    }

    private static Parcel parcel(String hex) {
        Parcel parcel = Parcel.obtain();
        byte[] bytes = HexFormat.of().parseHex(hex);
        parcel.unmarshall(bytes, 0, bytes.length);
        parcel.setDataPosition(0);
        return parcel;
    }

    private static String written(Consumer<Parcel> write) {
        Parcel parcel = Parcel.obtain();
        write.accept(parcel);
        return HexFormat.of().formatHex(parcel.marshall());
    }
}
