import java.lang.reflect.*;
import java.net.URI;
import java.net.http.*;
import java.nio.file.*;
import java.util.*;
import java.util.concurrent.TimeUnit;

/**
 * What the plain-Java test drivers share: every static method named test* of the given
 * classes runs once, in name order, around optional set-up and clean-up; the process exits
 * non-zero when any failed.
 */
class Checks {
    interface Step {
        void run() throws Exception;
    }

    static void runTests(Step before, Step after, Class<?>... classes) {
        List<Method> methods = Arrays.stream(classes).flatMap(c -> Arrays.stream(c.getDeclaredMethods()))
                .filter(m -> m.getName().startsWith("test")).sorted(Comparator.comparing(Method::getName)).toList();
        int failures = 0;
        for (Method m : methods) {
            long start = System.nanoTime();
            try {
                before.run();
                m.invoke(null);
                System.out.printf("PASS %s (%d ms)%n", m.getName(), (System.nanoTime() - start) / 1_000_000);
            } catch (Throwable e) {
                Throwable cause = e instanceof InvocationTargetException ? e.getCause() : e;
                failures++;
                System.out.println("FAIL " + m.getName() + ": " + cause);
                cause.printStackTrace(System.out);
            } finally {
                try {
                    after.run();
                } catch (Exception e) {
                    failures++;
                    System.out.println("FAIL clean-up after " + m.getName() + ": " + e);
                }
            }
        }
        System.out.println(failures == 0 ? "All tests passed" : failures + " test(s) failed");
        System.exit(failures == 0 ? 0 : 1);
    }

    static void check(boolean condition, String what) {
        if (!condition)
            throw new AssertionError(what);
    }

    static void equal(Object expected, Object actual, String what) {
        check(Objects.equals(expected, actual), what + ": expected <" + expected + "> but was <" + actual + ">");
    }

    /** Runs the step, which must throw the given type; returns what it threw. */
    static <T extends Throwable> T thrown(Class<T> type, Step step, String what) {
        try {
            step.run();
        } catch (Throwable e) {
            if (type.isInstance(e))
                return type.cast(e);
            throw new AssertionError(what + ": " + e, e);
        }
        throw new AssertionError(what + ": no " + type.getSimpleName());
    }

    /** Polls until the condition holds; a condition that throws does not hold yet. */
    static void waitFor(java.util.concurrent.Callable<Boolean> condition, long millis, String what) throws InterruptedException {
        Throwable last = null;
        for (long end = System.currentTimeMillis() + millis;; Thread.sleep(20)) {
            try {
                if (condition.call())
                    return;
            } catch (Exception | AssertionError e) {
                last = e;
            }
            check(System.currentTimeMillis() < end, "timed out waiting for " + what + (last == null ? "" : ": " + last));
        }
    }

    static final HttpClient client = HttpClient.newBuilder().version(HttpClient.Version.HTTP_1_1)
            .connectTimeout(java.time.Duration.ofSeconds(3)).build();

    /** A request to the loopback server on the port, with header name and value pairs. */
    static HttpResponse<byte[]> send(int port, String method, String path, String... headers) throws Exception {
        HttpRequest.Builder b = HttpRequest.newBuilder(URI.create("http://127.0.0.1:" + port + path))
                .timeout(java.time.Duration.ofSeconds(5)).method(method, HttpRequest.BodyPublishers.noBody());
        for (int i = 0; i < headers.length; i += 2)
            b.header(headers[i], headers[i + 1]);
        return client.send(b.build(), HttpResponse.BodyHandlers.ofByteArray());
    }

    /** Runs a command to its end; its exit code and trimmed output as "code:output". */
    static String run(String... command) throws Exception {
        Process p = new ProcessBuilder(command).redirectError(ProcessBuilder.Redirect.DISCARD).start();
        String out = new String(p.getInputStream().readAllBytes(), java.nio.charset.StandardCharsets.UTF_8).trim();
        check(p.waitFor(30, TimeUnit.SECONDS), String.join(" ", command) + " ends");
        return p.exitValue() + ":" + out;
    }

    /** Makes a test video with ffmpeg from the given arguments; the last one is the file made. */
    static Path ffmpeg(String... args) throws Exception {
        List<String> command = new ArrayList<>(List.of("ffmpeg", "-nostdin", "-v", "error", "-y"));
        command.addAll(Arrays.asList(args));
        Path out = Path.of(args[args.length - 1]);
        check(run(command.toArray(String[]::new)).startsWith("0:") && Files.size(out) > 0, "ffmpeg made " + out);
        return out;
    }

    /** A temporary folder, removed with all it holds when the process ends, after the given clean-up. */
    static Path tempFolder(Runnable cleanUp) throws java.io.IOException {
        Path root = Files.createTempDirectory("quillon-test");
        Runtime.getRuntime().addShutdownHook(new Thread(() -> {
            cleanUp.run();
            try (var paths = Files.walk(root)) {
                paths.sorted(Comparator.reverseOrder()).forEach(p -> p.toFile().delete());
            } catch (java.io.IOException e) {
                // a temporary folder left behind
            }
        }));
        return root;
    }
}
