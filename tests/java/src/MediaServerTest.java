import com.brookfen.quillon.common.control.ServerControl;
import com.brookfen.quillon.library.Library;
import com.brookfen.quillon.server.Json;
import java.io.*;
import java.net.*;
import java.net.http.*;
import java.nio.charset.StandardCharsets;
import java.security.MessageDigest;
import java.nio.file.*;
import java.util.*;
import java.util.concurrent.TimeUnit;

/**
 * The HTTP side of the server in-process: direct play against the file's bytes, the library
 * API over real folders, passwords on every route, paths that try to leave the shared
 * folders, and clients that never finish their request. Exits non-zero on any failure.
 */
@SuppressWarnings("unchecked")
public final class MediaServerTest extends Checks {
    static final String[] ROUTES = {"/status", "/api/library", "/api/sections/%s", "/media/%s",
            "/hls/%s/index.m3u8", "/hls/%s/0.ts", "/thumbnails/%s.jpg", "/subtitles/%s/0.vtt"};
    static Path app, shared, outside;
    static int port;

    public static void main(String[] args) throws Exception {
        Path root = tempFolder(ServerControl::quit);
        app = Files.createDirectories(root.resolve("app"));
        shared = Files.createDirectories(root.resolve("shared videos"));
        outside = Files.createDirectories(root.resolve("outside"));
        ServerControl.init(app.toString());
        ServerControl.setDefaultPort(0);
        runTests(() -> {
            port = ServerControl.startServer();
            check(port > 0, "server started");
        }, () -> {
            ServerControl.setPasswordDigest("");
            ServerControl.stopServer();
        }, MediaServerTest.class);
    }


    static HttpResponse<byte[]> send(String method, String path, String... headers) throws Exception {
        return send(port, method, path, headers);
    }

    static String header(HttpResponse<?> r, String name) {
        return r.headers().firstValue(name).orElse(null);
    }

    static String text(String path) throws Exception {
        return new String(send("GET", path).body(), StandardCharsets.UTF_8);
    }

    /** A GET that must answer with the status and the media type given (its parameters aside). */
    static HttpResponse<byte[]> expect(int status, String type, String path) throws Exception {
        HttpResponse<byte[]> r = send("GET", path);
        equal(status, r.statusCode(), "GET " + path);
        equal(type, header(r, "Content-Type").split(";")[0].trim(), "type of " + path);
        return r;
    }

    static Map<String, Object> json(String path) throws Exception {
        HttpResponse<byte[]> r = expect(200, "application/json", path);
        check(header(r, "Content-Type").contains("utf-8"), "JSON in UTF-8");
        return Json.parseObject(new String(r.body(), StandardCharsets.UTF_8));
    }

    static List<Map<String, Object>> list(Map<String, Object> doc, String key) {
        return (List<Map<String, Object>>) doc.get(key);
    }

    static List<Object> names(Map<String, Object> doc, String key) {
        return list(doc, key).stream().map(m -> m.get("name")).toList();
    }

    static List<Map<String, Object>> sections() throws Exception {
        return list(json("/api/library"), "sections");
    }

    static Map<String, Object> named(List<Map<String, Object>> list, String name) {
        return list.stream().filter(m -> name.equals(m.get("name"))).findFirst()
                .orElseThrow(() -> new AssertionError("no " + name + " in " + list.stream().map(m -> m.get("name")).toList()));
    }

    /** The document of the section shown under the given name. */
    static Map<String, Object> section(String name) throws Exception {
        return json("/api/sections/" + named(sections(), name).get("id"));
    }

