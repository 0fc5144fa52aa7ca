package com.brookfen.quillon.media;

import com.brookfen.quillon.server.LogBook;

import java.io.File;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashSet;
import java.util.List;
import java.util.Locale;
import java.util.Set;
import java.util.stream.Stream;

/**
 * One item being converted to HLS: a session folder and at most one ffmpeg writing
 * "{n}.ts" segments into it. Segment n always covers [n·6 s, (n+1)·6 s), because key frames
 * are forced on those times, so a restart at a later segment fits the segments already made.
 */
final class LiveSession {
    static final int SEGMENT_SECONDS = 6;
    /** Segments ahead of ffmpeg that are worth waiting for rather than restarting. */
    static final int LOOKAHEAD = 1;
    static final long WAIT_MILLIS = 120_000;
    static final int TIMESTAMP_BASE = 10;
    /** Below half a second, so that the last segment still rounds to the target duration. */
    static final double TAIL_SLACK = 0.49;
    private static final String FFMPEG_PLAYLIST = "ffmpeg.m3u8";
    private static final String ERRORS = "ffmpeg.log";

    final String itemId;
    final Path source;
    final Path folder;
    final int segmentCount;
    private final MediaSettings settings;
    private final ChildProcesses children;
    private final LogBook logs;
    private final Set<Integer> done = new HashSet<>();
    private Process ffmpeg;
    private int startSegment;
    private volatile long lastUse = System.nanoTime();
    private boolean ended;
    private boolean exitLogged;
    /** The last segment is whole: the run that made it has ended. */
    private boolean lastSettled;

    LiveSession(String itemId, Path source, double duration, Path folder, MediaSettings settings,
            ChildProcesses children, LogBook logs) {
        this.itemId = itemId;
        this.source = source;
        this.folder = folder;
        this.segmentCount = segmentCount(duration);
        this.settings = settings;
        this.children = children;
        this.logs = logs;
    }

    /**
     * Segments follow the video's key frames, and a file's length is often a little longer
     * than its video (audio running on): a tail shorter than {@link #TAIL_SLACK} goes into the
     * last segment rather than into one ffmpeg might never write.
     */
    static int segmentCount(double duration) {
        return Math.max(1, (int) Math.ceil((duration - TAIL_SLACK) / SEGMENT_SECONDS));
    }

    /** The VOD playlist for a file of the given length: every segment 6 s but the last. */
    static String playlist(double duration) {
        int count = segmentCount(duration);
        StringBuilder sb = new StringBuilder(64 + count * 24);
        sb.append("#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:").append(SEGMENT_SECONDS)
                .append("\n#EXT-X-MEDIA-SEQUENCE:0\n#EXT-X-PLAYLIST-TYPE:VOD\n");
        for (int i = 0; i < count; i++) {
            double length = i < count - 1 ? SEGMENT_SECONDS : duration - (double) i * SEGMENT_SECONDS;
            sb.append(String.format(Locale.ROOT, "#EXTINF:%.3f,\n", Math.max(length, 0.001)))
                    .append(i).append(".ts\n");
        }
        return sb.append("#EXT-X-ENDLIST\n").toString();
    }

    void touch() {
        lastUse = System.nanoTime();
    }

    long idleNanos() {
        return System.nanoTime() - lastUse;
    }

    /** Starts ffmpeg at the first segment unless it already runs; used when the playlist is asked for. */
    synchronized void warmUp() throws IOException {
        if (!ended && ffmpeg == null && done.isEmpty()) {
            startAt(0);
        }
    }

