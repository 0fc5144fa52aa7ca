package com.brookfen.quillon.http;

import java.io.File;
import java.io.IOException;
import java.io.InputStream;
import java.net.URISyntaxException;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.Enumeration;
import java.util.HashMap;
import java.util.HexFormat;
import java.util.Locale;
import java.util.Map;
import java.util.jar.JarEntry;
import java.util.jar.JarFile;
import javax.servlet.http.HttpServlet;
import javax.servlet.http.HttpServletRequest;
import javax.servlet.http.HttpServletResponse;

/**
 * The web player's files, "web/" inside the server jar, read once into memory: a request
 * path only ever selects one of them. "/" is the player's index.html, or the status page
 * while the jar has no player.
 */
final class WebFiles extends HttpServlet {
    private static final long serialVersionUID = 1L;
    static final long MAX_TOTAL = 32L << 20;
    private static final Map<String, String> TYPES = Map.ofEntries(
            Map.entry("html", "text/html; charset=utf-8"), Map.entry("js", "text/javascript; charset=utf-8"),
            Map.entry("mjs", "text/javascript; charset=utf-8"), Map.entry("css", "text/css; charset=utf-8"),
            Map.entry("json", "application/json; charset=utf-8"), Map.entry("map", "application/json; charset=utf-8"),
            Map.entry("svg", "image/svg+xml"), Map.entry("png", "image/png"), Map.entry("jpg", "image/jpeg"),
            Map.entry("ico", "image/x-icon"), Map.entry("webmanifest", "application/manifest+json"),
            Map.entry("woff2", "font/woff2"), Map.entry("txt", "text/plain; charset=utf-8"));

    private record Page(byte[] bytes, String type, String etag) {
    }

    private final transient Site site;
    private final transient Map<String, Page> pages;

    WebFiles(Site site) {
        this.site = site;
        this.pages = load();
    }

    /**
     * Whether a request path is one of the web player's own files ("/" only while the jar has
     * the player). They hold nothing of the library, so they are served without the password:
     * the page can then tell the user that the server wants one.
     */
    boolean isPlayerFile(String path) {
        return pages.containsKey("/".equals(path) ? "/index.html" : path);
    }

    private static Map<String, Page> load() {
        Map<String, Page> found = new HashMap<>();
        File jar;
        try {
            jar = new File(WebFiles.class.getProtectionDomain().getCodeSource().getLocation().toURI());
        } catch (URISyntaxException | RuntimeException e) {
            return found;
        }
        if (!jar.isFile()) {
            return found;
        }
        long total = 0;
        try (JarFile file = new JarFile(jar)) {
            for (Enumeration<JarEntry> e = file.entries(); e.hasMoreElements();) {
                JarEntry entry = e.nextElement();
                String name = entry.getName();
                if (entry.isDirectory() || !name.startsWith("web/") || name.contains("..")) {
                    continue;
                }
                try (InputStream in = file.getInputStream(entry)) {
                    byte[] bytes = in.readNBytes((int) Math.min(MAX_TOTAL - total, Integer.MAX_VALUE - 8));
                    total += bytes.length;
                    found.put(name.substring(3), new Page(bytes, type(name), etag(bytes)));
                }
                if (total >= MAX_TOTAL) {
                    break;
                }
            }
        } catch (IOException | SecurityException e) {
            // no player files: the status page stands in
        }
        return found;
    }

    private static String type(String name) {
        int dot = name.lastIndexOf('.');
        String ext = dot < 0 ? "" : name.substring(dot + 1).toLowerCase(Locale.ROOT);
        return TYPES.getOrDefault(ext, "application/octet-stream");
    }

    private static String etag(byte[] bytes) {
        try {
            byte[] d = MessageDigest.getInstance("SHA-256").digest(bytes);
            return "\"" + HexFormat.of().formatHex(d, 0, 12) + "\"";
        } catch (NoSuchAlgorithmException e) {
            throw new IllegalStateException(e);
        }
    }

    @Override
    protected void doGet(HttpServletRequest request, HttpServletResponse response) throws IOException {
        String path = request.getServletPath() + (request.getPathInfo() == null ? "" : request.getPathInfo());
        Page page = pages.get(path.equals("/") ? "/index.html" : path);
        if (page == null) {
            if (path.equals("/") || path.equals("/index.html")) {
                Answers.text(request, response, HttpServletResponse.SC_OK, "text/html; charset=utf-8",
                        site.statusPage().apply(0));
            } else {
                Answers.notFound(request, response);
            }
            return;
        }
        response.setHeader("ETag", page.etag);
        response.setHeader("Cache-Control", "no-cache");
        String ifNoneMatch = request.getHeader("If-None-Match");
        if (ifNoneMatch != null && (ifNoneMatch.contains(page.etag) || ifNoneMatch.trim().equals("*"))) {
            response.setStatus(HttpServletResponse.SC_NOT_MODIFIED);
            return;
        }
        response.setStatus(HttpServletResponse.SC_OK);
        response.setContentType(page.type);
        response.setContentLength(page.bytes.length);
        if (!"HEAD".equals(request.getMethod())) {
            response.getOutputStream().write(page.bytes);
        }
    }

    @Override
    protected void doHead(HttpServletRequest request, HttpServletResponse response) throws IOException {
        doGet(request, response);
    }

    /** The status page at /status. */
    static final class Status extends HttpServlet {
        private static final long serialVersionUID = 1L;
        private final transient Site site;

        Status(Site site) {
            this.site = site;
        }

        @Override
        protected void doGet(HttpServletRequest request, HttpServletResponse response) throws IOException {
            response.setHeader("Cache-Control", "no-cache");
            int page = 0;
            String asked = request.getParameter("page");
            if (asked != null && asked.matches("\\d{1,7}")) {
                page = Integer.parseInt(asked);
            }
            Answers.text(request, response, HttpServletResponse.SC_OK, "text/html; charset=utf-8",
                    site.statusPage().apply(page));
        }

        @Override
        protected void doHead(HttpServletRequest request, HttpServletResponse response) throws IOException {
            doGet(request, response);
        }
    }

}
