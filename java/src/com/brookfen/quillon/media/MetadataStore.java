package com.brookfen.quillon.media;

import com.brookfen.quillon.server.LogBook;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.attribute.BasicFileAttributes;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.RejectedExecutionException;
import java.util.concurrent.ThreadPoolExecutor;
import java.util.concurrent.TimeUnit;

/**
 * ffprobe's findings per file, remembered in memory and on disk under a key made of the
 * path, size and modification time, so a changed file is probed again.
 */
public final class MetadataStore {
    static final long PROBE_TIMEOUT_MILLIS = 60_000;
    private static final int THREADS = 2;
    private static final int QUEUE_LIMIT = 20_000;
    /** Days a cached answer, thumbnail or extracted track is kept. */
    static final int KEEP_DAYS = 90;

    private final MediaSettings settings;
    private final ChildProcesses children;
    private final LogBook logs;
    private final Map<String, MediaInfo> known = new ConcurrentHashMap<>();
    private final Set<String> failed = ConcurrentHashMap.newKeySet();
    private final Set<String> pending = ConcurrentHashMap.newKeySet();
    private final ThreadPoolExecutor pool;

    public MetadataStore(MediaSettings settings, ChildProcesses children, LogBook logs) {
        this.settings = settings;
        this.children = children;
        this.logs = logs;
        pool = new ThreadPoolExecutor(THREADS, THREADS, 30, TimeUnit.SECONDS,
                new LinkedBlockingQueue<>(QUEUE_LIMIT), r -> {
                    Thread t = new Thread(r, "quillon-ffprobe");
                    t.setDaemon(true);
                    t.setPriority(Thread.MIN_PRIORITY);
                    return t;
                });
        // An idle server keeps no threads.
        pool.allowCoreThreadTimeOut(true);
    }

    /** The key under which a file's findings are kept: any change of size or time makes a new one. */
    public static String key(Path file, long size, long mtime) {
        try {
            byte[] d = MessageDigest.getInstance("SHA-256").digest(
                    (file.toAbsolutePath().normalize() + "\n" + size + "\n" + mtime).getBytes(StandardCharsets.UTF_8));
            StringBuilder sb = new StringBuilder(40);
            for (int i = 0; i < 20; i++) {
                sb.append(String.format("%02x", d[i] & 0xff));
            }
            return sb.toString();
        } catch (NoSuchAlgorithmException e) {
            throw new IllegalStateException(e);
        }
    }

    /** The key of a file as it is on disk now. */
    public static String key(Path file) throws IOException {
        BasicFileAttributes a = Files.readAttributes(file, BasicFileAttributes.class);
        return key(file, a.size(), a.lastModifiedTime().toMillis());
    }

    private Path folder() {
        return settings.cacheFolder().resolve("metadata");
    }

    /**
     * What is known of the file, or null; when nothing is known yet, the file is probed in
     * the background. Never waits for ffprobe.
     */
    public MediaInfo cached(Path file, long size, long mtime) {
        String key = key(file, size, mtime);
        MediaInfo info = known.get(key);
        if (info != null || failed.contains(key) || !pending.add(key)) {
            return info;
        }
        try {
            pool.execute(() -> {
                try {
                    lookUp(file, key);
                } catch (IOException e) {
                    // logged where it failed
                } finally {
                    pending.remove(key);
                }
            });
        } catch (RejectedExecutionException e) {
            // Too much waiting already (or shutting down): a later listing asks again.
            pending.remove(key);
        }
        return null;
    }

    /** The file's findings, probing it now when they are not known. */
    public MediaInfo probe(Path file) throws IOException {
        return lookUp(file, key(file));
    }

    private MediaInfo lookUp(Path file, String key) throws IOException {
        MediaInfo info = known.get(key);
        if (info != null) {
            return info;
        }
        Path stored = folder().resolve(key + ".json");
        try {
            info = MediaInfo.fromFfprobe(new String(Files.readAllBytes(stored), StandardCharsets.UTF_8));
        } catch (IOException ignored) {
            // not probed before
        }
        if (info == null) {
            String json = runFfprobe(file, key);
            info = MediaInfo.fromFfprobe(json);
            if (info == null) {
                failed.add(key);
                throw new IOException("ffprobe found no media in " + file);
            }
            store(stored, json);
        }
        known.put(key, info);
        return info;
    }

    private String runFfprobe(Path file, String key) throws IOException {
        List<String> cmd = Arrays.asList(settings.ffprobePath(), "-v", "error", "-print_format", "json",
                "-show_entries", "format=duration:stream=index,codec_type,codec_name,width,height,duration"
                        + ":stream_tags=language,title:stream_disposition=attached_pic",
                file.toString());
        ChildProcesses.Result r;
        try {
            r = children.run(cmd, PROBE_TIMEOUT_MILLIS);
        } catch (IOException e) {
            logs.append(LogBook.THUMBNAIL, "Couldn't probe " + file + ": " + e.getMessage());
            throw e;
        }
        if (r.exitCode != 0) {
            failed.add(key);
            logs.append(LogBook.THUMBNAIL, "ffprobe failed on " + file + ": " + r.errorTail);
            throw new IOException("ffprobe failed on " + file);
        }
        return new String(r.output, StandardCharsets.UTF_8);
    }

    private void store(Path stored, String json) {
        try {
            Files.createDirectories(stored.getParent());
            Path temp = Files.createTempFile(stored.getParent(), ".probe", ".tmp");
            Files.write(temp, json.getBytes(StandardCharsets.UTF_8));
            Files.move(temp, stored, StandardCopyOption.REPLACE_EXISTING, StandardCopyOption.ATOMIC_MOVE);
        } catch (IOException e) {
            // The memory copy still serves; only a restart probes again.
            logs.append(LogBook.THUMBNAIL, "Couldn't keep metadata in " + stored.getParent() + ": " + e.getMessage());
        }
    }

    /**
     * Reads the disk cache into memory in the background, so that a first listing finds it,
     * and drops what was made long ago: files that changed or went away leave entries no key
     * reaches any more, and a file still there is simply probed again.
     */
    public void preload() {
        try {
            pool.execute(() -> {
                Path cache = settings.cacheFolder();
                long before = System.currentTimeMillis() - TimeUnit.DAYS.toMillis(KEEP_DAYS);
                for (String kind : new String[] {"metadata", "thumbnails", "subtitles"}) {
                    prune(cache.resolve(kind), before);
                }
                try (DirectoryStream<Path> dir = Files.newDirectoryStream(folder(), "*.json")) {
                    for (Path p : dir) {
                        String name = p.getFileName().toString();
                        String key = name.substring(0, name.length() - 5);
                        if (!known.containsKey(key)) {
                            MediaInfo info = MediaInfo.fromFfprobe(
                                    new String(Files.readAllBytes(p), StandardCharsets.UTF_8));
                            if (info != null) {
                                known.put(key, info);
                            }
                        }
                    }
                } catch (IOException | RuntimeException ignored) {
                    // no cache yet
                }
            });
        } catch (RejectedExecutionException ignored) {
            // shutting down
        }
    }

    private static void prune(Path folder, long before) {
        try (DirectoryStream<Path> dir = Files.newDirectoryStream(folder)) {
            for (Path p : dir) {
                if (Files.isRegularFile(p) && Files.getLastModifiedTime(p).toMillis() < before) {
                    Files.deleteIfExists(p);
                }
            }
        } catch (IOException | RuntimeException ignored) {
            // nothing cached there yet
        }
    }

    /** Probes waiting or running. */
    public int backlog() {
        return pending.size();
    }

    public void shutdown() {
        pool.shutdownNow();
    }
}
