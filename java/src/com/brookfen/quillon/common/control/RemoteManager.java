package com.brookfen.quillon.common.control;

import com.brookfen.quillon.server.LogBook;
import com.brookfen.quillon.server.ServerCore;

import java.io.BufferedReader;
import java.io.File;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.OutputStream;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.Socket;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.security.SecureRandom;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;

/**
 * Remote access: the PIN clients pair with, the port they reach, and the checks that the
 * server really answers there. All notifications leave from one thread of its own, so a
 * caller that blocks in a callback (the controller's test-result alert) holds up only
 * later notifications, never the server or the controller's calls into Java.
 *
 * Automatic port mapping (UPnP) is not attempted: with it switched on the message tells
 * the user which port to forward by hand.
 */
final class RemoteManager {
    static final String PIN_FILE = "remote-pin.txt";
    private static final int PROBE_TIMEOUT_MS = 2000;

    interface Notifier {
        void updated();

        void connectionTestEnded(boolean passed);
    }

    private final ServerCore core;
    private final Notifier notifier;
    private final ExecutorService thread = Executors.newSingleThreadExecutor(r -> {
        Thread t = new Thread(r, "quillon-remote");
        t.setDaemon(true);
        return t;
    });

    private boolean enabled;
    private boolean portMapping = true;
    private String pin;
    private boolean checking;
    private boolean testing;
    /** null: the server on its current port has not been checked yet. */
    private Boolean answers;
    private int checkedPort = -1;
    private Boolean lastTest;

    RemoteManager(ServerCore core, Notifier notifier) {
        this.core = core;
        this.notifier = notifier;
        core.addStateListener(() -> thread.execute(this::reevaluate));
    }

    void init(boolean remote, boolean mapping) {
        synchronized (this) {
            enabled = remote;
            portMapping = mapping;
            pin = loadOrCreatePin(core.getAppFolder());
        }
        log("Remote access " + (remote ? "on" : "off") + ", port mapping " + (mapping ? "on" : "off"));
        thread.execute(this::reevaluate);
    }

    void setEnabled(boolean on) {
        synchronized (this) {
            enabled = on;
            lastTest = null;
        }
        log("Remote access " + (on ? "on" : "off"));
        thread.execute(this::reevaluate);
    }

    void setPortMapping(boolean on) {
        synchronized (this) {
            portMapping = on;
        }
        log("Port mapping " + (on ? "on" : "off"));
        thread.execute(this::reevaluate);
    }

    /** Checks the server again, as after a failed check. */
    void retry() {
        synchronized (this) {
            answers = null;
        }
        log("Retrying");
        thread.execute(this::reevaluate);
    }

    void testConnection() {
        synchronized (this) {
            testing = true;
        }
        thread.execute(() -> {
            notifier.updated();
            int port = core.getBoundPort();
            boolean passed = port > 0 && probe(port);
            synchronized (this) {
                testing = false;
                lastTest = passed;
            }
            log("Connection test on port " + port + (passed ? " passed" : " failed"));
            notifier.updated();
            notifier.connectionTestEnded(passed);
        });
    }

    /** Runs on the manager's thread: checks the server when it is due, then reports. */
    private void reevaluate() {
        int port = core.getBoundPort();
        boolean due;
        synchronized (this) {
            if (port != checkedPort) {
                answers = null;
                lastTest = null;
                checkedPort = port;
            }
            due = enabled && port > 0 && answers == null;
            checking = due;
        }
        notifier.updated();
        if (!due) {
            return;
        }
        boolean ok = probe(port);
        synchronized (this) {
            checking = false;
            answers = ok;
        }
        log(ok ? "Server answers on port " + port : "Server doesn't answer on port " + port);
        notifier.updated();
    }

    synchronized RemoteManagerState state() {
        int bound = core.getBoundPort();
        int port = bound > 0 ? bound : core.getDefaultPort();
        String message;
        boolean retry = false;
        boolean test = false;
        boolean busy = false;
        if (!enabled) {
            message = "Remote access is off.";
        } else if (bound <= 0) {
            message = "Remote access starts when the server runs.";
        } else if (testing) {
            message = "Testing the connection on port " + port + "...";
            busy = true;
        } else if (checking || answers == null) {
            message = "Checking the server on port " + port + "...";
            busy = true;
        } else if (!answers) {
            message = "The server doesn't answer on port " + port + ".";
            retry = true;
        } else {
            StringBuilder sb = new StringBuilder("Remote access is on: port ").append(port)
                    .append(", PIN ").append(pin == null ? "-" : pin).append('.');
            if (portMapping) {
                sb.append(" Automatic port mapping isn't available; forward TCP port ").append(port)
                        .append(" on your router to this computer.");
            }
            if (lastTest != null) {
                sb.append(lastTest ? " The last connection test passed." : " The last connection test failed.");
            }
            message = sb.toString();
            test = true;
        }
        return new RemoteManagerState(pin, message, retry, test, busy, port);
    }

    /** Whether something speaking HTTP answers on this port of this machine. */
    static boolean probe(int port) {
        String bind = System.getProperty(ServerCore.BIND_ADDRESS_PROPERTY);
        try (Socket s = new Socket()) {
            InetAddress host = bind == null || bind.isEmpty() || bind.equals("0.0.0.0")
                    ? InetAddress.getLoopbackAddress() : InetAddress.getByName(bind);
            s.connect(new InetSocketAddress(host, port), PROBE_TIMEOUT_MS);
            s.setSoTimeout(PROBE_TIMEOUT_MS);
            OutputStream out = s.getOutputStream();
            out.write("HEAD / HTTP/1.0\r\n\r\n".getBytes(StandardCharsets.US_ASCII));
            out.flush();
            BufferedReader in = new BufferedReader(new InputStreamReader(s.getInputStream(), StandardCharsets.US_ASCII));
            String status = in.readLine();
            return status != null && status.startsWith("HTTP/");
        } catch (IOException | RuntimeException e) {
            return false;
        }
    }

    /** The PIN survives restarts so paired clients keep working; a damaged file gets a new one. */
    static String loadOrCreatePin(File folder) {
        File file = folder == null ? null : new File(folder, PIN_FILE);
        if (file != null) {
            try {
                String saved = new String(Files.readAllBytes(file.toPath()), StandardCharsets.UTF_8).trim();
                if (saved.matches("[0-9]{4,8}")) {
                    return saved;
                }
            } catch (IOException | RuntimeException ignored) {
                // no PIN yet
            }
        }
        String pin = String.format("%06d", new SecureRandom().nextInt(1000000));
        if (file != null) {
            try {
                Files.createDirectories(folder.toPath());
                Files.write(file.toPath(), (pin + "\n").getBytes(StandardCharsets.UTF_8));
            } catch (IOException | RuntimeException ignored) {
                // kept for this run only
            }
        }
        return pin;
    }

    private void log(String line) {
        core.logs().append(LogBook.REMOTE, line);
    }
}
