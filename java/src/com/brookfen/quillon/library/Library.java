package com.brookfen.quillon.library;

import com.brookfen.quillon.server.LibraryFolders;

import java.io.File;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.HashSet;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.function.Supplier;

/**
 * The shared folders, shared playlists and the conversion output as sections of videos.
 * It reads "folders.txt" itself and follows changes to it and to the shared folders through
 * file-system notifications; only what cannot be watched (a missing folder, the system's
 * watch limit reached) falls back to a slow rescan. Between changes its thread sleeps.
 */
public final class Library implements AutoCloseable, FolderWatch.Listener {
    public static final String CONVERTED_FOLDER = "Converted";
    static final long SETTLE_MS = 300;
    static final long MAX_DELAY_MS = 2000;
    static final long FALLBACK_RESCAN_MS = 5 * 60_000L;
    /** From this many entries on, reading the folder file is followed by a full collection. */
    static final int LARGE_FOLDER_FILE = 20_000;

    /** An entry of the folder file as the library needs it; its id is also its key. */
    private record Source(String id, String name, String kind, String location) {
    }

    private final Path appFolder;
    private final Supplier<List<LibraryFolders.Entry>> folderFile;
    private final Object lock = new Object();
    private volatile Snapshot current;

    // Guarded by lock.
    private List<Source> sources;
    private final Map<String, Section> sections = new HashMap<>();
    private final Set<String> dirty = new HashSet<>();
    private boolean sourcesDirty = true;
    private Map<Path, Set<String>> owners = new HashMap<>();
    private FolderScan.Parents parents = new FolderScan.Parents();
    private int scans;
    private boolean compact;
    private List<LibraryFolders.Entry> lastEntries;
    private final FolderWatch watch = new FolderWatch("quillon-library", SETTLE_MS, MAX_DELAY_MS, FALLBACK_RESCAN_MS, this);

    public Library(Path appFolder) {
        this(appFolder, () -> appFolder == null ? List.of()
                : LibraryFolders.read(appFolder.toFile(), LibraryFolders.FOLDERS_FILE));
    }

    /** A library whose "folders.txt" entries come from the given reader. */
    public Library(Path appFolder, Supplier<List<LibraryFolders.Entry>> folderFile) {
        this.appFolder = appFolder;
        this.folderFile = folderFile;
    }

    /** The current library, scanned now when there is none yet. */
    public Snapshot snapshot() {
        Snapshot s = current;
        return s != null ? s : refresh();
    }

    /** Starts following changes (idempotent); the first scan happens on the watching thread. */
    public void start() {
        watch.start();
    }

    @Override
    public void close() {
        watch.close();
    }

    /** How many section scans have run (for tests and the benchmark). */
    public int scans() {
        synchronized (lock) {
            return scans;
        }
    }

    @Override
    public void settled(boolean everything) {
        if (everything) {
            synchronized (lock) {
                sourcesDirty = true;
                dirty.addAll(sections.keySet());
            }
        }
        refresh();
        boolean large;
        synchronized (lock) {
            large = compact;
            compact = false;
        }
        if (large) {
            // Reading a large folder file grows the heap far past what stays live; a full
            // collection hands the rest back to the system (a 230,000-entry file: ~190 MB).
            System.gc();
        }
    }

    @Override
    public void changed(Path dir, String name) {
        synchronized (lock) {
            if (dir == null) {
                sourcesDirty = true;
                dirty.addAll(sections.keySet());
                return;
            }
            if (name == null) {
                dirty.addAll(owners.getOrDefault(dir, Set.of()));
                return;
            }
            if (dir.equals(appFolder)) {
                if (name.equals(LibraryFolders.FOLDERS_FILE)) {
                    sourcesDirty = true;
                } else if (name.equals(CONVERTED_FOLDER)) {
                    sourcesDirty = true;
                    String converted = appFolder.resolve(CONVERTED_FOLDER).toString();
                    dirty.add(Ids.of("section", Section.key(Section.CONVERTED, converted)));
                }
            }
            Path child = dir.resolve(name);
            for (String owner : owners.getOrDefault(dir, Set.of())) {
                Section s = sections.get(owner);
                if (s == null || s.awaited == null || s.awaited.equals(child)) {
                    dirty.add(owner);
                }
            }
        }
    }

