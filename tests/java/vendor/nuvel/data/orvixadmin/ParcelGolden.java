package vendor.nuvel.data.orvixadmin;

import android.os.Parcel;
import android.os.Parcelable;

import com.google.gson.JsonObject;
import com.google.gson.JsonParser;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.HexFormat;
import java.util.List;
import java.util.function.Consumer;

import vendor.nuvel.data.orvixservice.ByteTuple;

/** Holds the stand-in's Parcel and the generated records against bytes measured on a device. Argument: their folder. */
public final class ParcelGolden {
    public static void main(String[] args) throws Exception {
        for (String line : Files.readAllLines(Path.of(args[0], "records.jsonl"))) {
            JsonObject row = JsonParser.parseString(line).getAsJsonObject();
            String hex = row.get("hex").getAsString();
            Class<?> type = Class.forName("vendor.nuvel.data.orvixservice." + row.get("record").getAsString());
            Parcelable record = (Parcelable) Values.parse(type, row.get("value").toString());
            check(line, hex.equals(written(parcel -> record.writeToParcel(parcel, 0))));
            var creator = (Parcelable.Creator<?>) type.getField("CREATOR").get(null);
            Parcelable copy = (Parcelable) creator.createFromParcel(parcel(hex));
            check("read: " + line, hex.equals(written(parcel -> copy.writeToParcel(parcel, 0))));
        }
        for (String hex : List.of("", "ffffffff", "feffffff", "05000000" + "61006200", "01000000" + "61006200",
                "ffffff7f")) {
            check("no String in " + hex, parcel(hex).readString() == null);
        }
        check("nulls and parts", written(parcel -> {
            parcel.writeString(null);
            parcel.writeByteArray(null);
            parcel.writeTypedObject(null, 0);
            parcel.writeByteArray(new byte[] {1, 2, 3, 4, 5}, 1, 3);
            parcel.setDataPosition(0);
            parcel.writeInt(1);
        }).equals("01000000" + "ffffffff" + "00000000" + "0300000002030400"));
        for (Runnable use : List.<Runnable>of(() -> parcel("ffffff7f").createTypedArray(ByteTuple.CREATOR),
                () -> parcel("00000000").enforceNoDataAvail(), () -> parcel("").setDataPosition(-1))) {
            try {
                use.run();
            } catch (RuntimeException e) {
                continue;
            }
            check("what must throw", false);
        }
    }

    private static void check(String what, boolean holds) {
        if (!holds) throw new AssertionError(what);
    }

    private static Parcel parcel(String hex) {
        Parcel parcel = Parcel.obtain();
        parcel.unmarshall(HexFormat.of().parseHex(hex), 0, hex.length() / 2);
        parcel.setDataPosition(0);
        return parcel;
    }

    private static String written(Consumer<Parcel> write) {
        Parcel parcel = Parcel.obtain();
        write.accept(parcel);
        return HexFormat.of().formatHex(parcel.marshall());
    }
}
