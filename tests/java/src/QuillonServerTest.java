import com.brookfen.quillon.common.control.Encoding;
import com.brookfen.quillon.common.control.RemoteManagerControl;
import com.brookfen.quillon.common.control.RemoteManagerState;
import com.brookfen.quillon.common.control.ServerControl;
import com.brookfen.quillon.server.Json;
import com.brookfen.quillon.server.LogBook;

import java.io.BufferedReader;
import java.io.File;
import java.io.IOException;
import java.io.InputStream;
import java.io.InputStreamReader;
import java.lang.reflect.Method;
import java.net.ConnectException;
import java.net.HttpURLConnection;
import java.net.InetAddress;
import java.net.Proxy;
import java.net.ServerSocket;
import java.net.URL;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.security.MessageDigest;
import java.text.Collator;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Base64;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.function.BooleanSupplier;

/**
 * Drives the server's control classes the way the controller does, without the C++ host:
 * every test method is run, failures are listed, and the exit status is non-zero on any.
 */
public final class QuillonServerTest {
    private static final String IDLE_QUEUE = "{\"conversion\": {\"queue\": []}}";
    private static Path appFolder;
    private static int failures;

    public static void main(String[] args) throws Exception {
        appFolder = Files.createTempDirectory("quillon-server-test");
        ServerControl.init(appFolder.toString());
        Method[] methods = QuillonServerTest.class.getDeclaredMethods();
        Arrays.sort(methods, (a, b) -> a.getName().compareTo(b.getName()));
        for (Method m : methods) {
            if (!m.getName().startsWith("test")) {
                continue;
            }
            long t0 = System.nanoTime();
            try {
                m.invoke(null);
                System.out.printf("PASS %s (%d ms)%n", m.getName(), (System.nanoTime() - t0) / 1000000);
            } catch (java.lang.reflect.InvocationTargetException e) {
                failures++;
                System.out.println("FAIL " + m.getName() + ": " + e.getCause());
                e.getCause().printStackTrace(System.out);
            } finally {
                ServerControl.setPasswordDigest("");
                ServerControl.stopServer();
            }
        }
        System.out.println(failures == 0 ? "All tests passed" : failures + " test(s) failed");
        System.exit(failures == 0 ? 0 : 1);
    }

    // ---- helpers ----

    static void check(boolean condition, String what) {
        if (!condition) {
            throw new AssertionError(what);
        }
    }

    static void equal(Object expected, Object actual, String what) {
        if (expected == null ? actual != null : !expected.equals(actual)) {
            throw new AssertionError(what + ": expected <" + expected + "> but was <" + actual + ">");
        }
    }

    static void waitFor(BooleanSupplier condition, long millis, String what) throws InterruptedException {
        long end = System.currentTimeMillis() + millis;
        while (!condition.getAsBoolean()) {
            if (System.currentTimeMillis() > end) {
                throw new AssertionError("timed out waiting for " + what);
            }
            Thread.sleep(20);
        }
    }

    static final class Response {
        int status;
        String body = "";
        String authenticate;
    }

    static Response get(int port, String path, String user, String password) throws IOException {
        URL url = new URL("http", "127.0.0.1", port, path);
        HttpURLConnection c = (HttpURLConnection) url.openConnection(Proxy.NO_PROXY);
        c.setConnectTimeout(3000);
        c.setReadTimeout(3000);
        if (password != null) {
            String token = Base64.getEncoder().encodeToString((user + ":" + password).getBytes(StandardCharsets.UTF_8));
            c.setRequestProperty("Authorization", "Basic " + token);
        }
        Response r = new Response();
        r.status = c.getResponseCode();
        r.authenticate = c.getHeaderField("WWW-Authenticate");
        InputStream in = r.status < 400 ? c.getInputStream() : c.getErrorStream();
        if (in != null) {
            r.body = new String(in.readAllBytes(), StandardCharsets.UTF_8);
            in.close();
        }
        c.disconnect();
        return r;
    }

    static boolean refuses(int port) {
        try {
            get(port, "/", null, null);
            return false;
        } catch (ConnectException e) {
            return true;
        } catch (IOException e) {
            return false;
        }
    }