    /** Waits until segment n is complete, restarting ffmpeg there when it is out of its reach. */
    Path segment(int n) throws IOException {
        if (n < 0 || n >= segmentCount) {
            throw new NoSuchFileException(n + ".ts");
        }
        touch();
        Path file = folder.resolve(n + ".ts");
        long deadline = System.nanoTime() + WAIT_MILLIS * 1_000_000L;
        while (true) {
            synchronized (this) {
                if (ended) {
                    throw new IOException("The conversion of " + source.getFileName() + " was stopped");
                }
                // Asked before reading its playlist, so that a last segment written just before
                // ffmpeg's exit is seen.
                boolean alive = ffmpeg != null && ffmpeg.isAlive();
                refresh();
                if (done.contains(n) && (n < segmentCount - 1 || lastSettled)) {
                    return file;
                }
                int next = nextSegment();
                if (ffmpeg != null && !alive && n == next) {
                    // It ended (failed, or reached the end) before making the one asked for.
                    throw new IOException("ffmpeg could not make segment " + n + " of " + source.getFileName());
                }
                if (!alive || n < startSegment || n > next + LOOKAHEAD) {
                    startAt(n);
                }
            }
            if (System.nanoTime() > deadline) {
                throw new IOException("Segment " + n + " of " + source.getFileName() + " took too long");
            }
            touch();
            try {
                Thread.sleep(40);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
                throw new IOException("Interrupted", e);
            }
        }
    }

    /** The segment the running ffmpeg is making now. */
    private int nextSegment() {
        int n = startSegment;
        while (done.contains(n)) {
            n++;
        }
        return n;
    }

    /** Takes in the segments ffmpeg has finished, as its own playlist lists them. */
    private void refresh() {
        Path list = folder.resolve(FFMPEG_PLAYLIST);
        try {
            for (String line : Files.readAllLines(list, StandardCharsets.UTF_8)) {
                if (line.endsWith(".ts")) {
                    try {
                        done.add(Integer.parseInt(line.substring(0, line.length() - 3)));
                    } catch (NumberFormatException ignored) {
                        // not one of ours
                    }
                }
            }
        } catch (IOException ignored) {
            // nothing written yet
        }
        if (ffmpeg != null && !exitLogged && !ffmpeg.isAlive()) {
            int exit = ffmpeg.exitValue();
            if (exit != 0) {
                logs.append(LogBook.LIVE_CONVERSION, "ffmpeg failed on " + source + " (exit status " + exit + "): "
                        + ChildProcesses.tail(folder.resolve(ERRORS).toFile(), 1500));
            } else {
                logs.append(LogBook.LIVE_CONVERSION, "Converted " + source + " up to its end");
            }
            exitLogged = true;
        }
        if (!lastSettled && ffmpeg != null && !ffmpeg.isAlive() && done.contains(segmentCount - 1)) {
            appendTail();
            lastSettled = true;
        }
    }

    /**
     * The last segment of the playlist takes in what ffmpeg wrote after it (the short tail left
     * out of the playlist); MPEG-TS segments of one run join end to end.
     */
    private void appendTail() {
        Path tail = folder.resolve(segmentCount + ".ts");
        if (!Files.isRegularFile(tail)) {
            return;
        }
        Path last = folder.resolve((segmentCount - 1) + ".ts");
        Path joined = folder.resolve("joined.tmp");
        try {
            Files.copy(last, joined, StandardCopyOption.REPLACE_EXISTING);
            Files.write(joined, Files.readAllBytes(tail), StandardOpenOption.APPEND);
            Files.move(joined, last, StandardCopyOption.REPLACE_EXISTING, StandardCopyOption.ATOMIC_MOVE);
            Files.delete(tail);
        } catch (IOException e) {
            logs.append(LogBook.LIVE_CONVERSION, "Couldn't join the end of " + source + ": " + e.getMessage());
        }
    }

    private void startAt(int n) throws IOException {
        stopFfmpeg();
        Files.createDirectories(folder);
        Files.deleteIfExists(folder.resolve(FFMPEG_PLAYLIST));
        startSegment = n;
        exitLogged = false;
        lastSettled = false;
        List<String> cmd = command(n);
        File errors = folder.resolve(ERRORS).toFile();
        try {
            ffmpeg = children.start(cmd, errors, false);
        } catch (IOException e) {
            logs.append(LogBook.LIVE_CONVERSION, "Couldn't start ffmpeg (" + cmd.get(0) + ") for " + source + ": "
                    + e.getMessage());
            throw e;
        }
        logs.append(LogBook.LIVE_CONVERSION, "Started converting " + source + (n > 0 ? " at segment " + n : "")
                + " (" + String.join(" ", encoder(settings.codec()).subList(1, 4)) + ")");
    }

