package com.brookfen.quillon.server;

import java.io.File;
import java.io.IOException;
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
            text = new String(Files.readAllBytes(new File(appFolder, fileName).toPath()),
                    StandardCharsets.UTF_8);
        } catch (IOException | RuntimeException e) {
            return Collections.emptyList();
        }
        Map<String, Object> doc = Json.parseObject(text);
        Object folders = doc == null ? null : doc.get("folders");
        if (!(folders instanceof List)) {
            return Collections.emptyList();
        }
        List<Entry> result = new ArrayList<>();
        for (Object o : (List<?>) folders) {
            if (o instanceof Map) {
                result.add(new Entry(Json.string(o, "name"), Json.string(o, "type"), Json.string(o, "id")));
            }
        }
        return result;
    }
}