    static int freePort() throws IOException {
        try (ServerSocket s = new ServerSocket(0, 1, InetAddress.getLoopbackAddress())) {
            return s.getLocalPort();
        }
    }

    static String sha1Hex(String text) throws Exception {
        StringBuilder sb = new StringBuilder();
        for (byte b : MessageDigest.getInstance("SHA-1").digest(text.getBytes(StandardCharsets.UTF_8))) {
            sb.append(String.format("%02X", b));
        }
        return sb.toString();
    }

    static void write(Path file, String text) throws IOException {
        Files.createDirectories(file.getParent());
        Files.write(file, text.getBytes(StandardCharsets.UTF_8));
    }

    @SuppressWarnings("unchecked")
    static Map<String, Object> conversion() {
        String doc = ServerControl.getConverterQueueAsJSON();
        Map<String, Object> top = Json.parseObject(doc);
        check(top != null, "queue document parses: " + doc);
        check(top.get("conversion") instanceof Map, "\"conversion\" is an object: " + doc);
        return (Map<String, Object>) top.get("conversion");
    }

    // ---- tests ----

    static void testStartStopAndStatusPage() throws Exception {
        write(appFolder.resolve("folders.txt"), "{\"folders\": [{\"name\": \"Movies <HD>\", \"type\": \"DiskFolder\","
                + " \"id\": \"/srv/movies\", \"folderId\": \"1\"}, {\"name\": \"Road trip\", \"type\": \"iTunesPlaylist\","
                + " \"id\": \"/home/u/Music/road.m3u\", \"folderId\": \"2\"}]}");
        write(appFolder.resolve("conversion-folders.txt"), "not json at all");
        ServerControl.setComputerName("Box & \"Co\"");
        ServerControl.setDefaultPort(0);
        check(!ServerControl.serverRunning(), "stopped before the start");
        int port = ServerControl.startServer();
        check(port > 0, "start returns the bound port, got " + port);
        check(ServerControl.serverRunning(), "running after the start");
        equal(port, ServerControl.startServer(), "a second start keeps the port");

        Response r = get(port, "/", null, null);
        equal(200, r.status, "status page");
        check(r.body.contains("running on port " + port), "page shows the port: " + r.body);
        check(r.body.contains("Box &amp; &quot;Co&quot;"), "page shows the escaped computer name");
        check(r.body.contains("Movies &lt;HD&gt;") && r.body.contains("/srv/movies"), "page lists shared folders");
        check(r.body.contains("Road trip (playlist)"), "page marks playlists");
        equal(404, get(port, "/nothing-here", null, null).status, "unknown path");

        ServerControl.stopServer();
        check(!ServerControl.serverRunning(), "stopped after stopServer");
        check(refuses(port), "port closed after stopServer");
        ServerControl.stopServer(); // a second stop is harmless

        int again = ServerControl.startServer();
        check(again > 0 && ServerControl.serverRunning(), "restart after a stop");
        check(ServerControl.getLog("remote").contains("Server stopped"), "stop logged");
        ServerControl.quit();
        check(!ServerControl.serverRunning() && refuses(again), "quit stops the server");
    }

    static void testPortConflictAndPortChanges() throws Exception {
        try (ServerSocket taken = new ServerSocket(0, 1, InetAddress.getByName("127.0.0.1"))) {
            ServerControl.setDefaultPort(taken.getLocalPort());
            equal(-1, ServerControl.startServer(), "start on a taken port");
            check(!ServerControl.serverRunning(), "not running after a failed start");
            check(ServerControl.getLog("remote").contains("port " + taken.getLocalPort() + " is in use"),
                    "conflict logged");

            ServerControl.setDefaultPort(0);
            int p1 = ServerControl.startServer();
            check(p1 > 0, "started on a free port");
            // A running server moves to a new free port, and stays put when the new one is taken.
            int p2 = freePort();
            ServerControl.setDefaultPort(p2);
            equal(p2, ServerControl.getServerPort(), "moved to the new port");
            equal(200, get(p2, "/", null, null).status, "answers on the new port");
            check(refuses(p1), "old port closed");
            ServerControl.setDefaultPort(taken.getLocalPort());
            equal(p2, ServerControl.getServerPort(), "kept the port when the new one is taken");
            equal(200, get(p2, "/", null, null).status, "still answers");
        }
        ServerControl.setDefaultPort(4242);
        ServerControl.setDefaultPort(-1);
        ServerControl.setDefaultPort(65536);
        equal(4242, ServerControl.getDefaultPort(), "out-of-range ports refused");
    }

