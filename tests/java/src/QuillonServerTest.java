import com.brookfen.quillon.common.control.*;
import com.brookfen.quillon.server.Json;
import com.brookfen.quillon.server.LogBook;
import java.io.*;
import java.lang.invoke.MethodType;
import java.lang.reflect.*;
import java.net.*;
import java.net.http.HttpResponse;
import java.nio.charset.StandardCharsets;
import java.nio.file.*;
import java.text.Collator;
import java.util.*;
import java.util.concurrent.*;
import java.util.concurrent.atomic.AtomicInteger;

/** Drives the server's control classes the way the controller does; exits non-zero on any failure. */
public final class QuillonServerTest extends Checks {
    private static final String IDLE_QUEUE = "{\"conversion\": {\"queue\": []}}";
    private static Path appFolder;

    public static void main(String[] args) throws Exception {
        appFolder = tempFolder(ServerControl::quit);
        ServerControl.init(appFolder.toString());
        runTests(() -> { }, () -> {
            ServerControl.setPasswordDigest("");
            ServerControl.stopServer();
        }, QuillonServerTest.class);
    }

    static void write(Path file, String text) throws IOException {
        Files.writeString(Files.createDirectories(file.getParent()).resolve(file.getFileName()), text);
    }

    static int scanAgain() {
        return com.brookfen.quillon.server.ServerCore.get().scanConversionFolders();
    }

    static void testStartStopAndStatusPage() throws Exception {
        write(appFolder.resolve("folders.txt"), "{\"folders\": [{\"name\": \"Movies <HD>\", \"type\": \"DiskFolder\","
                + " \"id\": \"/srv/movies\", \"folderId\": \"1\"}, {\"name\": \"Road trip\", \"type\": \"iTunesPlaylist\","
                + " \"id\": \"/home/u/Music/road.m3u\", \"folderId\": \"2\"}]}");
        write(appFolder.resolve("conversion-folders.txt"), "not json at all");
        ServerControl.setComputerName("Box & \"Co\"");
        ServerControl.setDefaultPort(0);
        check(!ServerControl.serverRunning(), "stopped before the start");
        int port = ServerControl.startServer();
        check(port > 0 && ServerControl.serverRunning(), "start returns the bound port, got " + port);
        equal(port, ServerControl.startServer(), "a second start keeps the port");

        HttpResponse<byte[]> status = send(port, "GET", "/status");
        String page = new String(status.body(), StandardCharsets.UTF_8);
        equal(200, status.statusCode(), "status page");
        check(page.contains("running on port " + port) && page.contains("Box &amp; &quot;Co&quot;")
                && page.contains("Movies &lt;HD&gt;") && page.contains("/srv/movies")
                && page.contains("Road trip (playlist)"), "page shows port, escaped name and folders: " + page);
        equal(404, send(port, "GET", "/nothing-here").statusCode(), "unknown path");

        ServerControl.stopServer();
        ServerControl.stopServer(); // a second stop is harmless
        check(!ServerControl.serverRunning(), "stopped after stopServer");
        thrown(IOException.class, () -> new Socket(InetAddress.getLoopbackAddress(), port).close(), "closed after stopServer");
        int again = ServerControl.startServer();
        check(again > 0 && ServerControl.serverRunning(), "restart after a stop");
        String log = ServerControl.getLog("remote");
        check(log.contains("Server started on port " + port) && log.contains("Server stopped"), "start and stop logged");
        ServerControl.quit();
        check(!ServerControl.serverRunning(), "quit stops the server");
        thrown(IOException.class, () -> new Socket(InetAddress.getLoopbackAddress(), again).close(), "closed after quit");
    }

    static void testPortConflictAndPortChanges() throws Exception {
        try (ServerSocket taken = new ServerSocket(0, 1, InetAddress.getByName("127.0.0.1"))) {
            ServerControl.setDefaultPort(taken.getLocalPort());
            equal(-1, ServerControl.startServer(), "start on a taken port");
            check(!ServerControl.serverRunning(), "not running after a failed start");
            check(ServerControl.getLog("remote").contains("port " + taken.getLocalPort() + " is in use"), "conflict logged");

            ServerControl.setDefaultPort(0);
            int p1 = ServerControl.startServer();
            // A running server moves to a new free port, and stays put when the new one is taken.
            int p2;
            try (ServerSocket s = new ServerSocket(0, 1, InetAddress.getLoopbackAddress())) {
                p2 = s.getLocalPort();
            }
            ServerControl.setDefaultPort(p2);
            equal(p2, ServerControl.getServerPort(), "moved to the new port");
            equal(200, send(p2, "GET", "/").statusCode(), "answers on the new port");
            thrown(IOException.class, () -> new Socket(InetAddress.getLoopbackAddress(), p1).close(), "old port closed");
            ServerControl.setDefaultPort(taken.getLocalPort());
            equal(p2, ServerControl.getServerPort(), "kept the port when the new one is taken");
            equal(200, send(p2, "GET", "/").statusCode(), "still answers");
        }
        for (int port : new int[] {4242, -1, 65536})
            ServerControl.setDefaultPort(port);
        equal(4242, ServerControl.getDefaultPort(), "out-of-range ports refused");
    }

