package com.brookfen.quillon.media;

import com.brookfen.quillon.server.LogBook;

import java.io.IOException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.UUID;
import java.util.concurrent.Executors;
import java.util.concurrent.ScheduledExecutorService;
import java.util.concurrent.TimeUnit;

/**
 * The HLS conversions being watched: at most {@link #MAX_SESSIONS} at once, each ended when
 * nobody asked it for anything during the idle time.
 */
public final class LiveConversions {
    public static final int MAX_SESSIONS = 2;

    /** Two other conversions are running; the client should try again later. */
    public static final class BusyException extends Exception {
        private static final long serialVersionUID = 1L;

        public BusyException(String message) {
            super(message);
        }
    }

    private final MediaSettings settings;
    private final MetadataStore metadata;
    private final ChildProcesses children;
    private final LogBook logs;
    private final Map<String, LiveSession> sessions = new LinkedHashMap<>();
    private ScheduledExecutorService reaper;
    private boolean leftoversCleared;

    public LiveConversions(MediaSettings settings, MetadataStore metadata, ChildProcesses children, LogBook logs) {
        this.settings = settings;
        this.metadata = metadata;
        this.children = children;
        this.logs = logs;
    }

    /** The VOD playlist of the item, segments "{n}.ts"; starts converting from the start when there is room. */
    public String playlist(String itemId, Path source) throws IOException {
        double duration = duration(source);
        try {
            session(itemId, source, duration).warmUp();
        } catch (BusyException e) {
            // The segments will answer busy; the playlist itself costs nothing.
        }
        return LiveSession.playlist(duration);
    }

    /**
     * Segment n of the item once it is written. NoSuchFileException when n is outside the
     * playlist; BusyException when two other conversions run.
     */
    public Path segment(String itemId, Path source, int n) throws BusyException, IOException {
        return session(itemId, source, duration(source)).segment(n);
    }

    private double duration(Path source) throws IOException {
        MediaInfo info = metadata.probe(source);
        if (info.duration == null || info.duration <= 0 || info.videoCodec == null) {
            throw new IOException("No video or no duration in " + source);
        }
        return info.duration;
    }

    private LiveSession session(String itemId, Path source, double duration) throws BusyException {
        LiveSession s;
        LiveSession replaced = null;
        synchronized (sessions) {
            s = sessions.get(itemId);
            if (s != null && !s.source.equals(source)) {
                replaced = sessions.remove(itemId);
                s = null;
            }
            if (s == null) {
                if (sessions.size() >= MAX_SESSIONS) {
                    logs.append(LogBook.LIVE_CONVERSION, "Refused " + source + ": " + MAX_SESSIONS
                            + " conversions already running");
                    throw new BusyException(MAX_SESSIONS + " live conversions are already running");
                }
                Path root = settings.cacheFolder().resolve("live");
                if (!leftoversCleared) {
                    // Folders left by a server that did not stop cleanly.
                    LiveSession.deleteFolder(root);
                    leftoversCleared = true;
                }
                Path folder = root.resolve(safe(itemId) + "-" + UUID.randomUUID().toString().substring(0, 8));
                s = new LiveSession(itemId, source, duration, folder, settings, children, logs);
                sessions.put(itemId, s);
                startReaper();
            }
            s.touch();
        }
        if (replaced != null) {
            replaced.end("its file changed");
        }
        return s;
    }

    static String safe(String id) {
        String s = id == null ? "" : id.replaceAll("[^A-Za-z0-9_-]", "_");
        return s.length() > 40 ? s.substring(0, 40) : s;
    }

    private void startReaper() {
        if (reaper != null) {
            return;
        }
        reaper = Executors.newSingleThreadScheduledExecutor(r -> {
            Thread t = new Thread(r, "quillon-live-reaper");
            t.setDaemon(true);
            return t;
        });
        long period = Math.max(100, Math.min(5000, settings.liveIdleMillis() / 4));
        reaper.scheduleWithFixedDelay(this::endIdle, period, period, TimeUnit.MILLISECONDS);
    }

    private void endIdle() {
        long limit = TimeUnit.MILLISECONDS.toNanos(settings.liveIdleMillis());
        List<LiveSession> idle = new ArrayList<>();
        synchronized (sessions) {
            sessions.values().removeIf(s -> {
                if (s.idleNanos() > limit) {
                    idle.add(s);
                    return true;
                }
                return false;
            });
            if (sessions.isEmpty() && reaper != null) {
                // Nothing left to watch: an idle server keeps no timer.
                reaper.shutdown();
                reaper = null;
            }
        }
        for (LiveSession s : idle) {
            s.end("nobody asked for it in " + settings.liveIdleMillis() / 1000 + " s");
        }
    }

    /** Sessions alive now. */
    public int count() {
        synchronized (sessions) {
            return sessions.size();
        }
    }

    /** Ends every conversion at once (each ffmpeg within about two seconds). */
    public void stopAll() {
        List<LiveSession> all;
        synchronized (sessions) {
            all = new ArrayList<>(sessions.values());
            sessions.clear();
            if (reaper != null) {
                reaper.shutdownNow();
                reaper = null;
            }
        }
        if (all.isEmpty()) {
            return;
        }
        List<Thread> enders = new ArrayList<>();
        for (LiveSession s : all) {
            Thread t = new Thread(() -> s.end("the server stopped"), "quillon-live-end");
            t.setDaemon(true);
            t.start();
            enders.add(t);
        }
        for (Thread t : enders) {
            try {
                t.join(3000);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
                return;
            }
        }
    }
}
