package com.brookfen.quillon.library;

import java.io.IOException;
import java.net.URI;
import java.nio.ByteBuffer;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.CodingErrorAction;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.nio.file.attribute.BasicFileAttributes;
import java.util.ArrayList;
import java.util.HashSet;
import java.util.List;
import java.util.Locale;
import java.util.Set;
import java.util.stream.Stream;

/**
 * A shared playlist: an M3U file whose video entries become the section's items, or a
 * folder of them (as the playlist picker offers), each playlist then a folder.
 */
final class PlaylistScan {
    /** Larger playlist files are not read (a guard against a wrong file shared by mistake). */
    static final long MAX_BYTES = 16L << 20;
    private static final int MAX_DEPTH = 6;

    private PlaylistScan() {
    }

    static boolean isPlaylist(String name) {
        String lower = name.toLowerCase(Locale.ROOT);
        return !lower.startsWith(".") && (lower.endsWith(".m3u") || lower.endsWith(".m3u8"));
    }

    static Section scan(String sectionId, String name, Path location) {
        Set<Path> watched = new HashSet<>();
        Folder top;
        boolean complete = true;
        if (Files.isDirectory(location)) {
            watched.add(location);
            top = folderOf(sectionId, name, location, watched, 0);
        } else if (isPlaylist(location.getFileName().toString())) {
            Path parent = location.toAbsolutePath().getParent();
            if (parent != null) {
                watched.add(parent);
            }
            complete = Files.isRegularFile(location);
            top = new Folder(sectionId, name, List.of(), tracks(location, watched));
        } else {
            complete = false;
            top = new Folder(sectionId, name, List.of(), List.of());
        }
        return new Section(sectionId, name, Section.PLAYLIST, top, watched, complete);
    }

    private static Folder folderOf(String id, String name, Path dir, Set<Path> watched, int depth) {
        List<Folder> folders = new ArrayList<>();
        if (depth <= MAX_DEPTH) {
            List<Path> children = new ArrayList<>();
            try (Stream<Path> s = Files.list(dir)) {
                s.forEach(children::add);
            } catch (IOException | SecurityException e) {
                // an unreadable folder holds nothing
            }
            for (Path p : children) {
                String n = p.getFileName().toString();
                if (n.startsWith(".")) {
                    continue;
                }
                Folder f = null;
                if (Files.isDirectory(p) && !Files.isSymbolicLink(p)) {
                    watched.add(p);
                    f = folderOf(Ids.of("folder", p.toString()), n, p, watched, depth + 1);
                } else if (isPlaylist(n)) {
                    f = new Folder(Ids.of("folder", p.toString()), VideoFiles.title(n), List.of(), tracks(p, watched));
                }
                if (f != null && !f.isEmpty()) {
                    folders.add(f);
                }
            }
        }
        folders.sort(FolderScan.FOLDER_ORDER);
        return new Folder(id, name, folders, List.of());
    }

    /** The playlist's videos that exist, in its order, each once. */
    static List<Item> tracks(Path playlist, Set<Path> watched) {
        List<Item> items = new ArrayList<>();
        Set<Path> seen = new HashSet<>();
        for (Path entry : entries(playlist)) {
            if (!VideoFiles.isVideo(entry.getFileName().toString()) || !seen.add(entry)) {
                continue;
            }
            try {
                Path real = entry.toRealPath();
                BasicFileAttributes a = Files.readAttributes(real, BasicFileAttributes.class);
                if (a.isRegularFile()) {
                    items.add(new Item(entry, real, null, a.size(), a.lastModifiedTime().toMillis()));
                    Path parent = entry.getParent();
                    if (parent != null) {
                        watched.add(parent);
                    }
                }
            } catch (IOException | SecurityException e) {
                // a missing track is left out
            }
        }
        return items;
    }

    /** The local paths a playlist names, relative ones against its folder. */
    static List<Path> entries(Path playlist) {
        List<Path> paths = new ArrayList<>();
        String text;
        try {
            if (Files.size(playlist) > MAX_BYTES) {
                return paths;
            }
            text = decode(Files.readAllBytes(playlist));
        } catch (IOException | SecurityException e) {
            return paths;
        }
        Path base = playlist.toAbsolutePath().getParent();
        for (String line : text.split("\r\n|\r|\n")) {
            line = line.strip();
            if (line.isEmpty() || line.startsWith("#")) {
                continue;
            }
            try {
                Path p;
                if (line.regionMatches(true, 0, "file:", 0, 5)) {
                    p = Paths.get(URI.create(line));
                } else if (line.matches("(?i)[a-z][a-z0-9+.-]*://.*")) {
                    continue; // a stream on the network, not a file
                } else {
                    p = base == null ? Paths.get(line) : base.resolve(line);
                }
                paths.add(p.toAbsolutePath().normalize());
            } catch (IllegalArgumentException | java.nio.file.FileSystemNotFoundException e) {
                // not a usable path
            }
        }
        return paths;
    }

    /** UTF-8 when the bytes are (".m3u8" always is), else Latin-1 as older ".m3u" files were written. */
    private static String decode(byte[] bytes) {
        try {
            return StandardCharsets.UTF_8.newDecoder().onMalformedInput(CodingErrorAction.REPORT)
                    .onUnmappableCharacter(CodingErrorAction.REPORT).decode(ByteBuffer.wrap(bytes)).toString()
                    .replace("\uFEFF", "");
        } catch (CharacterCodingException e) {
            return new String(bytes, StandardCharsets.ISO_8859_1);
        }
    }
}