    static void testLogsKeptClearedAndBounded() {
        check(ServerControl.getLog("thumbnail").contains("Maximum thumbnail width: 300"), "thumbnail width logged");
        ServerControl.setFontSize(31);
        ServerControl.setConverterFFMpegPath("/nowhere/ffmpeg");
        check(ServerControl.getLog("subtitles").contains("Font size: 31"), "subtitle setting logged");
        ServerControl.clearLog("subtitles");
        ServerControl.clearLog(null);
        ServerControl.clearLog("no-such-log");
        equal("", ServerControl.getLog("subtitles"), "cleared log is empty");
        check(ServerControl.getLog("live-conversion").contains("/nowhere/ffmpeg"), "other logs kept");
        check(ServerControl.getLog("no-such-log") == null && ServerControl.getLog(null) == null, "unknown log ids");

        LogBook small = new LogBook(1000);
        for (int i = 0; i < 500; i++)
            small.append("remote", "line " + i);
        String text = small.get("remote");
        check(text.length() <= 1000 && text.endsWith(" line 499\n") && !text.contains(" line 0\n"), "bounded, newest kept");
        check(text.matches("(?s)\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d line \\d+\n.*"), "starts on a whole line");
        small.append("remote", "x".repeat(5000));
        check(small.get("remote").length() <= 1000, "an overlong line is cut too");
    }

    /** A class's methods as "[static ]native|public|hidden name(descriptor)", the way JNI finds them. */
    static Set<String> signatures(Class<?> cls) {
        Set<String> out = new HashSet<>();
        for (Method m : cls.getDeclaredMethods()) {
            int mod = m.getModifiers();
            String kind = Modifier.isNative(mod) ? "native " : Modifier.isPublic(mod) ? "public " : "hidden ";
            out.add((Modifier.isStatic(mod) ? "static " : "") + kind + m.getName()
                    + MethodType.methodType(m.getReturnType(), m.getParameterTypes()).toMethodDescriptorString());
        }
        return out;
    }

    /** The bridge tests' stand-in classes hold what the controller binds to; the jar declares each alike. */
    static void testControlClassesCarryTheContract() throws Exception {
        URL fixture = Path.of(System.getProperty("quillon.fixture.jar")).toUri().toURL();
        try (URLClassLoader loader = new URLClassLoader(new URL[] {fixture}, ClassLoader.getPlatformClassLoader())) {
            for (String name : new String[] {"ServerControl", "RemoteManagerControl", "RemoteManagerState", "Encoding"}) {
                String cls = "com.brookfen.quillon.common.control." + name;
                Set<String> have = signatures(Class.forName(cls));
                for (String wanted : signatures(loader.loadClass(cls)))
                    check(wanted.contains("hidden ") || have.contains(wanted), name + ": " + wanted + " exists");
            }
        }
    }

    /** Empties the queue and waits for it to read as idle and the stand-in converter (pid in the file) to be gone. */
    static void resetQueue(Path pidFile) throws Exception {
        long pid = Long.parseLong(Files.readString(pidFile).trim());
        ServerControl.converterResetQueue();
        waitFor(() -> IDLE_QUEUE.equals(ServerControl.getConverterQueueAsJSON()), 5000, "the queue to empty");
        waitFor(() -> !ProcessHandle.of(pid).map(ProcessHandle::isAlive).orElse(false), 5000, "the converter to end");
    }

