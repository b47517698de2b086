package android.os;

import java.lang.ref.Cleaner;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/**
 * Stand-in of android.os.Parcel on a workstation's JVM, over a native parcel in the device's byte layout.
 *
 * <p>It has the methods that records and ordinary applications use, with Android's behaviour: reading past the end
 * gives 0, false or null and never throws; a String is carried as its UTF-16 units, lone surrogates included; writing
 * overwrites from the current position. Like Android's, a parcel is not thread-safe.
 *
 * <p>One difference helps to find mistakes: there is no pool. A recycled parcel is dead, and using it throws
 * IllegalStateException where Android would let two owners share it.
 */
public final class Parcel {
    private static final int MAX_ARRAY_LENGTH = 1_000_000;
    private static final Cleaner CLEANER = Cleaner.create();

    static {
        System.loadLibrary("android_runtime");
    }

    /** The AParcel; native code finds it by this name. 0 once recycled. */
    private long mNativePtr = nativeCreate();

    private final Cleaner.Cleanable mOwner = CLEANER.register(this, destroyer(mNativePtr));

    private Parcel() {}

    public static Parcel obtain() {
        return new Parcel();
    }

    public void recycle() {
        mNativePtr = 0;
        mOwner.clean();
    }

    public int dataSize() {
        return nativeDataSize(ptr());
    }

    /** Bytes between the position and the end; 0 when the position lies beyond. */
    public int dataAvail() {
        return dataSize() - dataPosition();
    }

    public int dataPosition() {
        return nativeDataPosition(ptr());
    }

    /** A position beyond the end is allowed, a negative one is not. */
    public void setDataPosition(int pos) {
        nativeSetDataPosition(ptr(), pos);
    }

    /** The raw bytes from the start, wherever the position is. A parcel that holds binders or descriptors has none. */
    public byte[] marshall() {
        return nativeMarshall(ptr());
    }

    /** Replaces the contents. The position is then at the end: rewind before reading. */
    public void unmarshall(byte[] data, int offset, int length) {
        if (offset < 0 || length < 0 || offset > data.length - length) {
            throw new IllegalArgumentException(
                    "offset " + offset + " and length " + length + " do not lie within " + data.length + " bytes");
        }
        nativeUnmarshall(ptr(), data, offset, length);
    }

    /** Throws when something is left unread: the end of a careful reader. */
    public void enforceNoDataAvail() {
        int left = dataAvail();
        if (left > 0) {
            throw new BadParcelableException("Parcel data not fully consumed, unread size: " + left);
        }
    }

    public void writeInt(int val) {
        nativeWriteInt(ptr(), val);
    }

    public void writeLong(long val) {
        nativeWriteLong(ptr(), val);
    }

    public void writeBoolean(boolean val) {
        writeInt(val ? 1 : 0);
    }

    public void writeByte(byte val) {
        writeInt(val);
    }

    public void writeFloat(float val) {
        writeInt(Float.floatToIntBits(val));
    }

    public void writeDouble(double val) {
        writeLong(Double.doubleToLongBits(val));
    }

    public void writeString(String val) {
        if (val == null) {
            writeInt(-1);
        } else {
            nativeWriteString(ptr(), val);
        }
    }

    public void writeByteArray(byte[] b) {
        writeByteArray(b, 0, b == null ? 0 : b.length);
    }

    public void writeByteArray(byte[] b, int offset, int len) {
        if (b == null) {
            writeInt(-1);
            return;
        }
        if (offset < 0 || len < 0 || offset > b.length - len) {
            throw new ArrayIndexOutOfBoundsException(
                    "offset " + offset + " and length " + len + " do not lie within " + b.length + " bytes");
        }
        nativeWriteByteArray(ptr(), b, offset, len);
    }

    public <T extends Parcelable> void writeTypedObject(T val, int parcelableFlags) {
        writeInt(val == null ? 0 : 1);
        if (val != null) {
            val.writeToParcel(this, parcelableFlags);
        }
    }

    public <T extends Parcelable> void writeTypedArray(T[] val, int parcelableFlags) {
        writeTypedList(val == null ? null : Arrays.asList(val), parcelableFlags);
    }

    public <T extends Parcelable> void writeTypedList(List<T> val) {
        writeTypedList(val, 0);
    }

    public <T extends Parcelable> void writeTypedList(List<T> val, int parcelableFlags) {
        writeInt(val == null ? -1 : val.size());
        if (val != null) {
            for (T item : val) {
                writeTypedObject(item, parcelableFlags);
            }
        }
    }

    public int readInt() {
        return nativeReadInt(ptr());
    }

    public long readLong() {
        return nativeReadLong(ptr());
    }

    public boolean readBoolean() {
        return readInt() != 0;
    }

    public byte readByte() {
        return (byte) readInt();
    }

    public float readFloat() {
        return Float.intBitsToFloat(readInt());
    }

    public double readDouble() {
        return Double.longBitsToDouble(readLong());
    }

    /** Null also when the bytes hold no whole string. */
    public String readString() {
        return nativeReadString(ptr());
    }

    /** Null when the length is negative or more than the bytes left. */
    public byte[] createByteArray() {
        int start = dataPosition();
        int length = readInt();
        if (length < 0) {
            return null;
        }
        // Not even a length left reads as a length of 0.
        return length == 0 ? new byte[0] : nativeReadByteArray(ptr(), start);
    }

    public <T> T readTypedObject(Parcelable.Creator<T> c) {
        return readInt() != 0 ? c.createFromParcel(this) : null;
    }

    public <T> T[] createTypedArray(Parcelable.Creator<T> c) {
        List<T> items = createTypedArrayList(c);
        return items == null ? null : items.toArray(c.newArray(items.size()));
    }

    public <T> ArrayList<T> createTypedArrayList(Parcelable.Creator<T> c) {
        int count = readInt();
        if (count < 0) {
            return null;
        }
        if (count > MAX_ARRAY_LENGTH) {
            throw new BadParcelableException("A parcel cannot hold " + count + " elements");
        }
        ArrayList<T> items = new ArrayList<>();
        for (int i = 0; i < count; i++) {
            items.add(readTypedObject(c));
        }
        return items;
    }

    private long ptr() {
        if (mNativePtr == 0) {
            throw new IllegalStateException("Parcel has been recycled");
        }
        return mNativePtr;
    }

    // Static, so that the cleaner's action does not keep the parcel alive that it waits for.
    private static Runnable destroyer(long ptr) {
        return () -> nativeDestroy(ptr);
    }

    private static native long nativeCreate();

    private static native void nativeDestroy(long ptr);

    // Instance methods on purpose: the receiver stays reachable, and its native parcel alive, while they run.
    private native int nativeDataSize(long ptr);

    private native int nativeDataPosition(long ptr);

    private native void nativeSetDataPosition(long ptr, int pos);

    private native byte[] nativeMarshall(long ptr);

    private native void nativeUnmarshall(long ptr, byte[] data, int offset, int length);

    private native void nativeWriteInt(long ptr, int val);

    private native void nativeWriteLong(long ptr, long val);

    private native void nativeWriteString(long ptr, String val);

    private native void nativeWriteByteArray(long ptr, byte[] b, int offset, int len);

    private native int nativeReadInt(long ptr);

    private native long nativeReadLong(long ptr);

    private native String nativeReadString(long ptr);

    private native byte[] nativeReadByteArray(long ptr, int start);
}
