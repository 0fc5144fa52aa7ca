package com.brookfen.quillon.server;

import com.brookfen.quillon.http.Site;
import com.brookfen.quillon.http.WebServer;
import com.brookfen.quillon.library.Library;
import com.brookfen.quillon.media.MediaServices;

import java.io.File;
import java.io.IOException;
import java.net.BindException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CopyOnWriteArrayList;

/**
 * The running server: settings, logs, the HTTP listener, the library, the media services
 * and the converter. The control classes are its only callers; it is one per JVM.
 */
public final class ServerCore {
    public static final int STANDARD_PORT = 45631;
    public static final int STATUS_PAGE_ENTRIES = 200;
    /** Leave unset to listen on every interface; tests pin it to 127.0.0.1. */
    public static final String BIND_ADDRESS_PROPERTY = "quillon.bind.address";

    private static final ServerCore INSTANCE = new ServerCore();

    private final LogBook logs = new LogBook(LogBook.DEFAULT_LIMIT);
    private final Converter converter = new Converter(logs);
    private final MediaServices media = new MediaServices(logs);
    private final FolderFileCache folderFiles = new FolderFileCache();
    private final List<Runnable> stateListeners = new CopyOnWriteArrayList<>();

    private volatile File appFolder;
    private volatile String computerName = defaultComputerName();
    private volatile String passwordDigest = "";
    private volatile String faacPath;
    private volatile String muxerPath;

    private int defaultPort = STANDARD_PORT;
    private WebServer http;
    private Library library;
    private int boundPort = -1;
    private ConversionFolders conversionFolders;
    private boolean initialized;

    private ServerCore() {
    }

    public static ServerCore get() {
        return INSTANCE;
    }

    public LogBook logs() {
        return logs;
    }

    public Converter converter() {
        return converter;
    }

    public MediaServices media() {
        return media;
    }

    /** The library of the application folder's shared folders, following changes once started. */
    public synchronized Library library() {
        if (library == null) {
            File folder = appFolder;
            library = new Library(folder == null ? null : folder.toPath(),
                    () -> folderFiles.read(folder, LibraryFolders.FOLDERS_FILE));
        }
        return library;
    }

    /** Called (on some server thread) after the server started or stopped. */
    public void addStateListener(Runnable r) {
        stateListeners.add(r);
    }

    private void fireStateChanged() {
        for (Runnable r : stateListeners) {
            r.run();
        }
    }

    static String defaultComputerName() {
        try {
            String name = new String(Files.readAllBytes(Paths.get("/proc/sys/kernel/hostname")),
                    StandardCharsets.UTF_8).trim();
            if (!name.isEmpty()) {
                return name;
            }
        } catch (IOException | RuntimeException ignored) {
            // fall through to the environment
        }
        String env = System.getenv("HOSTNAME");
        return env == null || env.isEmpty() ? "localhost" : env;
    }

    // ---- settings ----

    public void setAppFolder(File folder) {
        synchronized (this) {
            if (library != null) {
                library.close();
                library = null;
            }
            appFolder = folder;
            converter.setOutputFolder(folder == null ? null : new File(folder, "Converted"));
            if (conversionFolders != null) {
                conversionFolders.close();
                conversionFolders = null;
            }
            if (initialized) {
                followConversionFolders();
            }
        }
    }

    public File getAppFolder() {
        return appFolder;
    }

    public void setComputerName(String name) {
        computerName = name == null ? "" : name;
        logs.append(LogBook.REMOTE, "Computer name: " + computerName);
    }

    public String getComputerName() {
        return computerName;
    }

    public void setPasswordDigest(String digest) {
        passwordDigest = digest == null ? "" : digest.trim();
        logs.append(LogBook.REMOTE, passwordDigest.isEmpty() ? "Password protection off" : "Password protection on");
    }

    public String getPasswordDigest() {
        return passwordDigest;
    }

    public void setFaacPath(String path) {
        faacPath = path;
    }

    public String getFaacPath() {
        return faacPath;
    }

    public void setMuxerPath(String path) {
        muxerPath = path;
    }

    public String getMuxerPath() {
        return muxerPath;
    }

