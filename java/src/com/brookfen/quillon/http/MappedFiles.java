package com.brookfen.quillon.http;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.LinkedHashMap;
import java.util.Map;

/**
 * Read-only memory maps of the files being played, shared by every request for the same
 * file version: bytes go from the page cache to the socket without passing through the
 * Java heap. A few recent files are kept; older maps go when the collector frees them.
 */
final class MappedFiles {
    static final int KEPT = 16;

    private final Map<String, ByteBuffer> maps = new LinkedHashMap<>(KEPT, 0.75f, true) {
        @Override
        protected boolean removeEldestEntry(Map.Entry<String, ByteBuffer> eldest) {
            return size() > KEPT;
        }
    };

    /** A private view of the whole file, or null when it cannot be mapped in one piece (over 2 GiB, empty). */
    synchronized ByteBuffer map(Path file, long size, long modified) {
        if (size <= 0 || size > Integer.MAX_VALUE) {
            return null;
        }
        String key = file + "\u0000" + size + "\u0000" + modified;
        ByteBuffer map = maps.get(key);
        if (map == null) {
            try (FileChannel channel = FileChannel.open(file, StandardOpenOption.READ)) {
                if (channel.size() < size) {
                    return null;
                }
                map = channel.map(FileChannel.MapMode.READ_ONLY, 0, size);
            } catch (IOException | UnsupportedOperationException e) {
                return null;
            }
            maps.put(key, map);
        }
        return map.duplicate();
    }
}