    /** Rescans what changed and publishes a new snapshot (the same one when nothing did). */
    private Snapshot refresh() {
        synchronized (lock) {
            if (current != null && !sourcesDirty && dirty.isEmpty()) {
                return current;
            }
            if (sourcesDirty || sources == null) {
                sources = readSources();
                sourcesDirty = false;
                Set<String> keep = new HashSet<>();
                for (Source s : sources) {
                    keep.add(s.id);
                    Section old = sections.get(s.id);
                    if (old != null && !old.name.equals(s.name)) {
                        dirty.add(s.id); // renamed in the folder file
                    }
                }
                sections.keySet().retainAll(keep);
            }
            boolean first = current == null;
            scanDirty();
            Set<String> newlyWatched = watchSections();
            if (!first && !newlyWatched.isEmpty()) {
                // What appeared in a new folder between its scan and its watch is seen now.
                dirty.addAll(newlyWatched);
                scanDirty();
                watchSections();
            }
            List<Section> list = new ArrayList<>();
            for (Source s : sources) {
                list.add(sections.get(s.id));
            }
            current = new Snapshot(list);
            parents = new FolderScan.Parents();
            return current;
        }
    }

    private void scanDirty() {
        for (Source s : sources) {
            if (!sections.containsKey(s.id) || dirty.contains(s.id)) {
                sections.put(s.id, scan(s));
                scans++;
            }
        }
        dirty.clear();
    }

    private Section scan(Source s) {
        Path location = Paths.get(s.location);
        if (s.kind.equals(Section.PLAYLIST)) {
            return PlaylistScan.scan(s.id, s.name, location);
        }
        return FolderScan.scan(s.id, s.name, s.kind, location, parents);
    }

    /** The entries of folders.txt (unreadable = none), then the conversion output. */
    private List<Source> readSources() {
        Map<String, Source> found = new LinkedHashMap<>();
        if (appFolder == null) {
            return new ArrayList<>();
        }
        List<LibraryFolders.Entry> entries = folderFile.get();
        // Only a file parsed anew (not the same list again, as at a slow rescan) grew the heap.
        compact = entries != lastEntries && entries.size() >= LARGE_FOLDER_FILE;
        lastEntries = entries;
        for (LibraryFolders.Entry e : entries) {
            if (e.location == null || e.location.isEmpty() || e.name == null) {
                continue;
            }
            String location;
            try {
                location = Paths.get(e.location).toAbsolutePath().normalize().toString();
            } catch (RuntimeException bad) {
                continue;
            }
            if (location.equals(e.location)) {
                location = e.location; // one string for both
            }
            String kind = e.type == null || e.type.equals("DiskFolder") ? Section.FOLDER : Section.PLAYLIST;
            String id = Ids.of("section", Section.key(kind, location));
            found.putIfAbsent(id, new Source(id, e.name, kind, location));
        }
        Path converted = appFolder.resolve(CONVERTED_FOLDER);
        if (new File(converted.toString()).isDirectory()) {
            String id = Ids.of("section", Section.key(Section.CONVERTED, converted.toString()));
            found.putIfAbsent(id, new Source(id, "Converted", Section.CONVERTED, converted.toString()));
        }
        return new ArrayList<>(found.values());
    }

    /**
     * Watches every folder the sections depend on, and no other; notes what could not be
     * watched. Returns the sections that a newly watched folder belongs to.
     */
    private Set<String> watchSections() {
        boolean missing = false;
        Map<Path, Set<String>> wanted = new HashMap<>();
        for (Map.Entry<String, Section> e : sections.entrySet()) {
            missing |= !e.getValue().complete;
            for (Path dir : e.getValue().watched) {
                wanted.computeIfAbsent(dir, d -> new HashSet<>()).add(e.getKey());
            }
        }
        owners = wanted;
        Set<Path> dirs = new HashSet<>(wanted.keySet());
        if (appFolder != null) {
            dirs.add(appFolder);
        }
        Set<String> fresh = new HashSet<>();
        for (Path dir : watch.watchOnly(dirs, missing)) {
            fresh.addAll(wanted.getOrDefault(dir, Set.of()));
        }
        return fresh;
    }
}