    public synchronized int getDefaultPort() {
        return defaultPort;
    }

    /**
     * Port 0 asks the system for any free port. A running server moves to a new port at once
     * when that port can be bound, and otherwise keeps the one it has.
     */
    public void setDefaultPort(int port) {
        boolean moved = false;
        WebServer retired = null;
        synchronized (this) {
            if (port < 0 || port > 65535) {
                logs.append(LogBook.REMOTE, "Port " + port + " refused: out of range; keeping " + defaultPort);
                return;
            }
            defaultPort = port;
            logs.append(LogBook.REMOTE, "Port set to " + port);
            if (http != null && port != 0 && port != boundPort) {
                int old = boundPort;
                WebServer oldHttp = http;
                http = null;
                if (bind(port) > 0) {
                    retired = oldHttp;
                    logs.append(LogBook.REMOTE, "Server moved from port " + old + " to " + boundPort);
                    moved = true;
                } else {
                    http = oldHttp;
                    boundPort = old;
                    logs.append(LogBook.REMOTE, "Server stays on port " + old);
                }
            }
        }
        if (moved) {
            retired.stop();
            fireStateChanged();
        }
    }

    // ---- lifecycle ----

    public synchronized boolean isRunning() {
        return http != null;
    }

    /** The port the server listens on, or -1 when it is stopped. */
    public synchronized int getBoundPort() {
        return http == null ? -1 : boundPort;
    }

    /** Starts listening; returns the bound port, or -1 when the port could not be bound. */
    public int start() {
        int port;
        synchronized (this) {
            if (http != null) {
                logs.append(LogBook.REMOTE, "Server already running on port " + boundPort);
                return boundPort;
            }
            port = bind(defaultPort);
            if (port < 0) {
                return -1;
            }
            logs.append(LogBook.REMOTE, "Server started on port " + port);
        }
        fireStateChanged();
        return port;
    }

    /** Binds and starts a listener into http/boundPort; -1 (logged) on failure. */
    private int bind(int port) {
        String address = System.getProperty(BIND_ADDRESS_PROPERTY);
        try {
            Library lib = library();
            lib.start();
            WebServer server = new WebServer(new Site(lib, media, this::getPasswordDigest, this::statusPage),
                    address, port);
            boundPort = server.start();
            http = server;
            return boundPort;
        } catch (BindException e) {
            fail("Couldn't start the server: port " + port + " is in use");
        } catch (IOException | RuntimeException e) {
            fail("Couldn't start the server on port " + port + ": " + e.getMessage());
        }
        return -1;
    }

    private void fail(String line) {
        logs.append(LogBook.REMOTE, line);
        System.err.println(line);
    }

    public void stop() {
        WebServer old;
        synchronized (this) {
            if (http == null) {
                return;
            }
            old = http;
            http = null;
            logs.append(LogBook.REMOTE, "Server stopped (port " + boundPort + ")");
            boundPort = -1;
        }
        // Outside the lock: handlers still finishing may ask for the server's state.
        old.stop();
        media.stopLive();
        fireStateChanged();
    }

    /** The end of the server's life in this process: stop listening and converting. */
    public void quit() {
        stop();
        synchronized (this) {
            initialized = false;
            if (conversionFolders != null) {
                conversionFolders.close();
                conversionFolders = null;
            }
            if (library != null) {
                library.close();
                library = null;
            }
        }
        converter.shutdown();
        media.shutdown();
    }

    /** The controller has pushed its settings: look for work now and follow the folders from then on. */
    public void initialized() {
        logs.append(LogBook.CONVERSION, "Settings received; converter " + (converter.isUsable() ? "ready" : "not configured"));
        synchronized (this) {
            if (!initialized) {
                initialized = true;
                followConversionFolders();
                return;
            }
        }
        scanConversionFolders();
    }

    private void followConversionFolders() {
        if (appFolder != null && conversionFolders == null) {
            conversionFolders = new ConversionFolders(appFolder, converter, logs);
            conversionFolders.start();
        }
    }