    static void testPasswordDigest() throws Exception {
        ServerControl.setDefaultPort(0);
        int port = ServerControl.startServer();
        ServerControl.setPasswordDigest(sha1Hex("Q#48s3cr\u00e9t:x&5m"));
        Response r = get(port, "/", null, null);
        equal(401, r.status, "no credentials");
        check(r.authenticate != null && r.authenticate.startsWith("Basic"), "asks for Basic credentials");
        equal(401, get(port, "/", "me", "wrong").status, "wrong password");
        equal(401, get(port, "/nothing-here", "me", "wrong").status, "every path is protected");
        equal(200, get(port, "/", "anyone", "s3cr\u00e9t:x").status, "right password, any user name");

        ServerControl.setPasswordDigest(sha1Hex("Q#48s3cr\u00e9t:x&5m").toLowerCase(Locale.ROOT));
        equal(200, get(port, "/", "me", "s3cr\u00e9t:x").status, "digest case does not matter");

        // An empty password has the unsalted digest of nothing.
        ServerControl.setPasswordDigest(sha1Hex(""));
        equal(200, get(port, "/", "me", "").status, "empty password");
        equal(401, get(port, "/", "me", "x").status, "non-empty password against the empty one");

        ServerControl.setPasswordDigest(null);
        equal(200, get(port, "/", null, null).status, "no digest, no password");
        equal("", ServerControl.getPasswordDigest(), "null digest reads as none");
    }

    static void testLogsKeptClearedAndBounded() {
        for (String id : Arrays.asList("subtitles", "remote", "thumbnail", "conversion", "live-conversion")) {
            check(ServerControl.getLog(id) != null, "log " + id + " exists");
        }
        check(ServerControl.getLog("thumbnail").contains("Maximum thumbnail width: 300"), "thumbnail width logged");
        ServerControl.setFontSize(31);
        ServerControl.setConverterFFMpegPath("/nowhere/ffmpeg");
        check(ServerControl.getLog("subtitles").contains("Font size: 31"), "subtitle setting logged");
        check(ServerControl.getLog("live-conversion").contains("/nowhere/ffmpeg"), "converter setting logged");
        ServerControl.clearLog("subtitles");
        equal("", ServerControl.getLog("subtitles"), "cleared log is empty");
        check(!ServerControl.getLog("live-conversion").isEmpty(), "other logs untouched");
        equal(null, ServerControl.getLog("no-such-log"), "unknown log");
        equal(null, ServerControl.getLog(null), "null log id");
        ServerControl.clearLog(null);
        ServerControl.clearLog("no-such-log");

        LogBook small = new LogBook(1000);
        for (int i = 0; i < 500; i++) {
            small.append("remote", "line " + i);
        }
        String text = small.get("remote");
        check(text.length() <= 1000, "log bounded, was " + text.length());
        check(text.endsWith(" line 499\n"), "newest line kept");
        check(!text.contains(" line 0\n"), "oldest line dropped");
        check(text.matches("(?s)\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d line \\d+\n.*"), "starts on a whole line");
        small.append("remote", "x".repeat(5000));
        check(small.get("remote").length() <= 1000, "an overlong line is cut too");
    }

