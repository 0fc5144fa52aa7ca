package com.brookfen.quillon.library;

import java.io.IOException;
import java.nio.file.ClosedWatchServiceException;
import java.nio.file.FileSystems;
import java.nio.file.Path;
import java.nio.file.StandardWatchEventKinds;
import java.nio.file.WatchEvent;
import java.nio.file.WatchKey;
import java.nio.file.WatchService;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.HashSet;
import java.util.Iterator;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.concurrent.TimeUnit;

/**
 * Follows a set of folders through file-system notifications on a thread of its own that
 * sleeps between changes. A burst of changes reaches the listener as one; while something
 * could not be watched (the system's watch limit reached, say) a slow rescan stands in.
 */
public final class FolderWatch implements AutoCloseable {
    /** Called on the watching thread, never under the watch's own lock. */
    public interface Listener {
        /** One change: name in dir; name null when dir's watch ended; dir null when changes were lost. */
        void changed(Path dir, String name);

        /** A burst of changes has settled; everything is true at the start and at each slow rescan. */
        void settled(boolean everything);
    }

    private final String threadName;
    private final long settleMs;
    private final long maxDelayMs;
    private final long fallbackMs;
    private final Listener listener;
    private final Object lock = new Object();

    // Guarded by lock.
    private WatchService watcher;
    private final Map<WatchKey, Path> keys = new HashMap<>();
    private boolean fallback;
    private Thread thread;

    /** Changes are passed on once settleMs pass without another, or maxDelayMs after the first. */
    public FolderWatch(String threadName, long settleMs, long maxDelayMs, long fallbackMs, Listener listener) {
        this.threadName = threadName;
        this.settleMs = settleMs;
        this.maxDelayMs = maxDelayMs;
        this.fallbackMs = fallbackMs;
        this.listener = listener;
    }

    /** Starts the thread (idempotent); its first call is settled(true). */
    public void start() {
        synchronized (lock) {
            if (thread != null) {
                return;
            }
            try {
                watcher = FileSystems.getDefault().newWatchService();
            } catch (IOException | UnsupportedOperationException e) {
                watcher = null;
            }
            thread = new Thread(this::run, threadName);
            thread.setDaemon(true);
            thread.start();
        }
    }

    @Override
    public void close() {
        Thread t;
        synchronized (lock) {
            t = thread;
            thread = null;
            if (watcher != null) {
                try {
                    watcher.close();
                } catch (IOException ignored) {
                    // closing anyway
                }
                watcher = null;
            }
            keys.clear();
        }
        if (t != null) {
            t.interrupt();
        }
    }

    /**
     * Watches these folders and no others from now on. incomplete says that something else
     * the caller depends on cannot be watched. Returns the folders newly watched.
     */
    public Set<Path> watchOnly(Set<Path> dirs, boolean incomplete) {
        Set<Path> fresh = new HashSet<>();
        synchronized (lock) {
            if (watcher == null) {
                fallback = true;
                return fresh;
            }
            Set<Path> wanted = new HashSet<>(dirs);
            for (Iterator<Map.Entry<WatchKey, Path>> it = keys.entrySet().iterator(); it.hasNext();) {
                Map.Entry<WatchKey, Path> e = it.next();
                if (!wanted.remove(e.getValue())) {
                    e.getKey().cancel();
                    it.remove();
                }
            }
            boolean missing = incomplete;
            for (Path dir : wanted) {
                try {
                    keys.put(dir.register(watcher, StandardWatchEventKinds.ENTRY_CREATE,
                            StandardWatchEventKinds.ENTRY_DELETE, StandardWatchEventKinds.ENTRY_MODIFY), dir);
                    fresh.add(dir);
                } catch (IOException | RuntimeException e) {
                    missing = true; // gone since the scan, or the system's watch limit
                }
            }
            fallback = missing;
        }
        return fresh;
    }

    private void run() {
        listener.settled(true);
        try {
            while (true) {
                WatchService w;
                boolean slow;
                synchronized (lock) {
                    w = watcher;
                    slow = fallback || w == null;
                }
                WatchKey key;
                if (w == null) {
                    Thread.sleep(fallbackMs);
                    key = null;
                } else {
                    key = slow ? w.poll(fallbackMs, TimeUnit.MILLISECONDS) : w.take();
                }
                boolean timedOut = key == null;
                if (key != null) {
                    // Let a burst of changes (a copy, a save) settle into one.
                    long deadline = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(maxDelayMs);
                    do {
                        handle(key);
                    } while (System.nanoTime() < deadline && (key = w.poll(settleMs, TimeUnit.MILLISECONDS)) != null);
                }
                listener.settled(timedOut);
            }
        } catch (InterruptedException | ClosedWatchServiceException e) {
            // closed
        }
    }

    private void handle(WatchKey key) {
        Path dir;
        List<String> names = new ArrayList<>();
        boolean ended;
        synchronized (lock) {
            dir = keys.get(key);
            for (WatchEvent<?> event : key.pollEvents()) {
                names.add(event.kind() == StandardWatchEventKinds.OVERFLOW ? null : event.context().toString());
            }
            ended = !key.reset();
            if (ended) {
                keys.remove(key);
            }
        }
        for (String name : names) {
            listener.changed(name == null ? null : dir, name);
        }
        if (ended && dir != null) {
            listener.changed(dir, null);
        }
    }
}
