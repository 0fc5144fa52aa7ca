package com.brookfen.quillon.library;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;

/** A video of the library as last scanned. */
public final class Item {
    public final String id;
    public final String name;
    /** The file as found (inside the scanned folder or named by a playlist). */
    public final Path file;
    public final long size;
    public final long modified;
    /** Real path of the shared folder it must stay inside, or null for a playlist track. */
    private final Path root;
    /** Real path found by the scan; a playlist track must still resolve to it. */
    private final Path real;

    Item(Path file, Path real, Path root, long size, long modified) {
        this.id = Ids.of("item", file.toString());
        this.name = VideoFiles.title(file.getFileName().toString());
        this.file = file;
        this.real = real;
        this.root = root;
        this.size = size;
        this.modified = modified;
    }

    public String fileName() {
        return file.getFileName().toString();
    }

    /**
     * The file to serve, resolved now, or null when it has gone or now leads outside what
     * was shared (a link swapped since the scan, say).
     */
    public Path servable() {
        try {
            Path now = file.toRealPath();
            if (!Files.isRegularFile(now)) {
                return null;
            }
            boolean inside = root != null ? now.startsWith(root) : now.equals(real);
            return inside ? now : null;
        } catch (IOException | SecurityException e) {
            return null;
        }
    }
}