    @SuppressWarnings("unchecked")
    /** The names and JNI signatures the controller binds to, checked as the JVM would. */
    static void testControlClassesCarryTheContract() throws Exception {
        String[][] contract = {
            {"ServerControl", "startServer", "()I"}, {"ServerControl", "stopServer", "()V"},
            {"ServerControl", "quit", "()V"}, {"ServerControl", "serverRunning", "()Z"},
            {"ServerControl", "initialized", "()V"}, {"ServerControl", "setDefaultPort", "(I)V"},
            {"ServerControl", "setConverterMaxWidth", "(I)V"}, {"ServerControl", "setConverterMaxHeight", "(I)V"},
            {"ServerControl", "converterResetQueue", "()V"},
            {"ServerControl", "setComputerName", "(Ljava/lang/String;)V"},
            {"ServerControl", "setPasswordDigest", "(Ljava/lang/String;)V"},
            {"ServerControl", "setConverterFFMpegPath", "(Ljava/lang/String;)V"},
            {"ServerControl", "setConverterFaacPath", "(Ljava/lang/String;)V"},
            {"ServerControl", "setConverterMuxerPath", "(Ljava/lang/String;)V"},
            {"ServerControl", "setFontSize", "(I)V"},
            {"ServerControl", "setDisableEmbeddedSubtitlesIfNoLanguageMatches", "(Z)V"},
            {"ServerControl", "getDefaultCharset", "()Ljava/lang/String;"},
            {"ServerControl", "setDefaultCharset", "(Ljava/lang/String;)V"},
            {"ServerControl", "getFontFamilyName", "()Ljava/lang/String;"},
            {"ServerControl", "setFontFamilyName", "(Ljava/lang/String;)V"},
            {"ServerControl", "getAvailableEncodings", "()Ljava/util/List;"},
            {"ServerControl", "getAvailableFontFamilyNames", "()Ljava/util/List;"},
            {"ServerControl", "getAvailableLanguages", "()Ljava/util/List;"},
            {"ServerControl", "setPreferredLanguages", "([Ljava/lang/String;)V"},
            {"ServerControl", "getLog", "(Ljava/lang/String;)Ljava/lang/String;"},
            {"ServerControl", "clearLog", "(Ljava/lang/String;)V"},
            {"ServerControl", "getLastConversionLog", "()Ljava/lang/String;"},
            {"ServerControl", "getConverterQueueAsJSON", "()Ljava/lang/String;"},
            {"ServerControl", "init", "(Ljava/lang/String;)V"},
            {"RemoteManagerControl", "setEnableRemote", "(Z)V"},
            {"RemoteManagerControl", "setEnablePortMapping", "(Z)V"},
            {"RemoteManagerControl", "retry", "()V"}, {"RemoteManagerControl", "testConnection", "()V"},
            {"RemoteManagerControl", "getState", "()Lcom/brookfen/quillon/common/control/RemoteManagerState;"},
            {"RemoteManagerControl", "init", "(ZZ)V"},
            {"RemoteManagerControl", "update", "()V", "native"},
            {"RemoteManagerControl", "connectionTestEnded", "(Z)V", "native"},
        };
        for (String[] c : contract) {
            Class<?> cls = Class.forName("com.brookfen.quillon.common.control." + c[0]);
            boolean found = false;
            for (Method m : cls.getDeclaredMethods()) {
                if (m.getName().equals(c[1]) && descriptor(m).equals(c[2])) {
                    int mod = m.getModifiers();
                    check(java.lang.reflect.Modifier.isStatic(mod), c[1] + " is static");
                    check(c.length > 3 ? java.lang.reflect.Modifier.isNative(mod)
                            : java.lang.reflect.Modifier.isPublic(mod), c[1] + " modifiers");
                    found = true;
                }
            }
            check(found, c[0] + "." + c[1] + " " + c[2] + " exists");
        }
        for (String getter : new String[] {"getServerPin", "getMessage"}) {
            equal("()Ljava/lang/String;", descriptor(RemoteManagerState.class.getMethod(getter)), getter);
        }
        for (String getter : new String[] {"isRetryVisible", "isTestConnectionVisible", "isInProgress"}) {
            equal("()Z", descriptor(RemoteManagerState.class.getMethod(getter)), getter);
        }
        equal("()I", descriptor(RemoteManagerState.class.getMethod("getPort")), "getPort");
        equal("()Ljava/lang/String;", descriptor(Encoding.class.getMethod("getName")), "getName");
        equal("()Ljava/lang/String;", descriptor(Encoding.class.getMethod("getCharset")), "getCharset");
    }