    /** The raw status line's code for a request sent byte for byte as given (no client-side clean-up). */
    static int raw(String target) throws IOException {
        try (Socket s = new Socket(InetAddress.getLoopbackAddress(), port)) {
            s.setSoTimeout(5000);
            s.getOutputStream().write(("GET " + target + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n")
                    .getBytes(StandardCharsets.ISO_8859_1));
            String status = new BufferedReader(new InputStreamReader(s.getInputStream(), StandardCharsets.ISO_8859_1))
                    .readLine();
            return Integer.parseInt(status.split(" ")[1]);
        }
    }

    static void writeFolders(String... entries) throws IOException {
        Files.writeString(app.resolve("folders.txt"), "{\"folders\": [" + String.join(", ", entries) + "]}");
    }

    static String entry(String name, String type, Path location) {
        return "{\"name\": " + Json.quote(name) + ", \"type\": \"" + type + "\", \"id\": " + Json.quote(location.toString())
                + "}";
    }

    static void video(Path out, String seconds) throws Exception {
        ffmpeg("-f", "lavfi", "-i", "testsrc=duration=" + seconds + ":size=160x120:rate=10", "-c:v", "libx264",
                "-pix_fmt", "yuv420p", out.toString());
    }

    /** A shared folder with one large file of known bytes; returns the file's id. */
    static String sharedBigFile(Path big) throws Exception {
        if (!Files.exists(big)) {
            byte[] bytes = new byte[3 << 20];
            new Random(7).nextBytes(bytes);
            Files.write(Files.createDirectories(big.getParent()).resolve(big.getFileName()), bytes);
        }
        writeFolders(entry("Direct", "DiskFolder", big.getParent()));
        waitFor(() -> names(section("Direct"), "items").contains("big"), 5000, "the file listed");
        return (String) named(list(section("Direct"), "items"), "big").get("id");
    }

    static void testDirectPlayRangesAndValidators() throws Exception {
        Path big = shared.resolve("direct/big.mp4");
        String id = sharedBigFile(big);
        byte[] file = Files.readAllBytes(big);
        String media = "/media/" + id;

        HttpResponse<byte[]> full = expect(200, "video/mp4", media);
        check(Arrays.equals(file, full.body()), "whole file bytes");
        equal("bytes", header(full, "Accept-Ranges"), "ranges offered");
        String etag = header(full, "ETag"), modified = header(full, "Last-Modified");
        check(etag != null && etag.startsWith("\"") && modified != null, "strong ETag and Last-Modified");

        long n = file.length;
        // first-last, open-ended, suffix, one crossing the end; each against the file's own bytes
        long[][] ranges = {{5, 1000004}, {n - 10, n - 1}, {2 << 20, -1}, {-1, 700}, {n - 3, n + 50}};
        for (long[] r : ranges) {
            String range = r[0] < 0 ? "-" + r[1] : r[0] + "-" + (r[1] < 0 ? "" : r[1]);
            HttpResponse<byte[]> part = send("GET", media, "Range", "bytes=" + range);
            long first = r[0] < 0 ? n - r[1] : r[0];
            long last = r[1] < 0 || r[0] < 0 || r[1] >= n ? n - 1 : r[1];
            equal(206, part.statusCode(), "range " + range);
            equal("bytes " + first + "-" + last + "/" + n, header(part, "Content-Range"), "Content-Range of " + range);
            check(Arrays.equals(Arrays.copyOfRange(file, (int) first, (int) last + 1), part.body()), "bytes of " + range);
        }
        HttpResponse<byte[]> beyond = send("GET", media, "Range", "bytes=" + n + "-");
        equal(416, beyond.statusCode(), "range past the end");
        equal("bytes */" + n, header(beyond, "Content-Range"), "416 names the length");
        equal("0", header(beyond, "Content-Length"), "416 has no body");

        HttpResponse<byte[]> head = send("HEAD", media, "Range", "bytes=0-99");
        equal(206, head.statusCode(), "HEAD of a range");
        equal("100", header(head, "Content-Length"), "HEAD length");
        equal(String.valueOf(n), header(send("HEAD", media), "Content-Length"), "HEAD of the whole file");

        equal(304, send("GET", media, "If-None-Match", etag).statusCode(), "unchanged by ETag");
        equal(304, send("GET", media, "If-Modified-Since", modified).statusCode(), "unchanged by date");
        equal(200, send("GET", media, "If-None-Match", "\"other\"").statusCode(), "changed by ETag");
        equal(206, send("GET", media, "Range", "bytes=0-9", "If-Range", etag).statusCode(), "If-Range same ETag");
        equal(206, send("GET", media, "Range", "bytes=0-9", "If-Range", modified).statusCode(), "If-Range same date");
        HttpResponse<byte[]> stale = send("GET", media, "Range", "bytes=0-9", "If-Range", "\"stale\"");
        equal(200, stale.statusCode(), "If-Range with another ETag sends the whole file");
        equal(n, (long) stale.body().length, "whole file after a stale If-Range");

        // A new version of the file: new validator, and the old one no longer matches.
        Files.write(big, Arrays.copyOf(file, file.length - 1));
        Files.setLastModifiedTime(big, java.nio.file.attribute.FileTime.fromMillis(System.currentTimeMillis() + 5000));
        HttpResponse<byte[]> changed = send("GET", media, "If-None-Match", etag);
        equal(200, changed.statusCode(), "changed file served again");
        equal(n - 1, (long) changed.body().length, "changed file's length");
        check(!etag.equals(header(changed, "ETag")), "changed file has another ETag");
        Files.write(big, file);
    }

    static String basic(String user, String password) {
        return "Basic " + Base64.getEncoder().encodeToString((user + ":" + password).getBytes(StandardCharsets.UTF_8));
    }

    static String sha1Hex(String text) throws Exception {
        byte[] digest = MessageDigest.getInstance("SHA-1").digest(text.getBytes(StandardCharsets.UTF_8));
        return HexFormat.of().withUpperCase().formatHex(digest);
    }

    static void testPasswordOnEveryRoute() throws Exception {
        String id = sharedBigFile(shared.resolve("direct/big.mp4"));
        ServerControl.setPasswordDigest(sha1Hex("Q#48p\u00e4ss:x&5m"));
        String good = basic("anyone", "p\u00e4ss:x"), bad = basic("u", "pass:x");
        for (String route : ROUTES) {
            String path = String.format(route, id);
            for (String method : new String[] {"GET", "HEAD"}) {
                HttpResponse<byte[]> none = send(method, path);
                equal(401, none.statusCode(), method + " " + path + " without a password");
                equal("Basic realm=\"Quillon Server\", charset=\"UTF-8\"", header(none, "WWW-Authenticate"), "realm");
                equal(401, send(method, path, "Authorization", bad).statusCode(), method + " " + path + " wrong password");
            }
            check(send("GET", path, "Authorization", good).statusCode() != 401, path + " with the password");
        }
        equal(206, send("GET", "/media/" + id, "Authorization", good, "Range", "bytes=0-0").statusCode(), "media with it");
        // The web player's own files hold no library data: they load without it, so that the
        // page can say a password is needed; anything else there still asks.
        for (String path : new String[] {"/", "/index.html", "/app.js", "/style.css"})
            equal(200, send("GET", path).statusCode(), path + " of the web player without a password");
        equal(401, send("POST", "/").statusCode(), "POST / without a password");
        equal(401, send("GET", "/nothing.js").statusCode(), "an unknown file without a password");
        // An empty password has the unsalted digest of nothing; no digest asks for none.
        ServerControl.setPasswordDigest(sha1Hex(""));
        equal(200, send("GET", "/status", "Authorization", basic("me", "")).statusCode(), "empty password");
        equal(401, send("GET", "/status", "Authorization", basic("me", "x")).statusCode(), "a password against none");
        ServerControl.setPasswordDigest(null);
        equal(200, send("GET", "/status").statusCode(), "no digest, no password");
    }

    static void testPathsNeverLeaveTheSharedFolders() throws Exception {
        Path dir = Files.createDirectories(shared.resolve("safe"));
        Path secret = Files.writeString(outside.resolve("secret.mp4"), "outside bytes");
        Files.writeString(dir.resolve("inside.mp4"), "inside bytes");
        Files.createSymbolicLink(dir.resolve("escape.mp4"), secret);
        Files.createSymbolicLink(dir.resolve("alias.mp4"), dir.resolve("inside.mp4"));
        Files.createSymbolicLink(dir.resolve("outdir"), outside);
        Files.writeString(dir.resolve("swapped.mp4"), "will become a link");
        writeFolders(entry("Safe", "DiskFolder", dir));
        waitFor(() -> list(section("Safe"), "items").size() == 3, 5000, "the safe folder listed");
        Map<String, Object> listing = section("Safe");
        equal(List.of("alias", "inside", "swapped"), names(listing, "items"), "links out of the folder are not listed");
        check(list(listing, "items").stream().allMatch(i -> ((String) i.get("id")).matches("[0-9a-f]{20}")), "opaque ids");
        check(list(listing, "folders").isEmpty(), "a linked folder is not entered");
        String text = text("/api/sections/" + listing.get("id"));
        check(!text.contains(dir.toString()) && !text.contains("outside"), "no paths in the API: " + text);

        String swapped = (String) named(list(listing, "items"), "swapped").get("id");
        equal(200, send("GET", "/media/" + swapped).statusCode(), "listed file served");
        Files.delete(dir.resolve("swapped.mp4"));
        Files.createSymbolicLink(dir.resolve("swapped.mp4"), secret);
        equal(404, send("GET", "/media/" + swapped).statusCode(), "a file swapped for a link out is refused");
        equal(200, send("GET", "/media/" + named(list(listing, "items"), "alias").get("id")).statusCode(),
                "a link inside the folder is served");

        String[] attempts = {"/media/" + secret, "/media/..%2F..%2Foutside%2Fsecret.mp4", "/media/../../etc/passwd",
                "/media/%2e%2e/%2e%2e/etc/passwd", "/media/" + "0".repeat(20), "/media/ABCDEF", "/../../../etc/passwd",
                "/web/../../../../etc/passwd", "/%2e%2e/%2e%2e/etc/passwd", "/api/sections/..%2F..%2F..%2Fetc%2Fpasswd",
                "/thumbnails/../media/x.jpg", "/subtitles/" + "0".repeat(20) + "/0.vtt", "/hls/" + "f".repeat(20) + "/0.ts",
                "/media/" + swapped + "/../../../etc/passwd", "/" + secret};
        for (String target : attempts) {
            int status = raw(target);
            check(status == 404 || status == 400, target + " refused, got " + status);
        }
    }

    static void testLibraryWalkPlaylistsAndChanges() throws Exception {
        Path movies = Files.createDirectories(shared.resolve("movies"));
        video(movies.resolve("Clip One.mp4"), "1");
        Files.copy(movies.resolve("Clip One.mp4"), Files.createDirectories(movies.resolve("deep/deeper")).resolve("b.mkv"));
        Files.writeString(movies.resolve("notes.txt"), "not a video");
        Files.createDirectories(movies.resolve("empty/also empty"));
        Files.writeString(Files.createDirectories(movies.resolve(".hidden")).resolve("h.mp4"), "x");
        Path music = Files.createDirectories(app.getParent().resolve("Music"));
        Path playlist = music.resolve("Trip.m3u");
        Files.writeString(playlist, "#EXTM3U\n#EXTINF:1,one\n../shared videos/movies/Clip One.mp4\r\n"
                + movies.resolve("deep/deeper/b.mkv") + "\n" + movies.resolve("notes.txt") + "\nmissing.mp4\n"
                + "http://example.invalid/stream.mp4\n");
        Path converted = Files.createDirectories(app.resolve("Converted"));
        writeFolders(entry("Movies", "DiskFolder", movies), entry("Trip", "iTunesPlaylist", playlist));

        waitFor(() -> names(json("/api/library"), "sections").equals(List.of("Movies", "Trip", "Converted")), 5000,
                "three sections in order");
        Map<String, Object> lib = json("/api/library");
        List<Map<String, Object>> sections = list(lib, "sections");
        equal(List.of("folder", "playlist", "converted"), sections.stream().map(s -> s.get("kind")).toList(), "kinds");
        equal(List.of(2.0, 2.0, 0.0), sections.stream().map(s -> s.get("count")).toList(), "counts");
        check(lib.get("style") instanceof Map && ((Map<?, ?>) lib.get("style")).get("fontSize") instanceof Double, "style");

        Map<String, Object> top = json("/api/sections/" + sections.get(0).get("id"));
        equal(List.of("deep"), names(top, "folders"), "empty and hidden left out");
        Map<String, Object> clip = named(list(top, "items"), "Clip One");
        equal(List.of("id", "name", "size", "duration", "width", "height", "videoCodec", "audioCodec", "directPlay",
                "stream", "hls", "thumbnail", "subtitles"), new ArrayList<>(clip.keySet()), "item members");
        String clipId = (String) clip.get("id");
        equal(List.of("/media/" + clipId, "/hls/" + clipId + "/index.m3u8", "/thumbnails/" + clipId + ".jpg"),
                List.of(clip.get("stream"), clip.get("hls"), clip.get("thumbnail")), "stream, hls and thumbnail urls");
        equal((double) Files.size(movies.resolve("Clip One.mp4")), clip.get("size"), "size");
        equal(Boolean.TRUE, clip.get("directPlay"), "mp4 plays directly");
        String deep = (String) list(top, "folders").get(0).get("id"), moviesPath = "/api/sections/" + top.get("id") + "/";
        Map<String, Object> deepDoc = json(moviesPath + deep);
        equal(List.of("deeper"), names(deepDoc, "folders"), "any depth");
        String deeper = (String) list(deepDoc, "folders").get(0).get("id");
        equal(List.of("b"), names(json(moviesPath + deeper), "items"), "video two levels down");
        equal(404, send("GET", "/api/sections/" + sections.get(1).get("id") + "/" + deep).statusCode(),
                "a folder only under its own section");

        Map<String, Object> trip = json("/api/sections/" + sections.get(1).get("id"));
        equal(List.of("Clip One", "b"), names(trip, "items"),
                "playlist tracks in order, relative and absolute, missing and non-video left out");
        equal(clipId, list(trip, "items").get(0).get("id"), "the same file has the same id everywhere");
        equal(206, send("GET", "/media/" + clipId, "Range", "bytes=0-1").statusCode(), "playlist track served");

        // Changes are picked up without a restart.
        video(converted.resolve("done.mp4"), "1");
        Files.copy(movies.resolve("Clip One.mp4"), movies.resolve("deep/new.mp4"));
        waitFor(() -> sections().get(0).get("count").equals(3.0) && sections().get(2).get("count").equals(1.0), 5000,
                "new files counted");
        Files.writeString(playlist, "../shared videos/movies/deep/new.mp4\n");
        waitFor(() -> names(section("Trip"), "items").equals(List.of("new")), 5000, "the edited playlist");

        // Ids survive a new scan from nothing (a restart).
        try (Library fresh = new Library(app)) {
            check(fresh.snapshot().item(clipId) != null, "stable id across restarts");
            check(fresh.snapshot().section((String) sections.get(1).get("id")) != null, "stable section id");
        }

        // A folders file that is not UTF-8 is unreadable, as the controller reads it: no shared sections.
        byte[] good = Files.readAllBytes(app.resolve("folders.txt"));
        byte[] broken = Arrays.copyOf(good, good.length);
        broken[good.length - 8] = (byte) 0xff;
        Files.write(app.resolve("folders.txt"), broken);
        waitFor(() -> sections().stream().map(s -> s.get("kind")).toList().equals(List.of("converted")), 5000,
                "only the converted section");
        check(!text("/status").contains("Movies"), "the status page shows no folders either");
        // Saved as the controller saves: a new file renamed over the old one.
        Path saved = Files.write(app.resolve("folders.txt.Ab12Cd"), good);
        Files.move(saved, app.resolve("folders.txt"), StandardCopyOption.ATOMIC_MOVE, StandardCopyOption.REPLACE_EXISTING);
        waitFor(() -> sections().size() == 3, 5000, "sections back after a rename-style save");

        // A folder renamed in the file (escapes in the name) keeps its section and id, with the new name.
        String renamed = "Films \"HD\" \u00e9t\u00e9\\n";
        writeFolders(entry(renamed, "DiskFolder", movies), entry("Trip", "iTunesPlaylist", playlist));
        waitFor(() -> sections().get(0).get("name").equals(renamed), 5000, "the new name shown");
        equal(sections.get(0).get("id"), sections().get(0).get("id"), "same section id");
    }

    /** The media routes answer through the media services: metadata filled in later, HLS, thumbnail, WebVTT, 503. */
    static void testMediaRoutes() throws Exception {
        Path dir = Files.createDirectories(shared.resolve("routes"));
        for (String name : new String[] {"a", "b", "c"})
            video(dir.resolve(name + ".mkv"), "2");
        Files.writeString(dir.resolve("a.srt"), "1\n00:00:00,500 --> 00:00:01,500\nHello\n", StandardCharsets.UTF_8);
        ServerControl.setConverterFFMpegPath("/usr/bin/ffmpeg");
        writeFolders(entry("Routes", "DiskFolder", dir));
        waitFor(() -> list(section("Routes"), "items").stream().allMatch(i -> i.get("duration") != null)
                && list(section("Routes"), "items").size() == 3, 15000, "metadata probed in the background");
        List<Map<String, Object>> items = list(section("Routes"), "items");
        Map<String, Object> a = named(items, "a");
        equal(160.0, a.get("width"), "width from ffprobe");
        equal("h264", a.get("videoCodec"), "codec from ffprobe");
        equal(List.of("/subtitles/" + a.get("id") + "/0.vtt"), list(a, "subtitles").stream().map(t -> t.get("url")).toList(),
                "the sidecar listed with its url");

        String text = new String(expect(200, "text/vtt", "/subtitles/" + a.get("id") + "/0.vtt").body(), StandardCharsets.UTF_8);
        check(text.startsWith("WEBVTT") && text.contains("Hello"), "WebVTT text: " + text);
        equal(404, send("GET", "/subtitles/" + a.get("id") + "/1.vtt").statusCode(), "no second track");

        HttpResponse<byte[]> jpeg = expect(200, "image/jpeg", "/thumbnails/" + a.get("id") + ".jpg");
        check(jpeg.body().length > 100 && (jpeg.body()[0] & 0xff) == 0xff && (jpeg.body()[1] & 0xff) == 0xd8, "a JPEG");

        HttpResponse<byte[]> m3u8 = expect(200, "application/vnd.apple.mpegurl", "/hls/" + a.get("id") + "/index.m3u8");
        check(new String(m3u8.body(), StandardCharsets.UTF_8).contains("0.ts"), "relative segment names");
        HttpResponse<byte[]> ts = expect(200, "video/mp2t", "/hls/" + a.get("id") + "/0.ts");
        check(ts.body().length > 188 && ts.body()[0] == 0x47, "an MPEG-TS segment");
        equal(404, send("GET", "/hls/" + a.get("id") + "/999.ts").statusCode(), "segment past the end");

        equal(200, send("GET", "/hls/" + named(items, "b").get("id") + "/index.m3u8").statusCode(), "second conversion");
        HttpResponse<byte[]> busy = send("GET", "/hls/" + named(items, "c").get("id") + "/0.ts");
        equal(503, busy.statusCode(), "a third conversion waits");
        equal("10", header(busy, "Retry-After"), "retry advice");
        ServerControl.stopServer();
        port = ServerControl.startServer();
        equal(200, send("GET", "/hls/" + named(items, "c").get("id") + "/0.ts").statusCode(), "room again after a stop");
    }

    /** A large folder file is shown a page at a time, and the API streams every section. */
    static void testLargeFolderFilesArePaged() throws Exception {
        String[] entries = new String[450];
        for (int i = 0; i < entries.length; i++)
            entries[i] = entry("Entry " + i + ";", "DiskFolder", shared.resolve("missing " + i));
        writeFolders(entries);
        waitFor(() -> sections().stream().filter(s -> s.get("kind").equals("folder")).count() == 450, 5000,
                "450 sections in the API");
        String first = text("/status");
        check(first.contains("1&ndash;200 of 450") && first.contains("Entry 199;") && !first.contains("Entry 200;")
                && first.contains("/status?page=1"), "first page of 200: " + first.length());
        String last = text("/status?page=2");
        check(last.contains("Entry 449;") && !last.contains("Entry 399;") && last.contains("Page 3 of 3"), "last page");
        check(text("/status?page=99").contains("Entry 449;"), "a page past the end shows the last");
        writeFolders();
    }

    /** A shared folder made after it was shared appears without waiting for the slow rescan; Latin-1 playlists read. */
    static void testLateFolderAndLatin1Playlist() throws Exception {
        Path late = shared.resolve("late/later");
        Path list = Files.createDirectories(shared.resolve("lists")).resolve("old.m3u");
        Files.writeString(Files.createDirectories(shared.resolve("lists")).resolve("Caf\u00e9.mp4"), "x");
        Files.write(list, "Caf\u00e9.mp4\n".getBytes(StandardCharsets.ISO_8859_1));
        writeFolders(entry("Late", "DiskFolder", late), entry("Old", "iTunesPlaylist", list));
        waitFor(() -> names(json("/api/library"), "sections").containsAll(List.of("Late", "Old")), 5000, "both sections");
        equal(0.0, named(sections(), "Late").get("count"), "nothing there yet");
        equal(List.of("Caf\u00e9"), names(section("Old"), "items"), "a Latin-1 playlist entry");
        Files.createDirectories(late);
        Files.writeString(late.resolve("v.webm"), "x");
        waitFor(() -> named(sections(), "Late").get("count").equals(1.0), 8000, "the folder made after sharing it");
    }

    /** Whether the server closes the connection (end of stream or a reset) before the deadline. */
    static boolean closedBy(Socket s, long deadline) throws IOException {
        s.setSoTimeout((int) Math.max(1, deadline - System.currentTimeMillis()));
        try {
            return s.getInputStream().read() == -1;
        } catch (SocketTimeoutException e) {
            return false;
        } catch (IOException e) {
            return true;
        }
    }

    static void testSilentAndSlowClientsBlockNobody() throws Exception {
        List<Socket> half = new ArrayList<>();
        equal(200, send("GET", "/status").statusCode(), "a first request");
        try {
            // 50 silent, one trickling, and one kept alive after a whole request.
            for (int i = 0; i <= 51; i++) {
                half.add(new Socket(InetAddress.getLoopbackAddress(), port));
                half.get(i).getOutputStream().write(("GET /status HTTP/1.1\r\nHost: x\r\n" + (i < 51 ? "X-Half: " : "\r\n"))
                        .getBytes(StandardCharsets.US_ASCII));
            }
            long start = System.nanoTime();
            equal(200, send("GET", "/status").statusCode(), "a normal request among them");
            long millis = TimeUnit.NANOSECONDS.toMillis(System.nanoTime() - start);
            check(millis < 1000, "answered within a second, took " + millis + " ms");

            // The trickling client keeps sending, so only the header deadline ends it.
            long limit = Long.getLong("quillon.http.idle.ms") + 2 * Long.getLong("quillon.http.header.ms") + 2000;
            long end = System.currentTimeMillis() + limit;
            waitFor(() -> {
                try {
                    half.get(50).getOutputStream().write('x');
                    Thread.sleep(200);
                    return false;
                } catch (IOException e) {
                    return true;
                }
            }, limit, "a trickling header to be cut off");
            for (Socket s : half.subList(0, 50))
                check(closedBy(s, end), "a half-sent request closed without an answer within " + limit + " ms");
            half.get(51).setSoTimeout((int) Math.max(1, end - System.currentTimeMillis()));
            String answer = new String(half.get(51).getInputStream().readAllBytes(), StandardCharsets.US_ASCII);
            check(answer.startsWith("HTTP/1.1 200"), "an idle kept-alive connection answered, then closed");
        } finally {
            for (Socket s : half)
                s.close();
        }
    }
}
