package com.brookfen.quillon.server;

import java.io.File;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.charset.CodingErrorAction;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Map;

/** Reads the folder files that the controller writes into the application folder. */
public final class LibraryFolders {
    public static final String FOLDERS_FILE = "folders.txt";
    public static final String CONVERSION_FOLDERS_FILE = "conversion-folders.txt";

    /** One entry of a folder file; type is null for conversion folders. */
    public static final class Entry {
        public final String name;
        public final String type;
        public final String location;

        Entry(String name, String type, String location) {
            this.name = name;
            this.type = type;
            this.location = location;
        }
    }

    private LibraryFolders() {
    }

    /** The entries of one folder file; a missing or broken file is an empty list. */
    public static List<Entry> read(File appFolder, String fileName) {
        if (appFolder == null) {
            return Collections.emptyList();
        }
        String text;
        try {
            // The controller's rule: bytes that are not UTF-8 make the file unreadable.
            text = StandardCharsets.UTF_8.newDecoder()
                    .onMalformedInput(CodingErrorAction.REPORT)
                    .onUnmappableCharacter(CodingErrorAction.REPORT)
                    .decode(ByteBuffer.wrap(Files.readAllBytes(new File(appFolder, fileName).toPath())))
                    .toString();
        } catch (IOException | RuntimeException e) {
            return Collections.emptyList();
        }
        Object doc = Json.parse(text, o -> o instanceof Map ? entry(o) : null);
        text = null; // the file's text goes before the list is copied
        Object folders = doc instanceof Map ? ((Map<?, ?>) doc).get("folders") : null;
        if (!(folders instanceof List)) {
            return Collections.emptyList();
        }
        List<Entry> result = new ArrayList<>(((List<?>) folders).size());
        for (Object o : (List<?>) folders) {
            if (o instanceof Entry) {
                result.add((Entry) o);
            }
        }
        return result;
    }

    private static Entry entry(Object o) {
        String type = text(o, "type");
        // Nearly every entry has one of two types: one string each, not one per entry.
        if ("DiskFolder".equals(type)) {
            type = "DiskFolder";
        } else if ("iTunesPlaylist".equals(type)) {
            type = "iTunesPlaylist";
        }
        return new Entry(text(o, "name"), type, text(o, "id"));
    }

    /** A string member as the controller reads it: a number is its decimal text, other kinds absent. */
    private static String text(Object object, String key) {
        Object v = ((Map<?, ?>) object).get(key);
        if (v instanceof Double) {
            double d = (Double) v;
            return d == Math.rint(d) && Math.abs(d) < 1e15 ? Long.toString((long) d) : v.toString();
        }
        return v instanceof String ? (String) v : null;
    }
}