    /** Reads the conversion folder list again and walks every folder now; returns how many were queued. */
    public int scanConversionFolders() {
        ConversionFolders c;
        synchronized (this) {
            c = conversionFolders;
        }
        if (c == null) {
            return 0;
        }
        try {
            return c.scanAll();
        } catch (RuntimeException e) {
            logs.append(LogBook.CONVERSION, "Scan failed: " + e);
            return 0;
        }
    }

    /** The human-readable state of the server, its first page. */
    public String statusPage() {
        return statusPage(0);
    }

    /**
     * One page of the human-readable state: the folder lists show STATUS_PAGE_ENTRIES
     * entries each, so that a huge folder file never becomes a huge page.
     */
    public String statusPage(int page) {
        StringBuilder sb = new StringBuilder(1024);
        String name = html(computerName);
        sb.append("<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Quillon Server on ")
                .append(name).append("</title></head><body>\n<h1>Quillon Server</h1>\n");
        sb.append("<p>Computer: ").append(name).append("</p>\n");
        int port = getBoundPort();
        sb.append("<p>State: ").append(port > 0 ? "running on port " + port : "stopped").append("</p>\n");
        sb.append("<p>Library: <a href=\"/api/library\">/api/library</a> (JSON; each section at"
                + " /api/sections/{id})</p>\n");
        List<LibraryFolders.Entry> shared = folderFiles.read(appFolder, LibraryFolders.FOLDERS_FILE);
        List<LibraryFolders.Entry> conversion = folderFiles.read(appFolder, LibraryFolders.CONVERSION_FOLDERS_FILE);
        int pages = (Math.max(shared.size(), conversion.size()) + STATUS_PAGE_ENTRIES - 1) / STATUS_PAGE_ENTRIES;
        page = Math.max(0, Math.min(page, pages - 1));
        listFolders(sb, "Shared folders", shared, page);
        listFolders(sb, "Conversion folders", conversion, page);
        if (pages > 1) {
            sb.append("<p>Page ").append(page + 1).append(" of ").append(pages);
            if (page > 0) {
                sb.append(" <a href=\"/status?page=").append(page - 1).append("\">Previous</a>");
            }
            if (page + 1 < pages) {
                sb.append(" <a href=\"/status?page=").append(page + 1).append("\">Next</a>");
            }
            sb.append("</p>\n");
        }
        sb.append("<h2>Conversion</h2>\n<p>");
        String converting = converter.currentName();
        sb.append(converting == null ? "Nothing is being converted." : "Converting " + html(converting) + ".");
        sb.append(" Waiting: ").append(converter.waitingCount()).append("</p>\n</body></html>\n");
        return sb.toString();
    }

    private static void listFolders(StringBuilder sb, String title, List<LibraryFolders.Entry> entries, int page) {
        sb.append("<h2>").append(title).append("</h2>\n");
        if (entries.isEmpty()) {
            sb.append("<p>None.</p>\n");
            return;
        }
        int from = Math.min(entries.size(), page * STATUS_PAGE_ENTRIES);
        int to = Math.min(entries.size(), from + STATUS_PAGE_ENTRIES);
        if (entries.size() > STATUS_PAGE_ENTRIES) {
            sb.append("<p>").append(from + 1).append("&ndash;").append(to).append(" of ").append(entries.size())
                    .append("</p>\n");
        }
        sb.append("<ul>\n");
        for (LibraryFolders.Entry e : entries.subList(from, to)) {
            sb.append("<li>").append(html(e.name));
            if (e.type != null && !e.type.equals("DiskFolder")) {
                sb.append(" (playlist)");
            }
            if (e.location != null) {
                sb.append(" &mdash; ").append(html(e.location));
            }
            sb.append("</li>\n");
        }
        sb.append("</ul>\n");
    }

    static String html(String s) {
        if (s == null) {
            return "";
        }
        StringBuilder sb = new StringBuilder(s.length());
        for (int i = 0; i < s.length(); i++) {
            char c = s.charAt(i);
            switch (c) {
                case '<': sb.append("&lt;"); break;
                case '>': sb.append("&gt;"); break;
                case '&': sb.append("&amp;"); break;
                case '"': sb.append("&quot;"); break;
                default: sb.append(c);
            }
        }
        return sb.toString();
    }
}