    static String descriptor(Method m) {
        StringBuilder sb = new StringBuilder("(");
        for (Class<?> p : m.getParameterTypes()) {
            sb.append(typeDescriptor(p));
        }
        return sb.append(')').append(typeDescriptor(m.getReturnType())).toString();
    }

    static String typeDescriptor(Class<?> c) {
        if (c.isArray()) {
            return c.getName().replace('.', '/');
        }
        if (c.isPrimitive()) {
            return c == void.class ? "V" : c == int.class ? "I" : c == boolean.class ? "Z" : "?" + c;
        }
        return "L" + c.getName().replace('.', '/') + ";";
    }

    static void testConversionQueue() throws Exception {
        ServerControl.converterResetQueue();
        equal(IDLE_QUEUE, ServerControl.getConverterQueueAsJSON(), "idle document");

        // A stand-in converter that reports half-way and then stays busy until killed.
        Path bin = appFolder.resolve("bin");
        Path pidFile = appFolder.resolve("converter.pid");
        Path fake = bin.resolve("slow-ffmpeg");
        write(fake, "#!/bin/sh\necho $$ > '" + pidFile + "'\necho '  Duration: 00:00:10.00, start: 0.0' >&2\n"
                + "echo out_time_us=5000000\necho progress=continue\nexec sleep 30\n");
        check(fake.toFile().setExecutable(true), "stand-in is executable");
        Path videos = appFolder.resolve("videos one");
        write(videos.resolve("a.mkv"), "x");
        write(videos.resolve("b.avi"), "x");
        write(videos.resolve("notes.txt"), "x");
        write(appFolder.resolve("conversion-folders.txt"),
                "{\"folders\": [{\"name\": \"V\", \"id\": " + Json.quote(videos.toString()) + ", \"folderId\": \"9\"}]}");
        ServerControl.setConverterFFMpegPath(fake.toString());
        ServerControl.initialized();

        waitFor(() -> {
            Object item = conversion().get("convertedItem");
            Object state = item instanceof Map ? ((Map<String, Object>) item).get("conversionState") : null;
            return state instanceof Map && Double.valueOf(50.0).equals(((Map<String, Object>) state).get("percentDone"));
        }, 10000, "the first file at 50%");
        Map<String, Object> c = conversion();
        Map<String, Object> converted = (Map<String, Object>) c.get("convertedItem");
        Map<String, Object> item = (Map<String, Object>) converted.get("item");
        Map<String, Object> state = (Map<String, Object>) converted.get("conversionState");
        equal("a.mkv", item.get("name"), "converting the first file");
        check(item.get("id") instanceof String && !((String) item.get("id")).isEmpty(), "item has an id");
        check(state.get("eta") instanceof Double && (Double) state.get("eta") >= 0, "eta is a number of seconds");
        equal(Boolean.FALSE, state.get("paused"), "not paused");
        List<Object> queue = (List<Object>) c.get("queue");
        equal(1, queue.size(), "one file waiting (the text file is not a video)");
        equal("b.avi", ((Map<String, Object>) queue.get(0)).get("name"), "waiting file");
        check(ServerControl.getConverterQueueAsJSON().startsWith("{\"conversion\": {\"convertedItem\": {\"item\": {\"id\": "),
                "document form");
        equal(0, scanAgain(), "a second scan adds nothing already queued");

        long pid = Long.parseLong(new String(Files.readAllBytes(pidFile), StandardCharsets.US_ASCII).trim());
        ServerControl.converterResetQueue();
        waitFor(() -> IDLE_QUEUE.equals(ServerControl.getConverterQueueAsJSON()), 5000, "the queue to empty");
        waitFor(() -> !ProcessHandle.of(pid).map(ProcessHandle::isAlive).orElse(false), 5000, "the converter to die");
        check(ServerControl.getLog("conversion").contains("Stopped converting"), "reset logged");
        equal(0, scanAgain(), "reset files are not queued again");
        File[] leftovers = appFolder.resolve("Converted").toFile().listFiles((d, n) -> n.contains("a-"));
        check(leftovers == null || leftovers.length == 0, "no output, not even partial, for a stopped file");

        File ffmpeg = new File("/usr/bin/ffmpeg");
        if (!ffmpeg.canExecute()) {
            System.out.println("  (no /usr/bin/ffmpeg: real conversion not tried)");
            return;
        }
        Path clips = appFolder.resolve("clips");
        Files.createDirectories(clips);
        Process make = new ProcessBuilder("/usr/bin/ffmpeg", "-nostdin", "-loglevel", "error", "-f", "lavfi",
                "-i", "testsrc=duration=1:size=320x240:rate=10", "-c:v", "mpeg4", clips.resolve("clip.avi").toString())
                .redirectErrorStream(true).start();
        make.getInputStream().readAllBytes();
        equal(0, make.waitFor(), "test clip made");
        write(appFolder.resolve("conversion-folders.txt"),
                "{\"folders\": [{\"name\": \"C\", \"id\": " + Json.quote(clips.toString()) + "}]}");
        ServerControl.setConverterFFMpegPath(ffmpeg.getPath());
        ServerControl.setConverterMaxWidth(160);
        ServerControl.setConverterMaxHeight(90);
        equal(1, scanAgain(), "clip queued");
        File out = appFolder.resolve("Converted").toFile();
        waitFor(() -> {
            File[] done = out.listFiles((d, n) -> n.startsWith("clip-") && n.endsWith(".mp4"));
            return done != null && done.length == 1 && done[0].length() > 0;
        }, 30000, "the converted clip");
        waitFor(() -> IDLE_QUEUE.equals(ServerControl.getConverterQueueAsJSON()), 5000, "idle after converting");
        check(ServerControl.getLog("conversion").contains("Converted " + clips.resolve("clip.avi")), "success logged");
        check(ServerControl.getLastConversionLog().contains("Duration"), "last conversion log kept");
        equal(0, scanAgain(), "converted files are not queued again");
    }

