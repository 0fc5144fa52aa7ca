package com.brookfen.quillon.server;

import java.io.BufferedReader;
import java.io.File;
import java.io.IOException;
import java.io.InputStream;
import java.io.InputStreamReader;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Deque;
import java.util.HashSet;
import java.util.List;
import java.util.Locale;
import java.util.Set;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * The offline converter: one file at a time, in queue order, through ffmpeg into H.264/AAC
 * MP4 files no larger than the configured frame. Files removed by a reset or that failed
 * once are not queued again until the server restarts, so a scan never loops on them.
 */
public final class Converter {
    /** One file, waiting or being converted. */
    public static final class Item {
        public final String id;
        public final String name;
        final File source;
        final File output;

        Item(String id, String name, File source, File output) {
            this.id = id;
            this.name = name;
            this.source = source;
            this.output = output;
        }
    }

    static final Set<String> VIDEO_EXTENSIONS = new HashSet<>(Arrays.asList(
            "avi", "mkv", "mov", "mp4", "m4v", "mpg", "mpeg", "wmv", "flv", "webm", "ts", "vob", "3gp", "divx"));
    private static final int SCAN_DEPTH = 4;
    private static final int LOG_TAIL = 64 * 1024;
    private static final Pattern DURATION = Pattern.compile("Duration: (\\d+):(\\d\\d):(\\d\\d(?:\\.\\d+)?)");

    private final LogBook logs;
    private final Object lock = new Object();
    private final Deque<Item> queue = new ArrayDeque<>();
    private final Set<String> known = new HashSet<>();
    private final Set<String> skipped = new HashSet<>();
    private Item current;
    private Process process;
    private boolean cancelled;
    private double percentDone;
    private Long etaSeconds;
    private long startedNanos;
    private long durationMicros;
    private long lastOutMicros;
    private Thread worker;
    private String lastLog = "";

    private volatile String ffmpegPath;
    private volatile int maxWidth = 480;
    private volatile int maxHeight = 320;
    private volatile File outputFolder;

    public Converter(LogBook logs) {
        this.logs = logs;
    }

    public void setFFMpegPath(String path) {
        ffmpegPath = path;
    }

    public String getFFMpegPath() {
        return ffmpegPath;
    }

    public void setMaxWidth(int w) {
        maxWidth = w;
    }

    public int getMaxWidth() {
        return maxWidth;
    }

    public void setMaxHeight(int h) {
        maxHeight = h;
    }

    public int getMaxHeight() {
        return maxHeight;
    }

    public void setOutputFolder(File folder) {
        outputFolder = folder;
    }

    /** Whether the converter has what it needs to run. */
    public boolean isUsable() {
        String ff = ffmpegPath;
        return ff != null && !ff.isEmpty() && new File(ff).canExecute() && outputFolder != null;
    }

    /** Queues every video under the folders that is not converted yet; returns how many were added. */
    public int scan(List<File> folders) {
        int added = 0;
        for (File folder : folders) {
            added += scan(folder, new HashSet<>());
        }
        return added;
    }

    /**
     * Queues the videos under one folder that are not converted yet; returns how many were
     * added. The folders walked (those whose changes matter) are added to dirs, unreadable
     * ones too: they cannot be watched either, which calls for the slow rescan.
     */
    int scan(File folder, Set<Path> dirs) {
        List<File> found = new ArrayList<>();
        collect(folder, 0, found, dirs);
        if (!isUsable()) {
            return 0;
        }
        found.sort(null);
        int added = 0;
        for (File f : found) {
            if (enqueue(f)) {
                added++;
            }
        }
        return added;
    }

    private static void collect(File folder, int depth, List<File> out, Set<Path> dirs) {
        if (folder.isDirectory()) {
            dirs.add(folder.toPath().toAbsolutePath());
        }
        File[] children = folder.listFiles();
        if (children == null) {
            return;
        }
        for (File c : children) {
            if (c.getName().startsWith(".")) {
                continue;
            }
            if (c.isDirectory()) {
                if (depth < SCAN_DEPTH && !Files.isSymbolicLink(c.toPath())) {
                    collect(c, depth + 1, out, dirs);
                }
            } else if (c.isFile() && VIDEO_EXTENSIONS.contains(extension(c.getName()))) {
                out.add(c.getAbsoluteFile());
            }
        }
    }

    private static String extension(String name) {
        int dot = name.lastIndexOf('.');
        return dot < 0 ? "" : name.substring(dot + 1).toLowerCase(Locale.ROOT);
    }

