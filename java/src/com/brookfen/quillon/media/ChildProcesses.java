package com.brookfen.quillon.media;

import java.io.ByteArrayOutputStream;
import java.io.File;
import java.io.IOException;
import java.io.InputStream;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.RejectedExecutionException;
import java.util.concurrent.TimeUnit;

/**
 * Every ffmpeg and ffprobe the server runs starts here, so that stopping or quitting can
 * end them all, and a JVM that exits takes none of them along into the background.
 */
public final class ChildProcesses {
    /** How long a polite end may take before the child is killed. */
    static final long GRACE_MILLIS = 1000;
    /** Bytes of a child's standard error kept for the logs. */
    static final int ERROR_TAIL = 2000;

    /** The outcome of a child that ran to its end. */
    public static final class Result {
        public final int exitCode;
        public final byte[] output;
        public final String errorTail;

        Result(int exitCode, byte[] output, String errorTail) {
            this.exitCode = exitCode;
            this.output = output;
            this.errorTail = errorTail;
        }
    }

    /**
     * util-linux's setpriv asks the kernel to kill the child when the thread that started it
     * dies, so a controller killed outright (SIGKILL, a crash) takes its ffmpegs along.
     */
    private static final String SETPRIV = "/usr/bin/setpriv";

    private final Set<Process> running = ConcurrentHashMap.newKeySet();
    /** The death signal follows the starting thread, so one thread that lives as long as we do starts them all. */
    private final ExecutorService launcher = Executors.newSingleThreadExecutor(r -> {
        Thread t = new Thread(r, "quillon-child-launcher");
        t.setDaemon(true);
        return t;
    });
    private final boolean guarded = new File(SETPRIV).canExecute();
    private final Thread hook = new Thread(this::endAll, "quillon-child-reaper");
    private volatile boolean closed;

    public ChildProcesses() {
        try {
            Runtime.getRuntime().addShutdownHook(hook);
        } catch (IllegalStateException ignored) {
            // the JVM is already exiting
        }
    }

    /**
     * Starts a child; standard input is empty, standard output a pipe only when asked for,
     * and with a null errorFile standard error is discarded.
     */
    public Process start(List<String> command, File errorFile, boolean pipeOutput) throws IOException {
        return launch(command, pipeOutput ? ProcessBuilder.Redirect.PIPE : ProcessBuilder.Redirect.DISCARD,
                errorFile == null ? ProcessBuilder.Redirect.DISCARD : ProcessBuilder.Redirect.to(errorFile));
    }

    private Process launch(List<String> command, ProcessBuilder.Redirect out, ProcessBuilder.Redirect err)
            throws IOException {
        if (closed) {
            throw new IOException("The server is shutting down");
        }
        List<String> full = new ArrayList<>();
        if (guarded) {
            full.addAll(List.of(SETPRIV, "--pdeathsig", "KILL", "--"));
        }
        full.addAll(command);
        ProcessBuilder builder = new ProcessBuilder(full)
                .redirectInput(ProcessBuilder.Redirect.from(new File("/dev/null")))
                .redirectOutput(out)
                .redirectError(err);
        Process p = startOnLauncher(builder);
        running.add(p);
        p.onExit().thenRun(() -> running.remove(p));
        if (closed) {
            end(p);
            throw new IOException("The server is shutting down");
        }
        return p;
    }

    private Process startOnLauncher(ProcessBuilder builder) throws IOException {
        try {
            return launcher.submit(builder::start).get();
        } catch (ExecutionException e) {
            Throwable cause = e.getCause();
            throw cause instanceof IOException ? (IOException) cause : new IOException(cause);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            throw new IOException("Interrupted", e);
        } catch (RejectedExecutionException e) {
            throw new IOException("The server is shutting down", e);
        }
    }