    static void testConversionQueue() throws Exception {
        // A stand-in converter that reports half-way and then stays busy until killed.
        Path pidFile = appFolder.resolve("converter.pid");
        Path fake = appFolder.resolve("bin/slow-ffmpeg");
        write(fake, "#!/bin/sh\necho $$ > '" + pidFile + "'\necho '  Duration: 00:00:10.00, start: 0.0' >&2\n"
                + "echo out_time_us=5000000\necho progress=continue\nexec sleep 30\n");
        check(fake.toFile().setExecutable(true), "stand-in is executable");
        Path videos = appFolder.resolve("videos one");
        for (String name : new String[] {"a.mkv", "b.avi", "notes.txt"})
            write(videos.resolve(name), "x");
        write(appFolder.resolve("conversion-folders.txt"),
                "{\"folders\": [{\"name\": \"V\", \"id\": " + Json.quote(videos.toString()) + ", \"folderId\": \"9\"}]}");
        ServerControl.setConverterFFMpegPath(fake.toString());
        ServerControl.initialized();

        // Half-way through the first file; the text file is not a video and is not queued.
        String converting = "\\{\"conversion\": \\{\"convertedItem\": \\{"
                + "\"item\": \\{\"id\": \"[^\"]+\", \"name\": \"a\\.mkv\"\\}, "
                + "\"conversionState\": \\{\"percentDone\": 50\\.0, \"eta\": \\d+, \"paused\": false\\}\\}, "
                + "\"queue\": \\[\\{\"id\": \"[^\"]+\", \"name\": \"b\\.avi\"\\}\\]\\}\\}";
        waitFor(() -> ServerControl.getConverterQueueAsJSON().matches(converting), 10000,
                "the first file at 50%, the second waiting");
        equal(0, scanAgain(), "a second scan adds nothing already queued");

        resetQueue(pidFile);
        check(ServerControl.getLog("conversion").contains("Stopped converting"), "reset logged");
        equal(0, scanAgain(), "reset files are not queued again");
        File[] leftovers = appFolder.resolve("Converted").toFile().listFiles((d, n) -> n.contains("a-"));
        check(leftovers == null || leftovers.length == 0, "no output, not even partial, for a stopped file");

        // A video dropped into a new sub-folder is queued at once, not at a periodic rescan.
        write(videos.resolve("later").resolve("c.mkv"), "x");
        String convertingC = "\"c.mkv\"}, \"conversionState\": {\"percentDone\": 50";
        waitFor(() -> ServerControl.getConverterQueueAsJSON().contains(convertingC), 4000, "the dropped file converting");
        resetQueue(pidFile);

        Path clip = ffmpeg("-f", "lavfi", "-i", "testsrc=duration=1:size=320x240:rate=10", "-c:v", "mpeg4",
                Files.createDirectories(appFolder.resolve("clips")).resolve("clip.avi").toString());
        write(appFolder.resolve("conversion-folders.txt"),
                "{\"folders\": [{\"name\": \"C\", \"id\": " + Json.quote(clip.getParent().toString()) + "}]}");
        ServerControl.setConverterFFMpegPath("/usr/bin/ffmpeg");
        ServerControl.setConverterMaxWidth(160);
        ServerControl.setConverterMaxHeight(90);
        equal(1, scanAgain(), "clip queued");
        waitFor(() -> ServerControl.getLog("conversion").contains("Converted " + clip), 30000, "the converted clip");
        File[] done = appFolder.resolve("Converted").toFile().listFiles((d, n) -> n.matches("clip-.*\\.mp4"));
        check(done != null && done.length == 1 && done[0].length() > 0, "one converted clip");
        equal(IDLE_QUEUE, ServerControl.getConverterQueueAsJSON(), "idle after converting");
        check(ServerControl.getLastConversionLog().contains("Duration"), "last conversion log kept");
        equal(0, scanAgain(), "converted files are not queued again");
    }

    static void testCatalogues() {
        List<Encoding> encodings = ServerControl.getAvailableEncodings();
        check(encodings.size() > 10 && encodings.stream().allMatch(e -> !e.getName().isEmpty() && e.getCharset() != null)
                && encodings.stream().anyMatch(e -> e.getCharset().equals("UTF-8")), "named encodings, UTF-8 among them");
        List<String> fonts = ServerControl.getAvailableFontFamilyNames();
        check(fonts.contains("SansSerif") && !fonts.contains(null), "font families: " + fonts);
        List<String> languages = ServerControl.getAvailableLanguages();
        check(languages.size() > 100 && languages.contains("French"), "many languages by name: " + languages.size());
        TreeSet<String> sorted = new TreeSet<>(Collator.getInstance(Locale.ENGLISH));
        sorted.addAll(languages);
        equal(new ArrayList<>(sorted), languages, "languages sorted, no duplicates");
    }

