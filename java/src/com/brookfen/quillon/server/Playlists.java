package com.brookfen.quillon.server;

import java.io.File;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Comparator;
import java.util.List;
import java.util.Locale;

/**
 * Playlists on Linux: the M3U files (".m3u", ".m3u8") under the user's music folder. A
 * playlist's id is its file's path; a sub-folder holding playlists becomes a folder node
 * (id = its path) with those playlists as children. Empty folders are left out.
 */
public final class Playlists {
    public static final String FOLDER_PROPERTY = "quillon.playlists.folder";
    private static final int MAX_DEPTH = 6;

    private Playlists() {
    }

    /** The folder searched: the property, else XDG_MUSIC_DIR, else ~/Music (~ being $HOME). */
    public static File sourceFolder() {
        String p = System.getProperty(FOLDER_PROPERTY);
        if (p != null && !p.isEmpty()) {
            return new File(p);
        }
        String home = Home.folder();
        String music = xdgMusicDir(home);
        return new File(music != null ? music : home + "/Music");
    }

    private static String xdgMusicDir(String home) {
        String env = System.getenv("XDG_MUSIC_DIR");
        if (env != null && !env.isEmpty()) {
            return env;
        }
        String config = System.getenv("XDG_CONFIG_HOME");
        File dirs = new File(config == null || config.isEmpty() ? home + "/.config" : config, "user-dirs.dirs");
        try {
            for (String line : Files.readAllLines(dirs.toPath(), StandardCharsets.UTF_8)) {
                line = line.trim();
                if (line.startsWith("XDG_MUSIC_DIR=")) {
                    String v = line.substring("XDG_MUSIC_DIR=".length()).replace("\"", "");
                    return v.replace("$HOME", home);
                }
            }
        } catch (IOException | RuntimeException ignored) {
            // no user-dirs file: the default applies
        }
        return null;
    }

    /** The playlist document for a folder; always a valid document. */
    public static String document(File folder) {
        StringBuilder sb = new StringBuilder("{\"playlists\": ");
        appendNodes(sb, folder, 0);
        return sb.append("}").toString();
    }

    /** Appends the JSON array of the folder's playlists and playlist folders. */
    private static boolean appendNodes(StringBuilder sb, File folder, int depth) {
        File[] children = depth > MAX_DEPTH ? null : folder.listFiles();
        List<File> sorted = children == null ? new ArrayList<>() : new ArrayList<>(Arrays.asList(children));
        sorted.sort(Comparator.comparing((File f) -> f.getName().toLowerCase(Locale.ROOT)).thenComparing(File::getName));
        sb.append('[');
        boolean any = false;
        for (File f : sorted) {
            String name = f.getName();
            if (name.startsWith(".")) {
                continue;
            }
            if (f.isDirectory()) {
                if (Files.isSymbolicLink(f.toPath())) {
                    continue;
                }
                int mark = sb.length();
                sb.append(any ? ", " : "").append("{\"id\": ").append(Json.quote(f.getAbsolutePath()))
                        .append(", \"name\": ").append(Json.quote(name)).append(", \"children\": ");
                if (appendNodes(sb, f, depth + 1)) {
                    sb.append('}');
                    any = true;
                } else {
                    sb.setLength(mark);
                }
            } else if (isPlaylist(name)) {
                int dot = name.lastIndexOf('.');
                sb.append(any ? ", " : "").append("{\"id\": ").append(Json.quote(f.getAbsolutePath()))
                        .append(", \"name\": ").append(Json.quote(name.substring(0, dot))).append('}');
                any = true;
            }
        }
        sb.append(']');
        return any;
    }

    private static boolean isPlaylist(String name) {
        String lower = name.toLowerCase(Locale.ROOT);
        return (lower.endsWith(".m3u") || lower.endsWith(".m3u8")) && lower.lastIndexOf('.') > 0;
    }
}
