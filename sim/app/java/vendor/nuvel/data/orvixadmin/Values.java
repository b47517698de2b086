package vendor.nuvel.data.orvixadmin;

import android.os.Parcelable;

import com.google.gson.JsonPrimitive;
import com.google.gson.stream.JsonReader;
import com.google.gson.stream.JsonToken;

import java.io.IOException;
import java.io.StringReader;
import java.lang.reflect.Array;
import java.lang.reflect.Field;
import java.lang.reflect.Modifier;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HexFormat;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.stream.Collectors;

/**
 * Typed values from text and back: int, long, boolean, blobs as "hex:00ff", records as JSON objects with the record's
 * member names, lists of records as JSON arrays. Reading is strict: nothing is guessed, rounded or left out.
 */
final class Values {
    /** Only these may be null or left out. */
    private static final String OPTIONAL_MEMBER = "optText1";

    private Values() {}

    /** What to type for a value of this type. */
    static String describe(Class<?> type) {
        if (type == int.class) return "an int (" + Integer.MIN_VALUE + " to " + Integer.MAX_VALUE + ")";
        if (type == long.class) return "a long (" + Long.MIN_VALUE + " to " + Long.MAX_VALUE + ")";
        if (type == boolean.class) return "a boolean (true or false)";
        if (type == String.class) return "a string";
        if (type == byte[].class) return "a blob (hex: and two hexadecimal digits a byte)";
        if (type.isArray()) return "a JSON array of " + type.getComponentType().getSimpleName();
        return "a JSON object " + type.getSimpleName();
    }

    static Object parse(Class<?> type, String text) throws BadInputException {
        if (type == byte[].class) return parseBlob(text);
        if (type.isPrimitive()) return parsePrimitive(type, text, "");
        JsonReader reader = new JsonReader(new StringReader(text));
        try {
            Object value = read(reader, type, "");
            if (reader.peek() != JsonToken.END_DOCUMENT) throw new BadInputException("more than one JSON value");
            return value;
        } catch (IOException | IllegalStateException e) {
            throw new BadInputException("not well-formed JSON near " + reader.getPath());
        }
    }

    /** The value as JSON; blobs as "hex:00ff", an absent text as null. */
    static String toJson(Object value) {
        if (value instanceof byte[]) return '"' + toText(value) + '"';
        if (value instanceof String) return quote((String) value);
        if (value instanceof Object[]) {
            return Arrays.stream((Object[]) value).map(Values::toJson).collect(Collectors.joining(",", "[", "]"));
        }
        if (value instanceof Parcelable) {
            return members(value.getClass()).values().stream()
                    .map(member -> quote(member.getName()) + ":" + toJson(valueOf(member, value)))
                    .collect(Collectors.joining(",", "{", "}"));
        }
        return String.valueOf(value);
    }

    /** The value for people: as JSON, but blobs without quotes, as they are typed. */
    static String toText(Object value) {
        return value instanceof byte[] ? "hex:" + HexFormat.of().formatHex((byte[]) value) : toJson(value);
    }

    // Lone surrogates have no UTF-8 form, so they are escaped, or they would come out as question marks.
    private static String quote(String text) {
        String quoted = new JsonPrimitive(text).toString();
        return quoted.codePoints()
                .mapToObj(c -> c >= 0xd800 && c <= 0xdfff ? String.format("\\u%04x", c) : Character.toString(c))
                .collect(Collectors.joining());
    }

    private static byte[] parseBlob(String text) throws BadInputException {
        try {
            if (text.startsWith("hex:")) return HexFormat.of().parseHex(text, 4, text.length());
        } catch (IllegalArgumentException e) {
            // Told below, with what would be right.
        }
        throw wrong("", byte[].class, text);
    }

    private static Object parsePrimitive(Class<?> type, String text, String path) throws BadInputException {
        try {
            if (type == int.class) return Integer.parseInt(text);
            if (type == long.class) return Long.parseLong(text);
        } catch (NumberFormatException e) {
            throw wrong(path, type, text);
        }
        if (!text.equals("true") && !text.equals("false")) throw wrong(path, type, text);
        return text.equals("true");
    }

    private static Object read(JsonReader reader, Class<?> type, String path) throws IOException, BadInputException {
        JsonToken token = reader.peek();
        if (type == String.class && token == JsonToken.STRING) return reader.nextString();
        if (type == boolean.class && token == JsonToken.BOOLEAN) return reader.nextBoolean();
        if (type.isPrimitive() && type != boolean.class && token == JsonToken.NUMBER) {
            return parsePrimitive(type, reader.nextString(), path);
        }
        if (type.isArray() && token == JsonToken.BEGIN_ARRAY) return readArray(reader, type.getComponentType(), path);
        if (isRecord(type) && token == JsonToken.BEGIN_OBJECT) return readRecord(reader, type, path);
        throw wrong(path, type, token == JsonToken.STRING || token == JsonToken.NUMBER ? reader.nextString()
                : token.toString().toLowerCase().replace("begin_", "").replace("_", " "));
    }

    private static Object readArray(JsonReader reader, Class<?> element, String path)
            throws IOException, BadInputException {
        List<Object> items = new ArrayList<>();
        reader.beginArray();
        while (reader.hasNext()) items.add(read(reader, element, path + "[" + items.size() + "]"));
        reader.endArray();
        return items.toArray((Object[]) Array.newInstance(element, 0));
    }

    private static Object readRecord(JsonReader reader, Class<?> type, String path)
            throws IOException, BadInputException {
        Map<String, Field> missing = members(type);
        try {
            Object record = type.getDeclaredConstructor().newInstance();
            reader.beginObject();
            while (reader.hasNext()) {
                String name = reader.nextName();
                String memberPath = path.isEmpty() ? name : path + "." + name;
                Field member = missing.remove(name);
                if (member == null) {
                    throw new BadInputException("member " + memberPath + " is "
                            + (members(type).containsKey(name) ? "there twice" : "unknown; " + type.getSimpleName()
                                    + " has " + String.join(", ", members(type).keySet())));
                }
                if (name.equals(OPTIONAL_MEMBER) && reader.peek() == JsonToken.NULL) {
                    reader.nextNull();
                } else {
                    member.set(record, read(reader, member.getType(), memberPath));
                }
            }
            reader.endObject();
            missing.remove(OPTIONAL_MEMBER);
            for (Field member : missing.values()) {
                throw new BadInputException("member " + (path.isEmpty() ? "" : path + ".") + member.getName()
                        + " is missing, " + describe(member.getType()));
            }
            return record;
        } catch (ReflectiveOperationException e) {
            throw new AssertionError(type + " is no record", e);
        }
    }

    private static boolean isRecord(Class<?> type) {
        return !type.isPrimitive() && !type.isArray() && type != String.class;
    }

    private static Map<String, Field> members(Class<?> record) {
        Map<String, Field> members = new LinkedHashMap<>();
        for (Field field : record.getDeclaredFields()) {
            if (!Modifier.isStatic(field.getModifiers())) members.put(field.getName(), field);
        }
        return members;
    }

    private static Object valueOf(Field member, Object record) {
        try {
            return member.get(record);
        } catch (IllegalAccessException e) {
            throw new AssertionError(member + " is not public", e);
        }
    }

    private static BadInputException wrong(String path, Class<?> type, String got) {
        return new BadInputException(
                (path.isEmpty() ? "" : "member " + path + " ") + "must be " + describe(type) + ", not " + quote(got));
    }
}
