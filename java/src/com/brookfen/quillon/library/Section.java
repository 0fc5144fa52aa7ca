package com.brookfen.quillon.library;

import java.nio.file.Path;
import java.util.Set;

/** One shared folder, shared playlist or the conversion output, as last scanned. */
public final class Section {
    public static final String FOLDER = "folder";
    public static final String PLAYLIST = "playlist";
    public static final String CONVERTED = "converted";

    public final String id;
    public final String name;
    public final String kind;
    /** The top level; its id is the section's. */
    public final Folder top;
    /** Folders whose changes call for a new scan of this section. */
    final Set<Path> watched;
    /** False when part of it could not be read or watched (a missing folder, say). */
    final boolean complete;
    /**
     * For a shared folder that does not exist: the path whose creation in the watched parent
     * matters; other changes there (a busy home folder) do not call for a scan.
     */
    final Path awaited;

    Section(String id, String name, String kind, Folder top, Set<Path> watched, boolean complete) {
        this(id, name, kind, top, watched, complete, null);
    }

    Section(String id, String name, String kind, Folder top, Set<Path> watched, boolean complete, Path awaited) {
        this.id = id;
        this.name = name;
        this.kind = kind;
        this.top = top;
        this.watched = Set.copyOf(watched);
        this.complete = complete;
        this.awaited = awaited;
    }

    /** The identity of a section: what it shares, not what it is called. */
    static String key(String kind, String location) {
        return kind + "\u0000" + location;
    }
}