    private static int scanAgain() {
        return com.brookfen.quillon.server.ServerCore.get().scanConversionFolders();
    }

    static void testEncodingsFontsLanguages() {
        List<Encoding> encodings = ServerControl.getAvailableEncodings();
        check(encodings.size() > 10, "many encodings");
        boolean utf8 = false;
        for (Encoding e : encodings) {
            check(e.getName() != null && !e.getName().isEmpty() && e.getCharset() != null, "encoding named: " + e);
            utf8 |= e.getCharset().equals("UTF-8");
        }
        check(utf8, "UTF-8 offered");

        List<String> fonts = ServerControl.getAvailableFontFamilyNames();
        check(!fonts.isEmpty() && !fonts.contains(null), "font families: " + fonts);
        check(fonts.contains("SansSerif"), "the default family is offered");

        List<String> languages = ServerControl.getAvailableLanguages();
        check(languages.size() > 100, "many languages, got " + languages.size());
        check(languages.contains("English") && languages.contains("French"), "common languages by name");
        List<String> sorted = new ArrayList<>(languages);
        sorted.sort(Collator.getInstance(Locale.ENGLISH));
        equal(sorted, languages, "languages sorted");
        equal(languages.size(), (int) languages.stream().distinct().count(), "no duplicate languages");
    }