    List<String> command(int n) {
        long offset = (long) n * SEGMENT_SECONDS;
        List<String> cmd = new ArrayList<>(Arrays.asList(settings.ffmpegPath(), "-nostdin", "-hide_banner",
                "-loglevel", "error", "-y"));
        if (offset > 0) {
            cmd.addAll(Arrays.asList("-ss", Long.toString(offset)));
        }
        cmd.addAll(Arrays.asList("-i", source.toString(), "-map", "0:V:0", "-map", "0:a:0?", "-sn", "-dn"));
        int w = settings.maxWidth();
        int h = settings.maxHeight();
        String scale = w > 0 && h > 0
                ? "scale=w='min(iw," + w + ")':h='min(ih," + h + ")':force_original_aspect_ratio=decrease,"
                : "";
        // Square pixels first, so that the frame limit and the aspect apply to what is shown.
        cmd.addAll(Arrays.asList("-vf", "scale=trunc(iw*sar/2)*2:ih,setsar=1," + scale
                + "scale=trunc(iw/2)*2:trunc(ih/2)*2,format=yuv420p"));
        cmd.addAll(encoder(settings.codec()));
        cmd.addAll(Arrays.asList(
                "-force_key_frames", "expr:gte(t,n_forced*" + SEGMENT_SECONDS + ")",
                "-c:a", "aac", "-b:a", "128k", "-ac", "2",
                // Every run shifted by the same few seconds, so that no run starts with negative
                // decoding times, which the muxer would shift by the encoder's delay in the first
                // run only, and a restart would no longer line up with segments already made.
                "-output_ts_offset", Long.toString(offset + TIMESTAMP_BASE),
                "-f", "hls", "-hls_time", Integer.toString(SEGMENT_SECONDS),
                "-hls_playlist_type", "event", "-hls_flags", "temp_file",
                "-start_number", Integer.toString(n),
                "-hls_segment_filename", folder.resolve("%d.ts").toString(),
                folder.resolve(FFMPEG_PLAYLIST).toString()));
        return cmd;
    }

    /**
     * The video encoder for the controller's codec choice. Browsers' HLS players take H.264
     * only, so both choices give H.264: "MPEG4" (the lighter of the two) the fastest preset
     * and the baseline profile.
     */
    static List<String> encoder(String codec) {
        if ("MPEG4".equalsIgnoreCase(codec)) {
            return Arrays.asList("-c:v", "libx264", "-preset", "ultrafast", "-profile:v", "baseline", "-crf", "26");
        }
        return Arrays.asList("-c:v", "libx264", "-preset", "veryfast", "-profile:v", "high", "-crf", "23");
    }

    private void stopFfmpeg() {
        Process p = ffmpeg;
        ffmpeg = null;
        if (p != null && p.isAlive()) {
            children.end(p);
            logs.append(LogBook.LIVE_CONVERSION, "Stopped converting " + source + " (segment " + nextSegment() + ")");
        }
    }

    /** Ends ffmpeg and removes the session folder. */
    synchronized void end(String why) {
        if (ended) {
            return;
        }
        ended = true;
        Process p = ffmpeg;
        ffmpeg = null;
        if (p != null && p.isAlive()) {
            children.end(p);
        }
        deleteFolder(folder);
        logs.append(LogBook.LIVE_CONVERSION, "Ended the conversion of " + source + ": " + why);
    }

    static void deleteFolder(Path folder) {
        if (!Files.isDirectory(folder)) {
            return;
        }
        try (Stream<Path> files = Files.walk(folder)) {
            files.sorted((a, b) -> b.getNameCount() - a.getNameCount()).forEach(p -> p.toFile().delete());
        } catch (IOException ignored) {
            // a later clean-up of the cache takes it
        }
    }
}