    /** Adds one file to the end of the queue unless it is known, skipped or already converted. */
    public boolean enqueue(File source) {
        File out = outputFolder;
        if (out == null || source == null) {
            return false;
        }
        String path = source.getAbsolutePath();
        String id = idOf(path);
        String base = source.getName();
        int dot = base.lastIndexOf('.');
        if (dot > 0) {
            base = base.substring(0, dot);
        }
        Item item = new Item(id, source.getName(), source, new File(out, base + "-" + id.substring(0, 8) + ".mp4"));
        synchronized (lock) {
            if (known.contains(path) || skipped.contains(path) || item.output.exists()) {
                return false;
            }
            known.add(path);
            queue.add(item);
            if (worker == null) {
                worker = new Thread(this::work, "quillon-converter");
                worker.setDaemon(true);
                worker.start();
            }
            lock.notifyAll();
        }
        logs.append(LogBook.CONVERSION, "Queued " + path);
        return true;
    }

    static String idOf(String path) {
        try {
            byte[] d = MessageDigest.getInstance("SHA-1").digest(path.getBytes(StandardCharsets.UTF_8));
            StringBuilder sb = new StringBuilder();
            for (int i = 0; i < 8; i++) {
                sb.append(String.format("%02x", d[i] & 0xff));
            }
            return sb.toString();
        } catch (NoSuchAlgorithmException e) {
            throw new IllegalStateException(e);
        }
    }

    /** Stops the file being converted (its partial output is deleted) and empties the queue. */
    public void reset() {
        int dropped;
        synchronized (lock) {
            dropped = queue.size();
            for (Item i : queue) {
                skipped.add(i.source.getAbsolutePath());
            }
            queue.clear();
            if (current != null) {
                dropped++;
                skipped.add(current.source.getAbsolutePath());
                cancelled = true;
                if (process != null) {
                    process.destroyForcibly();
                }
            }
        }
        logs.append(LogBook.CONVERSION, "Conversion queue cleared (" + dropped + " file(s))");
    }

    /** Ends the worker; used when the server quits. */
    public void shutdown() {
        reset();
        synchronized (lock) {
            if (worker != null) {
                worker.interrupt();
                worker = null;
            }
        }
    }

    public String lastLog() {
        synchronized (lock) {
            return lastLog;
        }
    }

    public boolean isConverting() {
        synchronized (lock) {
            return current != null;
        }
    }

    public int waitingCount() {
        synchronized (lock) {
            return queue.size();
        }
    }

    public String currentName() {
        synchronized (lock) {
            return current == null ? null : current.name;
        }
    }

    /** The queue document the conversion monitor reads. */
    public String queueJson() {
        StringBuilder sb = new StringBuilder("{\"conversion\": {");
        synchronized (lock) {
            if (current != null) {
                sb.append("\"convertedItem\": {\"item\": ").append(itemJson(current))
                        .append(", \"conversionState\": {\"percentDone\": ")
                        .append(String.format(Locale.ROOT, "%.1f", percentDone))
                        .append(", \"eta\": ").append(etaSeconds == null ? "null" : etaSeconds.toString())
                        .append(", \"paused\": false}}, ");
            }
            sb.append("\"queue\": [");
            boolean first = true;
            for (Item i : queue) {
                sb.append(first ? "" : ", ").append(itemJson(i));
                first = false;
            }
        }
        return sb.append("]}}").toString();
    }

    private static String itemJson(Item i) {
        return "{\"id\": " + Json.quote(i.id) + ", \"name\": " + Json.quote(i.name) + "}";
    }

    private void work() {
        while (true) {
            Item item;
            synchronized (lock) {
                while (queue.isEmpty()) {
                    if (worker != Thread.currentThread()) {
                        return;
                    }
                    try {
                        lock.wait();
                    } catch (InterruptedException e) {
                        return;
                    }
                }
                item = queue.poll();
                current = item;
                cancelled = false;
                percentDone = 0;
                etaSeconds = null;
                durationMicros = 0;
                lastOutMicros = 0;
                startedNanos = System.nanoTime();
            }
            try {
                convert(item);
            } finally {
                synchronized (lock) {
                    current = null;
                    process = null;
                }
            }
        }
    }

    private List<String> command(Item item, File temp) {
        List<String> cmd = new ArrayList<>(Arrays.asList(ffmpegPath, "-nostdin", "-hide_banner", "-y",
                "-i", item.source.getPath(), "-map", "0:v:0?", "-map", "0:a:0?"));
        int w = maxWidth;
        int h = maxHeight;
        if (w > 0 && h > 0) {
            cmd.add("-vf");
            cmd.add("scale=w='min(iw," + w + ")':h='min(ih," + h + ")':force_original_aspect_ratio=decrease,"
                    + "scale=trunc(iw/2)*2:trunc(ih/2)*2");
        }
        cmd.addAll(Arrays.asList("-c:v", "libx264", "-preset", "veryfast", "-pix_fmt", "yuv420p",
                "-c:a", "aac", "-b:a", "128k", "-movflags", "+faststart",
                "-progress", "pipe:1", "-nostats", "-f", "mp4", temp.getPath()));
        return cmd;
    }