    /**
     * Runs a child to its end, collecting its standard output and the end of its standard
     * error; it is killed after timeoutMillis and then the call fails.
     */
    public Result run(List<String> command, long timeoutMillis) throws IOException {
        Process p = launch(command, ProcessBuilder.Redirect.PIPE, ProcessBuilder.Redirect.PIPE);
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        ByteArrayOutputStream err = new ByteArrayOutputStream();
        Thread outReader = reader(p.getInputStream(), out, Integer.MAX_VALUE);
        Thread errReader = reader(p.getErrorStream(), err, ERROR_TAIL);
        try {
            if (!p.waitFor(timeoutMillis, TimeUnit.MILLISECONDS)) {
                end(p);
                throw new IOException(command.get(0) + " took longer than " + timeoutMillis / 1000 + " s");
            }
            outReader.join(GRACE_MILLIS);
            errReader.join(GRACE_MILLIS);
        } catch (InterruptedException e) {
            end(p);
            Thread.currentThread().interrupt();
            throw new IOException("Interrupted", e);
        }
        String errors;
        synchronized (err) {
            errors = new String(err.toByteArray(), StandardCharsets.UTF_8).trim();
        }
        synchronized (out) {
            return new Result(p.exitValue(), out.toByteArray(), errors);
        }
    }

    private static Thread reader(InputStream in, ByteArrayOutputStream into, int keep) {
        Thread t = new Thread(() -> copy(in, into, keep), "quillon-child-output");
        t.setDaemon(true);
        t.start();
        return t;
    }

    /** Copies a child's output; past keep bytes only the newest are kept. */
    private static void copy(InputStream in, ByteArrayOutputStream out, int keep) {
        byte[] buf = new byte[65536];
        try (InputStream i = in) {
            int n;
            while ((n = i.read(buf)) > 0) {
                synchronized (out) {
                    out.write(buf, 0, n);
                    if (out.size() > keep) {
                        byte[] all = out.toByteArray();
                        out.reset();
                        out.write(all, all.length - keep, keep);
                    }
                }
            }
        } catch (IOException ignored) {
            // the child was ended
        }
    }

    /** The last characters of a child's error file, for the logs. */
    public static String tail(File file, int chars) {
        try {
            byte[] all = java.nio.file.Files.readAllBytes(file.toPath());
            String text = new String(all, StandardCharsets.UTF_8).trim();
            return text.length() <= chars ? text : text.substring(text.length() - chars);
        } catch (IOException e) {
            return "";
        }
    }

    /** Ends one child: asked to stop, killed if it is still there after the grace time. */
    public void end(Process p) {
        if (p == null) {
            return;
        }
        p.destroy();
        try {
            if (!p.waitFor(GRACE_MILLIS, TimeUnit.MILLISECONDS)) {
                p.destroyForcibly().waitFor(GRACE_MILLIS, TimeUnit.MILLISECONDS);
            }
        } catch (InterruptedException e) {
            p.destroyForcibly();
            Thread.currentThread().interrupt();
        }
        running.remove(p);
    }

    /** Ends every child within about two seconds, all at once rather than one after another. */
    public void endAll() {
        List<Process> all = new ArrayList<>(running);
        for (Process p : all) {
            p.destroy();
        }
        long deadline = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(GRACE_MILLIS);
        for (Process p : all) {
            waitUntil(p, deadline);
        }
        for (Process p : all) {
            if (p.isAlive()) {
                p.destroyForcibly();
            }
        }
        deadline = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(GRACE_MILLIS - 200);
        for (Process p : all) {
            waitUntil(p, deadline);
            running.remove(p);
        }
    }

    private static void waitUntil(Process p, long deadlineNanos) {
        long left = deadlineNanos - System.nanoTime();
        try {
            if (left > 0) {
                p.waitFor(left, TimeUnit.NANOSECONDS);
            }
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    /** Children still running. */
    public int count() {
        running.removeIf(p -> !p.isAlive());
        return running.size();
    }

    /** No child starts any more; every running one ends. */
    public void shutdown() {
        closed = true;
        endAll();
        launcher.shutdown();
        try {
            Runtime.getRuntime().removeShutdownHook(hook);
        } catch (IllegalStateException ignored) {
            // already exiting: the hook runs anyway
        }
    }
}
