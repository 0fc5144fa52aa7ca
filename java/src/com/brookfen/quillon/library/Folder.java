package com.brookfen.quillon.library;

import java.util.List;

/** A folder of a section (the section's own top level included): sub-folders and videos. */
public final class Folder {
    public final String id;
    public final String name;
    public final List<Folder> folders;
    public final List<Item> items;
    /** Videos here and below. */
    public final int count;

    Folder(String id, String name, List<Folder> folders, List<Item> items) {
        this.id = id;
        this.name = name;
        this.folders = List.copyOf(folders);
        this.items = List.copyOf(items);
        int n = items.size();
        for (Folder f : folders) {
            n += f.count;
        }
        this.count = n;
    }

    boolean isEmpty() {
        return count == 0;
    }
}