    static void testRemoteManagerCallsBack() throws Exception {
        AtomicInteger updates = new AtomicInteger();
        BlockingQueue<Boolean> results = new LinkedBlockingQueue<>();
        BlockingQueue<String> threads = new LinkedBlockingQueue<>();
        RemoteManagerControl.setListener(new RemoteManagerControl.Listener() {
            @Override public void updated() { updates.incrementAndGet(); }

            @Override public void connectionTestEnded(boolean passed) {
                threads.add(Thread.currentThread().getName());
                results.add(passed);
            }
        });
        try {
            RemoteManagerControl.init(false, true);
            waitFor(() -> updates.get() > 0, 3000, "an update after init");
            RemoteManagerState s = RemoteManagerControl.getState();
            equal("Remote access is off.", s.getMessage(), "off message");
            check(s.getServerPin().matches("\\d{6}"), "six-digit PIN: " + s.getServerPin());
            check(!s.isTestConnectionVisible() && !s.isRetryVisible() && !s.isInProgress(), "nothing offered while off");
            equal(s.getServerPin() + "\n", Files.readString(appFolder.resolve("remote-pin.txt")), "PIN saved");

            ServerControl.setDefaultPort(0);
            int before = updates.get();
            RemoteManagerControl.setEnableRemote(true);
            waitFor(() -> updates.get() > before, 3000, "an update after enabling");
            check(RemoteManagerControl.getState().getMessage().contains("starts when the server runs"), "waiting");

            int port = ServerControl.startServer();
            waitFor(() -> RemoteManagerControl.getState().isTestConnectionVisible(), 5000, "the test to be offered");
            s = RemoteManagerControl.getState();
            equal(port, s.getPort(), "state port");
            check(!s.isInProgress() && !s.isRetryVisible(), "idle and healthy");
            check(s.getMessage().contains("forward TCP port " + port), "port mapping advice: " + s.getMessage());

            RemoteManagerControl.testConnection();
            equal(Boolean.TRUE, results.poll(5, TimeUnit.SECONDS), "test against the running server");
            equal("quillon-remote", threads.poll(), "result reported from the manager's thread");
            waitFor(() -> RemoteManagerControl.getState().getMessage().contains("test passed"), 3000, "passed message");
            RemoteManagerControl.setEnablePortMapping(false);
            waitFor(() -> !RemoteManagerControl.getState().getMessage().contains("forward"), 3000, "no mapping advice");
            int beforeRetry = updates.get();
            RemoteManagerControl.retry();
            waitFor(() -> updates.get() >= beforeRetry + 2 && RemoteManagerControl.getState().isTestConnectionVisible(),
                    3000, "updates, then healthy after a retry");

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

        Path music = appFolder.resolve("Music");
        write(music.resolve("Road trip.m3u"), "#EXTM3U\n");
        write(music.resolve("Parties/New year.m3u8"), "#EXTM3U\n");
        write(music.resolve("Empty/readme.txt"), "x");
        // Folders first by name, the empty folder left out, playlists without extension, ids are paths.
        String nested = "{\"id\": " + Json.quote(music.resolve("Parties/New year.m3u8").toString())
                + ", \"name\": \"New year\"}";
        equal("0:{\"playlists\": [{\"id\": " + Json.quote(music.resolve("Parties").toString()) + ", \"name\": \"Parties\", "
                + "\"children\": [" + nested + "]}, {\"id\": " + Json.quote(music.resolve("Road trip.m3u").toString())
                + ", \"name\": \"Road trip\"}]}", run(java, "-Dquillon.playlists.folder=" + music, "-jar", jar, "getPlaylists"),
                "playlist document");
        equal("0:{\"playlists\": []}", run(java, "-Dquillon.playlists.folder=" + appFolder.resolve("nowhere"), "-jar", jar,
                "getPlaylists"), "no music folder");
        check(run(java, "-jar", jar, "frobnicate").startsWith("2:"), "unknown command refused");

        Process server = new ProcessBuilder(java, "-Dquillon.bind.address=127.0.0.1",
                "-Dquillon.application.folder=" + appFolder.resolve("standalone"), "-jar", jar, "serve", "0")
                .redirectError(ProcessBuilder.Redirect.DISCARD).start();
        try {
            String line = new BufferedReader(new InputStreamReader(server.getInputStream(), StandardCharsets.UTF_8)).readLine();
            check(line != null && line.matches("Server started on: \\d+"), "start line: " + line);
            equal(200, send(Integer.parseInt(line.substring(19)), "GET", "/").statusCode(), "stand-alone server answers");
            check(server.isAlive(), "stand-alone server keeps running");
        } finally {
            server.destroyForcibly().waitFor(10, TimeUnit.SECONDS);
        }
    }
}