    static void testSettersKeepTheirValues() {
        equal(appFolder.toString(), ServerControl.getApplicationFolder(), "application folder");
        equal("UTF-8", ServerControl.getDefaultCharset(), "default charset");
        ServerControl.setDefaultCharset("ISO-8859-1");
        equal("ISO-8859-1", ServerControl.getDefaultCharset(), "charset kept");
        ServerControl.setDefaultCharset("no-such-charset");
        ServerControl.setDefaultCharset("bad name!");
        ServerControl.setDefaultCharset(null);
        equal("ISO-8859-1", ServerControl.getDefaultCharset(), "unknown charsets refused");

        ServerControl.setFontFamilyName("DejaVu Sans");
        equal("DejaVu Sans", ServerControl.getFontFamilyName(), "font family kept");
        ServerControl.setFontFamilyName("");
        equal("DejaVu Sans", ServerControl.getFontFamilyName(), "empty family refused");

        ServerControl.setFontSize(18);
        ServerControl.setFontSize(0);
        equal(18, ServerControl.getFontSize(), "font size kept, zero refused");
        ServerControl.setDisableEmbeddedSubtitlesIfNoLanguageMatches(true);
        check(ServerControl.isDisableEmbeddedSubtitlesIfNoLanguageMatches(), "embedded subtitles flag");

        ServerControl.setPreferredLanguages(new String[] {"French", null, "German", ""});
        equal(Arrays.asList("French", "German"), Arrays.asList(ServerControl.getPreferredLanguages()), "languages kept");
        ServerControl.setPreferredLanguages(new String[0]);
        equal(0, ServerControl.getPreferredLanguages().length, "empty language list");
        ServerControl.setPreferredLanguages(null);
        equal(0, ServerControl.getPreferredLanguages().length, "null language list");

        ServerControl.setConverterMaxWidth(640);
        ServerControl.setConverterMaxHeight(360);
        ServerControl.setConverterFaacPath("/usr/bin/faac");
        ServerControl.setConverterMuxerPath("/usr/bin/mp4creator");
        equal(640, ServerControl.getConverterMaxWidth(), "max width");
        equal(360, ServerControl.getConverterMaxHeight(), "max height");
        equal("/usr/bin/faac", ServerControl.getConverterFaacPath(), "faac path");
        equal("/usr/bin/mp4creator", ServerControl.getConverterMuxerPath(), "muxer path");
        ServerControl.setComputerName("\ud83d\ude00 den");
        equal("\ud83d\ude00 den", ServerControl.getComputerName(), "computer name");
    }

    static void testRemoteManagerCallsBack() throws Exception {
        AtomicInteger updates = new AtomicInteger();
        BlockingQueue<Boolean> results = new LinkedBlockingQueue<>();
        BlockingQueue<String> threads = new LinkedBlockingQueue<>();
        RemoteManagerControl.setListener(new RemoteManagerControl.Listener() {
            @Override
            public void updated() {
                updates.incrementAndGet();
            }

            @Override
            public void connectionTestEnded(boolean passed) {
                threads.add(Thread.currentThread().getName());
                results.add(passed);
            }
        });
        try {
            RemoteManagerState s = RemoteManagerControl.getState();
            check(s != null, "a state before init");
            RemoteManagerControl.init(false, true);
            waitFor(() -> updates.get() > 0, 3000, "an update after init");
            s = RemoteManagerControl.getState();
            equal("Remote access is off.", s.getMessage(), "off message");
            check(s.getServerPin().matches("\\d{6}"), "six-digit PIN: " + s.getServerPin());
            check(!s.isTestConnectionVisible() && !s.isRetryVisible() && !s.isInProgress(), "nothing offered while off");
            equal(s.getServerPin() + "\n",
                    new String(Files.readAllBytes(appFolder.resolve("remote-pin.txt")), StandardCharsets.UTF_8),
                    "PIN saved");

            ServerControl.setDefaultPort(0);
            int before = updates.get();
            RemoteManagerControl.setEnableRemote(true);
            waitFor(() -> updates.get() > before, 3000, "an update after enabling");
            check(RemoteManagerControl.getState().getMessage().contains("starts when the server runs"),
                    "waiting for the server");

            int port = ServerControl.startServer();
            waitFor(() -> RemoteManagerControl.getState().isTestConnectionVisible(), 5000, "the test to be offered");
            s = RemoteManagerControl.getState();
            equal(port, s.getPort(), "state port");
            check(!s.isInProgress() && !s.isRetryVisible(), "idle and healthy");
            check(s.getMessage().contains("forward TCP port " + port), "port mapping advice: " + s.getMessage());

            RemoteManagerControl.testConnection();
            equal(Boolean.TRUE, results.poll(5, TimeUnit.SECONDS), "test against the running server");
            equal("quillon-remote", threads.poll(), "result reported from the manager's thread");
            waitFor(() -> RemoteManagerControl.getState().getMessage().contains("test passed"), 3000,
                    "the passed test in the message");

            RemoteManagerControl.setEnablePortMapping(false);
            waitFor(() -> !RemoteManagerControl.getState().getMessage().contains("forward"), 3000, "no mapping advice");

            int beforeRetry = updates.get();
            RemoteManagerControl.retry();
            waitFor(() -> updates.get() >= beforeRetry + 2, 3000, "updates after a retry");
            waitFor(() -> RemoteManagerControl.getState().isTestConnectionVisible(), 3000, "healthy after a retry");

            ServerControl.stopServer();
            waitFor(() -> !RemoteManagerControl.getState().isTestConnectionVisible(), 3000, "no test once stopped");
            RemoteManagerControl.testConnection();
            equal(Boolean.FALSE, results.poll(5, TimeUnit.SECONDS), "test against a stopped server");
            equal(s.getServerPin(), RemoteManagerControl.getState().getServerPin(), "PIN stable");
        } finally {
            RemoteManagerControl.setListener(null);
            RemoteManagerControl.setEnableRemote(false);
        }
    }

