package com.brookfen.quillon.library;

import java.util.HashMap;
import java.util.List;
import java.util.Map;

/** The library at one moment: never changes, so a request reads it without locks. */
public final class Snapshot {
    public final List<Section> sections;
    private final Map<String, Section> byId = new HashMap<>();
    private final Map<String, Folder> folders = new HashMap<>();
    private final Map<String, Item> items = new HashMap<>();

    Snapshot(List<Section> sections) {
        this.sections = List.copyOf(sections);
        for (Section s : this.sections) {
            if (byId.putIfAbsent(s.id, s) == null) {
                index(s.id, s.top, true);
            }
        }
    }

    private void index(String sectionId, Folder folder, boolean top) {
        if (!top) {
            // Top levels are found through their sections: no key of their own for each.
            folders.putIfAbsent(sectionId + "/" + folder.id, folder);
        }
        for (Item i : folder.items) {
            items.putIfAbsent(i.id, i);
        }
        for (Folder f : folder.folders) {
            index(sectionId, f, false);
        }
    }

    public Section section(String id) {
        return byId.get(id);
    }

    /** A folder at any depth of the given section (its top level is the section's own id). */
    public Folder folder(String sectionId, String folderId) {
        Section s = byId.get(sectionId);
        if (s == null) {
            return null;
        }
        return s.top.id.equals(folderId) ? s.top : folders.get(sectionId + "/" + folderId);
    }

    public Item item(String id) {
        return items.get(id);
    }

    public int itemCount() {
        return items.size();
    }
}
