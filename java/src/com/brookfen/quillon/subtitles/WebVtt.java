package com.brookfen.quillon.subtitles;

import java.nio.ByteBuffer;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.Charset;
import java.nio.charset.CodingErrorAction;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** Subtitle text made readable by browsers: decoding of sidecar bytes and SubRip to WebVTT. */
public final class WebVtt {
    private static final String TIME = "(?:(\\d{1,3}):)?(\\d{1,2}):(\\d{1,2})[,.](\\d{1,3})";
    private static final Pattern TIMING = Pattern.compile("^\\s*" + TIME + "\\s*-->\\s*" + TIME + ".*$");
    private static final Pattern NUMBER = Pattern.compile("^\\s*\\d+\\s*$");
    private static final Pattern ASS_OVERRIDE = Pattern.compile("\\{\\\\[^}]*\\}");
    private static final Pattern TAG = Pattern.compile("<(/?)([a-zA-Z]+)[^>]*>");
    private static final Pattern ENTITY = Pattern.compile("&(?:[a-zA-Z]+|#\\d+|#x[0-9a-fA-F]+);");

    private WebVtt() {
    }

    /**
     * The text of a sidecar file: by its byte order mark when it has one, as UTF-8 when it is
     * valid UTF-8, else in the fallback charset (ISO-8859-1 when that one is unknown).
     */
    public static String decode(byte[] bytes, String fallback) {
        if (bytes.length >= 3 && (bytes[0] & 0xff) == 0xEF && (bytes[1] & 0xff) == 0xBB && (bytes[2] & 0xff) == 0xBF) {
            return new String(bytes, 3, bytes.length - 3, StandardCharsets.UTF_8);
        }
        if (bytes.length >= 2 && (bytes[0] & 0xff) == 0xFF && (bytes[1] & 0xff) == 0xFE) {
            return new String(bytes, 2, bytes.length - 2, StandardCharsets.UTF_16LE);
        }
        if (bytes.length >= 2 && (bytes[0] & 0xff) == 0xFE && (bytes[1] & 0xff) == 0xFF) {
            return new String(bytes, 2, bytes.length - 2, StandardCharsets.UTF_16BE);
        }
        try {
            return StandardCharsets.UTF_8.newDecoder()
                    .onMalformedInput(CodingErrorAction.REPORT)
                    .onUnmappableCharacter(CodingErrorAction.REPORT)
                    .decode(ByteBuffer.wrap(bytes)).toString();
        } catch (CharacterCodingException e) {
            Charset cs;
            try {
                cs = Charset.forName(fallback);
            } catch (RuntimeException unknown) {
                cs = StandardCharsets.ISO_8859_1;
            }
            return new String(bytes, cs);
        }
    }

    /** A WebVTT file as given, with its header made sure of and line ends made plain. */
    public static String fromVtt(String text) {
        String t = lines(text);
        if (!t.startsWith("WEBVTT")) {
            t = "WEBVTT\n\n" + t;
        }
        return t.endsWith("\n") ? t : t + "\n";
    }

    /** SubRip to WebVTT: dotted times, the header, cue numbers kept as identifiers, b/i/u kept, other markup dropped. */
    public static String fromSrt(String text) {
        String[] lines = lines(text).split("\n", -1);
        StringBuilder out = new StringBuilder(text.length() + 64).append("WEBVTT\n");
        int i = 0;
        while (i < lines.length) {
            Matcher m = TIMING.matcher(lines[i]);
            if (!m.matches()) {
                i++;
                continue;
            }
            String id = i > 0 && NUMBER.matcher(lines[i - 1]).matches() ? lines[i - 1].trim() : null;
            List<String> body = new ArrayList<>();
            int j = i + 1;
            while (j < lines.length && !lines[j].trim().isEmpty() && !TIMING.matcher(lines[j]).matches()
                    && !(NUMBER.matcher(lines[j]).matches() && j + 1 < lines.length
                            && TIMING.matcher(lines[j + 1]).matches())) {
                String cleaned = cueText(lines[j]);
                if (!cleaned.isEmpty()) {
                    body.add(cleaned);
                }
                j++;
            }
            if (!body.isEmpty()) {
                out.append('\n');
                if (id != null) {
                    out.append(id).append('\n');
                }
                out.append(time(m, 1)).append(" --> ").append(time(m, 5)).append('\n');
                for (String b : body) {
                    out.append(b).append('\n');
                }
            }
            i = j;
        }
        return out.toString();
    }

    private static String lines(String text) {
        String t = text.startsWith("\uFEFF") ? text.substring(1) : text;
        return t.replace("\r\n", "\n").replace('\r', '\n');
    }

    private static String time(Matcher m, int first) {
        int h = m.group(first) == null ? 0 : Integer.parseInt(m.group(first));
        int min = Integer.parseInt(m.group(first + 1));
        int s = Integer.parseInt(m.group(first + 2));
        String frac = m.group(first + 3);
        // ",5" is half a second: the digits are a fraction, not a count of milliseconds.
        int ms = Integer.parseInt((frac + "00").substring(0, 3));
        return String.format(Locale.ROOT, "%02d:%02d:%02d.%03d", h, min, s, ms);
    }

    /** One line of cue text: markup a browser renders kept, the rest removed, the text escaped. */
    static String cueText(String line) {
        String t = ASS_OVERRIDE.matcher(line).replaceAll("").replace("-->", "->");
        StringBuilder sb = new StringBuilder(t.length() + 8);
        Matcher m = TAG.matcher(t);
        int at = 0;
        while (m.find()) {
            sb.append(escape(t.substring(at, m.start())));
            String name = m.group(2).toLowerCase(Locale.ROOT);
            if (name.equals("b") || name.equals("i") || name.equals("u")) {
                sb.append('<').append(m.group(1)).append(name).append('>');
            }
            at = m.end();
        }
        sb.append(escape(t.substring(at)));
        return sb.toString().trim();
    }

    private static String escape(String s) {
        StringBuilder sb = new StringBuilder(s.length());
        Matcher entity = ENTITY.matcher(s);
        for (int i = 0; i < s.length(); i++) {
            char c = s.charAt(i);
            if (c == '&' && !(entity.find(i) && entity.start() == i)) {
                sb.append("&amp;");
            } else if (c == '<') {
                sb.append("&lt;");
            } else {
                sb.append(c);
            }
        }
        return sb.toString();
    }
}