    private void convert(Item item) {
        File temp = new File(item.output.getParentFile(), "." + item.output.getName() + ".part");
        item.output.getParentFile().mkdirs();
        logs.append(LogBook.CONVERSION, "Converting " + item.source + " to " + item.output);
        Process p;
        try {
            p = new ProcessBuilder(command(item, temp)).start();
        } catch (IOException e) {
            logs.append(LogBook.CONVERSION, "Couldn't run the converter: " + e.getMessage());
            synchronized (lock) {
                skipped.add(item.source.getAbsolutePath());
            }
            return;
        }
        synchronized (lock) {
            process = p;
            if (cancelled) {
                p.destroyForcibly();
            }
        }
        StringBuilder errors = new StringBuilder();
        Thread errReader = new Thread(() -> readErrors(p.getErrorStream(), errors), "quillon-converter-log");
        errReader.setDaemon(true);
        errReader.start();
        readProgress(p.getInputStream());
        int exit;
        try {
            exit = p.waitFor();
            errReader.join(5000);
        } catch (InterruptedException e) {
            p.destroyForcibly();
            Thread.currentThread().interrupt();
            exit = -1;
        }
        boolean wasCancelled;
        synchronized (lock) {
            wasCancelled = cancelled;
            synchronized (errors) {
                lastLog = errors.toString();
            }
        }
        if (!wasCancelled && exit == 0) {
            try {
                Files.move(temp.toPath(), item.output.toPath(), StandardCopyOption.REPLACE_EXISTING);
                logs.append(LogBook.CONVERSION, "Converted " + item.source + " to " + item.output);
                return;
            } catch (IOException e) {
                logs.append(LogBook.CONVERSION, "Couldn't keep the converted file: " + e.getMessage());
            }
        } else if (wasCancelled) {
            logs.append(LogBook.CONVERSION, "Stopped converting " + item.source);
        } else {
            logs.append(LogBook.CONVERSION, "Conversion of " + item.source + " failed (exit status " + exit + ")");
        }
        temp.delete();
        synchronized (lock) {
            skipped.add(item.source.getAbsolutePath());
        }
    }

    private void readErrors(InputStream in, StringBuilder errors) {
        try (BufferedReader r = new BufferedReader(new InputStreamReader(in, StandardCharsets.UTF_8))) {
            String line;
            while ((line = r.readLine()) != null) {
                Matcher m = DURATION.matcher(line);
                if (m.find()) {
                    long us = (long) ((Long.parseLong(m.group(1)) * 3600 + Long.parseLong(m.group(2)) * 60
                            + Double.parseDouble(m.group(3))) * 1e6);
                    synchronized (lock) {
                        if (durationMicros == 0) {
                            durationMicros = us;
                            // Progress may have been read before the duration was known.
                            progressAt(lastOutMicros);
                        }
                    }
                }
                synchronized (errors) {
                    errors.append(line).append('\n');
                    if (errors.length() > LOG_TAIL) {
                        errors.delete(0, errors.length() - LOG_TAIL);
                    }
                }
            }
        } catch (IOException ignored) {
            // The converter went away; its exit status tells the rest.
        }
    }

    private void readProgress(InputStream in) {
        try (BufferedReader r = new BufferedReader(new InputStreamReader(in, StandardCharsets.UTF_8))) {
            String line;
            while ((line = r.readLine()) != null) {
                int eq = line.indexOf('=');
                if (eq < 0) {
                    continue;
                }
                String key = line.substring(0, eq);
                String value = line.substring(eq + 1).trim();
                if (key.equals("out_time_us") || key.equals("out_time_ms")) {
                    try {
                        progressAt(Long.parseLong(value));
                    } catch (NumberFormatException ignored) {
                        // "N/A" before the first frame
                    }
                } else if (key.equals("progress") && value.equals("end")) {
                    synchronized (lock) {
                        percentDone = 100;
                        etaSeconds = 0L;
                    }
                }
            }
        } catch (IOException ignored) {
            // Reading ends with the process.
        }
    }

    private void progressAt(long outMicros) {
        synchronized (lock) {
            lastOutMicros = outMicros;
            if (durationMicros <= 0 || outMicros <= 0) {
                return;
            }
            percentDone = Math.min(100.0, outMicros * 100.0 / durationMicros);
            if (percentDone > 0) {
                double elapsed = (System.nanoTime() - startedNanos) / 1e9;
                etaSeconds = Math.round(elapsed * (100.0 - percentDone) / percentDone);
            }
        }
    }
}
