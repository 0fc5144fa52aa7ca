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
            byId.putIfAbsent(s.id, s);
            index(s.id, s.top);
        }
    }

    private void index(String sectionId, Folder folder) {
        folders.putIfAbsent(sectionId + "/" + folder.id, folder);
        for (Item i : folder.items) {
            items.putIfAbsent(i.id, i);
        }
        for (Folder f : folder.folders) {
            index(sectionId, f);
        }
    }

    public Section section(String id) {
        return byId.get(id);
    }

    /** A folder at any depth of the given section (its top level is the section's own id). */
    public Folder folder(String sectionId, String folderId) {
        return folders.get(sectionId + "/" + folderId);
    }

    public Item item(String id) {
        return items.get(id);
    }

    public int itemCount() {
        return items.size();
    }
}
