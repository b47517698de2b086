package vendor.nuvel.data.orvixadmin;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/** The words of a typed line, and how near two of them are. */
final class Words {
    private Words() {}

    /** Splits at blanks; a JSON object or array stays one word, with the blanks and brackets in its strings. */
    static List<String> split(String line) {
        List<String> words = new ArrayList<>();
        StringBuilder word = new StringBuilder();
        int depth = 0;
        boolean inString = false;
        for (int i = 0; i < line.length(); i++) {
            char c = line.charAt(i);
            if (depth == 0 && Character.isWhitespace(c)) {
                if (word.length() > 0) words.add(word.toString());
                word.setLength(0);
                continue;
            }
            word.append(c);
            if (inString) {
                if (c == '\\' && i + 1 < line.length()) word.append(line.charAt(++i));
                inString = c != '"';
            } else if (c == '"') {
                inString = depth > 0;
            } else if (c == '{' || c == '[') {
                depth++;
            } else if ((c == '}' || c == ']') && depth > 0) {
                depth--;
            }
        }
        if (word.length() > 0) words.add(word.toString());
        return words;
    }

    /** The number of letters to insert, delete or replace, capitals aside; a missing end counts as one. */
    static int distance(String typed, String name) {
        String a = typed.toLowerCase();
        String b = name.toLowerCase();
        int[] row = new int[b.length() + 1];
        for (int j = 0; j <= b.length(); j++) row[j] = j;
        for (int i = 1; i <= a.length(); i++) {
            int diagonal = row[0];
            row[0] = i;
            for (int j = 1; j <= b.length(); j++) {
                int replaced = diagonal + (a.charAt(i - 1) == b.charAt(j - 1) ? 0 : 1);
                diagonal = row[j];
                row[j] = Math.min(replaced, 1 + Math.min(row[j], row[j - 1]));
            }
        }
        return Math.min(row[b.length()], 1 + Arrays.stream(row).min().getAsInt());
    }
}
