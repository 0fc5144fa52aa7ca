package com.brookfen.quillon.server;

import java.io.File;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.attribute.BasicFileAttributes;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.TimeUnit;

/**
 * The entries of each folder file, read again only when the file's size or modification
 * time changes: a status page or a library rescan does not parse a large file each time.
 */
public final class FolderFileCache {
    private record Read(Object version, List<LibraryFolders.Entry> entries) {
    }

    private final Map<String, Read> reads = new HashMap<>();

    /** As LibraryFolders.read, from memory while the file is unchanged. */
    public List<LibraryFolders.Entry> read(File appFolder, String fileName) {
        if (appFolder == null) {
            return List.of();
        }
        File file = new File(appFolder, fileName);
        String key = file.getPath();
        Object version;
        try {
            // A save renamed over the file changes its inode; one in place, its time or size.
            BasicFileAttributes a = Files.readAttributes(file.toPath(), BasicFileAttributes.class);
            version = List.of(String.valueOf(a.fileKey()), a.size(), a.lastModifiedTime().to(TimeUnit.NANOSECONDS));
        } catch (IOException | RuntimeException e) {
            version = null;
        }
        synchronized (this) {
            Read r = reads.get(key);
            if (r != null && version != null && version.equals(r.version)) {
                return r.entries;
            }
        }
        List<LibraryFolders.Entry> entries = List.copyOf(LibraryFolders.read(appFolder, fileName));
        synchronized (this) {
            reads.put(key, new Read(version, entries));
        }
        return entries;
    }
}
