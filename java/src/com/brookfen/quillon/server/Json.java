package com.brookfen.quillon.server;

import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.function.Function;

/**
 * Just enough JSON for the server's own files and answers: objects become
 * LinkedHashMap, arrays ArrayList, numbers Double, plus String, Boolean and null.
 * Broken input gives null from {@link #parse}, never an exception.
 */
public final class Json {
    /** Deeper documents are refused rather than risking the caller's stack. */
    static final int MAX_DEPTH = 64;

    private final String text;
    private final Function<Object, Object> members;
    private int pos;

    private Json(String text, Function<Object, Object> members) {
        this.text = text;
        this.members = members;
    }

    public static Object parse(String text) {
        return parse(text, null);
    }

    /**
     * As parse, with each element of an array that is a member of the top-level object
     * replaced by what the function makes of it as soon as it is read: a large list is
     * never held whole as a tree.
     */
    static Object parse(String text, Function<Object, Object> members) {
        if (text == null) {
            return null;
        }
        Json p = new Json(text, members);
        try {
            Object v = p.value(0);
            p.skipSpace();
            return p.pos == text.length() ? v : null;
        } catch (IllegalArgumentException | IndexOutOfBoundsException e) {
            return null;
        }
    }

    @SuppressWarnings("unchecked")
    public static Map<String, Object> parseObject(String text) {
        Object v = parse(text);
        return v instanceof Map ? (Map<String, Object>) v : null;
    }

    private void skipSpace() {
        while (pos < text.length() && Character.isWhitespace(text.charAt(pos))) {
            pos++;
        }
    }

    private Object value(int depth) {
        if (depth > MAX_DEPTH) {
            throw new IllegalArgumentException("too deep");
        }
        skipSpace();
        char c = text.charAt(pos);
        switch (c) {
            case '{': return object(depth);
            case '[': return array(depth);
            case '"': return string();
            case 't': return word("true", Boolean.TRUE);
            case 'f': return word("false", Boolean.FALSE);
            case 'n': return word("null", null);
            default: return number();
        }
    }

    private Object word(String w, Object v) {
        if (!text.startsWith(w, pos)) {
            throw new IllegalArgumentException("bad word");
        }
        pos += w.length();
        return v;
    }

    private Map<String, Object> object(int depth) {
        Map<String, Object> map = new LinkedHashMap<>();
        pos++;
        skipSpace();
        if (text.charAt(pos) == '}') {
            pos++;
            return map;
        }
        while (true) {
            skipSpace();
            if (text.charAt(pos) != '"') {
                throw new IllegalArgumentException("key expected");
            }
            String key = string();
            skipSpace();
            if (text.charAt(pos++) != ':') {
                throw new IllegalArgumentException("colon expected");
            }
            map.put(key, value(depth + 1));
            skipSpace();
            char c = text.charAt(pos++);
            if (c == '}') {
                return map;
            }
            if (c != ',') {
                throw new IllegalArgumentException("comma expected");
            }
        }
    }

    private List<Object> array(int depth) {
        List<Object> list = new ArrayList<>();
        pos++;
        skipSpace();
        if (text.charAt(pos) == ']') {
            pos++;
            return list;
        }
        while (true) {
            Object v = value(depth + 1);
            list.add(members != null && depth == 1 ? members.apply(v) : v);
            skipSpace();
            char c = text.charAt(pos++);
            if (c == ']') {
                return list;
            }
            if (c != ',') {
                throw new IllegalArgumentException("comma expected");
            }
        }
    }

    private String string() {
        pos++;
        // Most strings have no escapes: taken whole from the text, no builder.
        int end = pos;
        while (end < text.length() && text.charAt(end) != '"' && text.charAt(end) != '\\') {
            end++;
        }
        if (end < text.length() && text.charAt(end) == '"') {
            String s = text.substring(pos, end);
            pos = end + 1;
            return s;
        }
        StringBuilder sb = new StringBuilder(end - pos + 16);
        sb.append(text, pos, end);
        pos = end;
        while (true) {
            char c = text.charAt(pos++);
            if (c == '"') {
                return sb.toString();
            }
            if (c != '\\') {
                sb.append(c);
                continue;
            }
            char e = text.charAt(pos++);
            switch (e) {
                case 'n': sb.append('\n'); break;
                case 't': sb.append('\t'); break;
                case 'r': sb.append('\r'); break;
                case 'b': sb.append('\b'); break;
                case 'f': sb.append('\f'); break;
                case 'u':
                    sb.append((char) Integer.parseInt(text.substring(pos, pos + 4), 16));
                    pos += 4;
                    break;
                default: sb.append(e); break;
            }
        }
    }

    private Double number() {
        int start = pos;
        while (pos < text.length() && "+-0123456789.eE".indexOf(text.charAt(pos)) >= 0) {
            pos++;
        }
        if (start == pos) {
            throw new IllegalArgumentException("value expected");
        }
        return Double.valueOf(text.substring(start, pos));
    }

    /** The text as a quoted JSON string. */
    public static String quote(String s) {
        if (s == null) {
            return "null";
        }
        StringBuilder sb = new StringBuilder(s.length() + 2).append('"');
        for (int i = 0; i < s.length(); i++) {
            char c = s.charAt(i);
            switch (c) {
                case '"': sb.append("\\\""); break;
                case '\\': sb.append("\\\\"); break;
                case '\n': sb.append("\\n"); break;
                case '\r': sb.append("\\r"); break;
                case '\t': sb.append("\\t"); break;
                default:
                    if (c < 0x20) {
                        sb.append(String.format("\\u%04x", (int) c));
                    } else {
                        sb.append(c);
                    }
            }
        }
        return sb.append('"').toString();
    }

    /** A string member of a parsed object, or null when absent or of another type. */
    public static String string(Object map, String key) {
        if (map instanceof Map) {
            Object v = ((Map<?, ?>) map).get(key);
            return v instanceof String ? (String) v : null;
        }
        return null;
    }
}
