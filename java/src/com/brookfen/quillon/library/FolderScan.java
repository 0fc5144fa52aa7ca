package com.brookfen.quillon.library;

import java.io.IOException;
import java.nio.file.FileVisitOption;
import java.nio.file.FileVisitResult;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.SimpleFileVisitor;
import java.nio.file.attribute.BasicFileAttributes;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.Deque;
import java.util.EnumSet;
import java.util.HashSet;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;

/**
 * Walks a shared disk folder for videos. Linked folders are not entered (no cycles, no way
 * out); a linked file counts only when its target is inside the shared folder too.
 * Folders without videos anywhere below are left out.
 */
final class FolderScan {
    static final int MAX_DEPTH = 32;
    static final Comparator<Folder> FOLDER_ORDER =
            Comparator.comparing((Folder f) -> f.name, String.CASE_INSENSITIVE_ORDER).thenComparing(f -> f.name);
    static final Comparator<Item> ITEM_ORDER =
            Comparator.comparing((Item i) -> i.fileName(), String.CASE_INSENSITIVE_ORDER).thenComparing(Item::fileName);

    private FolderScan() {
    }

    private static final class Level {
        final Path dir;
        final List<Folder> folders = new ArrayList<>();
        final List<Item> items = new ArrayList<>();

        Level(Path dir) {
            this.dir = dir;
        }
    }

    /** The section over one folder; an unreadable or missing folder is an empty, incomplete one. */
    static Section scan(String sectionId, String name, String kind, Path location) {
        return scan(sectionId, name, kind, location, new Parents());
    }

    /**
     * Across the sections of one round of scans: whether a parent folder exists, asked once,
     * and one object per parent path, so that a long list of missing folders costs little.
     */
    static final class Parents {
        private final Map<Path, Boolean> folders = new HashMap<>();
        private final Map<Path, Path> same = new HashMap<>();

        boolean isFolder(Path p) {
            return folders.computeIfAbsent(p, Files::isDirectory);
        }

        Path one(Path p) {
            return same.computeIfAbsent(p, k -> k);
        }
    }

    /** As above, with what the other sections of the round found out. */
    static Section scan(String sectionId, String name, String kind, Path location, Parents parents) {
        Set<Path> watched = new HashSet<>();
        location = location.toAbsolutePath();
        Path parent = location.getParent();
        Path root = parent == null || parents.isFolder(parent) ? realPath(location) : null;
        if (root == null) {
            // Not there (yet): watching the nearest folder that is notices it being made.
            Path awaited = location;
            for (Path p = awaited.getParent(); p != null; awaited = p, p = p.getParent()) {
                if (parents.isFolder(p)) {
                    watched.add(parents.one(p));
                    awaited = parents.one(awaited);
                    break;
                }
            }
            return new Section(sectionId, name, kind, new Folder(sectionId, name, List.of(), List.of()), watched, false,
                    awaited);
        }
        Deque<Level> stack = new ArrayDeque<>();
        Folder[] top = new Folder[1];
        boolean[] complete = {true};
        try {
            Files.walkFileTree(root, EnumSet.noneOf(FileVisitOption.class), MAX_DEPTH, new SimpleFileVisitor<Path>() {
                @Override
                public FileVisitResult preVisitDirectory(Path dir, BasicFileAttributes attrs) {
                    if (!dir.equals(root) && dir.getFileName().toString().startsWith(".")) {
                        return FileVisitResult.SKIP_SUBTREE;
                    }
                    stack.push(new Level(dir));
                    watched.add(dir);
                    return FileVisitResult.CONTINUE;
                }

                @Override
                public FileVisitResult visitFile(Path file, BasicFileAttributes attrs) {
                    String fileName = file.getFileName().toString();
                    if (stack.isEmpty() || !VideoFiles.isVideo(fileName)) {
                        return FileVisitResult.CONTINUE;
                    }
                    if (attrs.isRegularFile()) {
                        stack.peek().items.add(new Item(file, file, root, attrs.size(), attrs.lastModifiedTime().toMillis()));
                    } else if (attrs.isSymbolicLink()) {
                        Item linked = linkedItem(file, root);
                        if (linked != null) {
                            stack.peek().items.add(linked);
                        }
                    }
                    return FileVisitResult.CONTINUE;
                }

                @Override
                public FileVisitResult visitFileFailed(Path file, IOException e) {
                    complete[0] = false;
                    return FileVisitResult.CONTINUE;
                }

                @Override
                public FileVisitResult postVisitDirectory(Path dir, IOException e) {
                    if (e != null) {
                        complete[0] = false;
                    }
                    Level level = stack.pop();
                    level.folders.sort(FOLDER_ORDER);
                    level.items.sort(ITEM_ORDER);
                    if (stack.isEmpty()) {
                        top[0] = new Folder(sectionId, name, level.folders, level.items);
                    } else {
                        Folder f = new Folder(Ids.of("folder", dir.toString()), dir.getFileName().toString(),
                                level.folders, level.items);
                        if (!f.isEmpty()) {
                            stack.peek().folders.add(f);
                        }
                    }
                    return FileVisitResult.CONTINUE;
                }
            });
        } catch (IOException | SecurityException e) {
            complete[0] = false;
        }
        Folder folder = top[0] != null ? top[0] : new Folder(sectionId, name, List.of(), List.of());
        return new Section(sectionId, name, kind, folder, watched, complete[0]);
    }

    private static Path realPath(Path location) {
        try {
            return location.toRealPath();
        } catch (IOException | SecurityException e) {
            return null;
        }
    }

    private static Item linkedItem(Path link, Path root) {
        try {
            Path real = link.toRealPath();
            if (!real.startsWith(root)) {
                return null;
            }
            BasicFileAttributes a = Files.readAttributes(real, BasicFileAttributes.class);
            return a.isRegularFile() ? new Item(link, real, root, a.size(), a.lastModifiedTime().toMillis()) : null;
        } catch (IOException | SecurityException e) {
            return null;
        }
    }
}
