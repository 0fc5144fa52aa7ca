package com.brookfen.quillon.server;

import java.time.LocalDateTime;
import java.time.format.DateTimeFormatter;
import java.util.Arrays;
import java.util.Collections;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * The server's named logs. Each keeps its most recent text only: once a log grows past
 * its limit the oldest whole lines go, so a long-running server never grows without bound.
 */
public final class LogBook {
    public static final String SUBTITLES = "subtitles";
    public static final String REMOTE = "remote";
    public static final String THUMBNAIL = "thumbnail";
    public static final String CONVERSION = "conversion";
    public static final String LIVE_CONVERSION = "live-conversion";

    public static final List<String> IDS = Collections.unmodifiableList(
            Arrays.asList(SUBTITLES, REMOTE, THUMBNAIL, CONVERSION, LIVE_CONVERSION));

    /** Characters kept per log. */
    public static final int DEFAULT_LIMIT = 256 * 1024;

    private static final DateTimeFormatter STAMP = DateTimeFormatter.ofPattern("yyyy-MM-dd HH:mm:ss");

    private final Map<String, StringBuilder> logs = new LinkedHashMap<>();
    private final int limit;

    public LogBook(int limit) {
        this.limit = Math.max(limit, 64);
        for (String id : IDS) {
            logs.put(id, new StringBuilder());
        }
    }

    /** Appends one time-stamped line; unknown identifiers are ignored. */
    public void append(String id, String line) {
        String stamped = LocalDateTime.now().format(STAMP) + " " + (line == null ? "" : line) + "\n";
        synchronized (logs) {
            StringBuilder log = logs.get(id);
            if (log == null) {
                return;
            }
            log.append(stamped);
            trim(log);
        }
    }

    private void trim(StringBuilder log) {
        if (log.length() <= limit) {
            return;
        }
        int cut = log.length() - limit;
        int nl = log.indexOf("\n", cut - 1);
        // A single line longer than the whole limit is cut inside the line.
        log.delete(0, nl < 0 || nl == log.length() - 1 ? cut : nl + 1);
    }

    /** The log's text, or null for an identifier that names no log. */
    public String get(String id) {
        synchronized (logs) {
            StringBuilder log = id == null ? null : logs.get(id);
            return log == null ? null : log.toString();
        }
    }

    public void clear(String id) {
        synchronized (logs) {
            StringBuilder log = id == null ? null : logs.get(id);
            if (log != null) {
                log.setLength(0);
            }
        }
    }
}