    static void testCommandLine() throws Exception {
        String java = System.getProperty("java.home") + "/bin/java";
        String jar = System.getProperty("quillon.test.jar");
        check(jar != null && new File(jar).isFile(), "server jar given: " + jar);

        Path music = appFolder.resolve("Music");
        write(music.resolve("Road trip.m3u"), "#EXTM3U\n");
        write(music.resolve("Parties/New year.m3u8"), "#EXTM3U\n");
        write(music.resolve("Empty/readme.txt"), "x");
        Process p = new ProcessBuilder(java, "-Dquillon.playlists.folder=" + music, "-jar", jar, "getPlaylists").start();
        String out = new String(p.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
        check(p.waitFor(20, TimeUnit.SECONDS), "getPlaylists ends");
        equal(0, p.exitValue(), "getPlaylists exit status");
        Map<String, Object> doc = Json.parseObject(out.trim());
        check(doc != null && doc.get("playlists") instanceof List, "playlist document: " + out);
        List<?> top = (List<?>) doc.get("playlists");
        equal(2, top.size(), "a folder and a playlist; the empty folder is left out: " + out);
        equal("Parties", Json.string(top.get(0), "name"), "folder first by name");
        List<?> children = (List<?>) ((Map<?, ?>) top.get(0)).get("children");
        equal("New year", Json.string(children.get(0), "name"), "nested playlist");
        equal("Road trip", Json.string(top.get(1), "name"), "playlist without extension");
        equal(music.resolve("Road trip.m3u").toString(), Json.string(top.get(1), "id"), "id is the path");

        Process none = new ProcessBuilder(java, "-Dquillon.playlists.folder=" + appFolder.resolve("nowhere"),
                "-jar", jar, "getPlaylists").start();
        equal("{\"playlists\": []}", new String(none.getInputStream().readAllBytes(), StandardCharsets.UTF_8).trim(),
                "no music folder");

        Process server = new ProcessBuilder(java, "-Dquillon.bind.address=127.0.0.1",
                "-Dquillon.application.folder=" + appFolder.resolve("standalone"), "-jar", jar, "serve", "0")
                .redirectError(ProcessBuilder.Redirect.DISCARD).start();
        try {
            BufferedReader r = new BufferedReader(new InputStreamReader(server.getInputStream(), StandardCharsets.UTF_8));
            String line = r.readLine();
            check(line != null && line.matches("Server started on: \\d+"), "start line: " + line);
            int port = Integer.parseInt(line.substring("Server started on: ".length()));
            equal(200, get(port, "/", null, null).status, "stand-alone server answers");
            Thread.sleep(200);
            check(server.isAlive(), "stand-alone server keeps running");
        } finally {
            server.destroyForcibly();
            server.waitFor(10, TimeUnit.SECONDS);
        }

        Process bad = new ProcessBuilder(java, "-jar", jar, "frobnicate").redirectErrorStream(true).start();
        bad.getInputStream().readAllBytes();
        check(bad.waitFor(20, TimeUnit.SECONDS) && bad.exitValue() == 2, "unknown command refused");
    }
}
