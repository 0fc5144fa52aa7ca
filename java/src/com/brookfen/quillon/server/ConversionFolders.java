package com.brookfen.quillon.server;

import com.brookfen.quillon.library.FolderWatch;

import java.io.File;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.HashSet;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;

/**
 * Follows "conversion-folders.txt" and the folders it names through file-system
 * notifications, queueing new videos for the converter as they appear. A folder that does
 * not exist yet is awaited in its nearest existing parent.
 */
final class ConversionFolders implements FolderWatch.Listener, AutoCloseable {
    /** A copy keeps writing: wait for a quiet second, but not for ever. */
    static final long SETTLE_MS = 1000;
    static final long MAX_DELAY_MS = 30_000;
    static final long FALLBACK_RESCAN_MS = 60_000;

    private final File appFolder;
    private final Converter converter;
    private final LogBook logs;
    private final FolderWatch watch;

    // Guarded by this.
    private List<File> folders = List.of();
    private boolean listDirty = true;
    private final Set<File> dirty = new HashSet<>();
    private Map<Path, Set<File>> owners = new HashMap<>();
    private final Map<File, Path> awaited = new HashMap<>();

    ConversionFolders(File appFolder, Converter converter, LogBook logs) {
        this.appFolder = appFolder.getAbsoluteFile();
        this.converter = converter;
        this.logs = logs;
        watch = new FolderWatch("quillon-scan", SETTLE_MS, MAX_DELAY_MS, FALLBACK_RESCAN_MS, this);
    }

    void start() {
        watch.start();
    }

    @Override
    public void close() {
        watch.close();
    }

    @Override
    public synchronized void changed(Path dir, String name) {
        if (dir == null) {
            listDirty = true;
            return;
        }
        if (dir.equals(appFolder.toPath()) && LibraryFolders.CONVERSION_FOLDERS_FILE.equals(name)) {
            listDirty = true;
        }
        Path child = name == null ? null : dir.resolve(name);
        for (File owner : owners.getOrDefault(dir, Set.of())) {
            Path wanted = awaited.get(owner);
            if (wanted == null || child == null || wanted.equals(child)) {
                dirty.add(owner);
            }
        }
    }

    @Override
    public void settled(boolean everything) {
        if (everything) {
            synchronized (this) {
                listDirty = true;
            }
        }
        try {
            scan(false);
        } catch (RuntimeException e) {
            logs.append(LogBook.CONVERSION, "Scan failed: " + e);
        }
    }

    /** Reads the list again and walks every folder now; returns how many files were queued. */
    int scanAll() {
        return scan(true);
    }

    private synchronized int scan(boolean all) {
        if (listDirty || all) {
            Set<File> list = new LinkedHashSet<>();
            for (LibraryFolders.Entry e : LibraryFolders.read(appFolder, LibraryFolders.CONVERSION_FOLDERS_FILE)) {
                if (e.location != null && !e.location.isEmpty()) {
                    list.add(new File(e.location).getAbsoluteFile());
                }
            }
            folders = new ArrayList<>(list);
            listDirty = false;
            all = true;
        }
        Set<File> wanted = new HashSet<>(all ? folders : dirty);
        dirty.clear();
        int added = walk(wanted);
        // What appeared in a newly watched folder between its walk and its watch is seen now.
        Set<File> again = new HashSet<>();
        for (Path dir : watch.watchOnly(watchedDirs(), false)) {
            again.addAll(owners.getOrDefault(dir, Set.of()));
        }
        again.retainAll(wanted);
        if (!again.isEmpty()) {
            added += walk(again);
            watch.watchOnly(watchedDirs(), false);
        }
        return added;
    }

    /** Walks these folders, noting for each the folders whose changes concern it. */
    private int walk(Set<File> which) {
        Map<Path, Set<File>> next = new HashMap<>();
        for (Map.Entry<Path, Set<File>> e : owners.entrySet()) {
            for (File f : e.getValue()) {
                if (!which.contains(f) && folders.contains(f)) {
                    next.computeIfAbsent(e.getKey(), k -> new HashSet<>()).add(f);
                }
            }
        }
        awaited.keySet().retainAll(folders);
        int added = 0;
        for (File folder : folders) {
            if (!which.contains(folder)) {
                continue;
            }
            Set<Path> dirs = new HashSet<>();
            added += converter.scan(folder, dirs);
            awaited.remove(folder);
            if (dirs.isEmpty()) {
                // Not there (yet): its nearest existing parent notices it being made.
                Path wanted = folder.toPath();
                for (Path p = wanted.getParent(); p != null; wanted = p, p = p.getParent()) {
                    if (Files.isDirectory(p)) {
                        dirs.add(p);
                        awaited.put(folder, wanted);
                        break;
                    }
                }
            }
            for (Path d : dirs) {
                next.computeIfAbsent(d, k -> new HashSet<>()).add(folder);
            }
        }
        owners = next;
        return added;
    }

    private Set<Path> watchedDirs() {
        Set<Path> dirs = new HashSet<>(owners.keySet());
        dirs.add(appFolder.toPath());
        return dirs;
    }
}
