package com.brookfen.quillon.library;

import java.util.Locale;
import java.util.Map;

/** Which files are videos, by extension, and the type each is served with. */
public final class VideoFiles {
    private static final Map<String, String> TYPES = Map.ofEntries(
            Map.entry("mp4", "video/mp4"), Map.entry("m4v", "video/mp4"),
            Map.entry("mov", "video/quicktime"), Map.entry("qt", "video/quicktime"),
            Map.entry("mkv", "video/x-matroska"), Map.entry("webm", "video/webm"),
            Map.entry("avi", "video/x-msvideo"), Map.entry("divx", "video/x-msvideo"),
            Map.entry("wmv", "video/x-ms-wmv"), Map.entry("asf", "video/x-ms-asf"),
            Map.entry("mpg", "video/mpeg"), Map.entry("mpeg", "video/mpeg"), Map.entry("vob", "video/mpeg"),
            Map.entry("ts", "video/mp2t"), Map.entry("m2ts", "video/mp2t"), Map.entry("mts", "video/mp2t"),
            Map.entry("flv", "video/x-flv"), Map.entry("3gp", "video/3gpp"), Map.entry("3g2", "video/3gpp2"),
            Map.entry("ogv", "video/ogg"), Map.entry("dv", "video/x-dv"), Map.entry("rm", "application/vnd.rn-realmedia"),
            Map.entry("rmvb", "application/vnd.rn-realmedia-vbr"));

    private VideoFiles() {
    }

    static String extension(String name) {
        int dot = name.lastIndexOf('.');
        return dot <= 0 ? "" : name.substring(dot + 1).toLowerCase(Locale.ROOT);
    }

    public static boolean isVideo(String name) {
        return !name.startsWith(".") && TYPES.containsKey(extension(name));
    }

    /** The media type of a video file's name; a generic one for anything else. */
    public static String type(String name) {
        return TYPES.getOrDefault(extension(name), "application/octet-stream");
    }

    /** The name shown for a file: without its extension. */
    static String title(String name) {
        int dot = name.lastIndexOf('.');
        return dot <= 0 ? name : name.substring(0, dot);
    }
}
