import com.brookfen.quillon.media.MediaServices;
import com.brookfen.quillon.media.MediaSettings;
import com.brookfen.quillon.server.LogBook;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Comparator;
import java.util.List;
import java.util.Locale;
import java.util.stream.Stream;

/**
 * Time to the first HLS segment of a 30 s 720p video, from the start and from the middle,
 * against ffmpeg alone encoding the same 6 s with the same settings, in the same run.
 * Arguments: [maxWidth maxHeight [rounds]] (default 1280 720 5).
 */
public final class BenchMedia {
    static final String FFMPEG = "/usr/bin/ffmpeg";

    public static void main(String[] args) throws Exception {
        int width = args.length > 1 ? Integer.parseInt(args[0]) : 1280;
        int height = args.length > 1 ? Integer.parseInt(args[1]) : 720;
        int rounds = args.length > 2 ? Integer.parseInt(args[2]) : 5;
        Path temp = Files.createTempDirectory("quillon-bench-media");
        System.setProperty(MediaSettings.CACHE_FOLDER_PROPERTY, temp.resolve("cache").toString());
        try {
            Path video = temp.resolve("clip720.mp4");
            run(FFMPEG, "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=size=1280x720:rate=30",
                    "-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000", "-t", "30",
                    "-c:v", "libx264", "-preset", "ultrafast", "-g", "60", "-c:a", "aac", video.toString());
            System.out.printf("30 s 1280x720 30 fps test video; frame limit %dx%d; %d rounds%n",
                    width, height, rounds);
            List<Double> hls0 = new ArrayList<>();
            List<Double> ff0 = new ArrayList<>();
            List<Double> hlsMid = new ArrayList<>();
            List<Double> ffMid = new ArrayList<>();
            MediaServices media = new MediaServices(new LogBook(LogBook.DEFAULT_LIMIT));
            media.settings().setFfmpegPath(FFMPEG);
            media.settings().setMaxWidth(width);
            media.settings().setMaxHeight(height);
            media.metadata().probe(video); // the item was listed before it is played
            for (int r = 0; r < rounds; r++) {
                long t = System.nanoTime();
                media.live().playlist("start" + r, video);
                media.live().segment("start" + r, video, 0);
                hls0.add(seconds(t));
                media.stopLive();
                ff0.add(ffmpegAlone(video, 0, width, height, temp));

                t = System.nanoTime();
                media.live().playlist("middle" + r, video);
                media.live().segment("middle" + r, video, 2);
                hlsMid.add(seconds(t));
                media.stopLive();
                ffMid.add(ffmpegAlone(video, 12, width, height, temp));
            }
            media.shutdown();
            report("first segment", hls0, ff0);
            report("seek to the middle (segment 2, 12 s)", hlsMid, ffMid);
        } finally {
            try (Stream<Path> files = Files.walk(temp)) {
                files.sorted(Comparator.reverseOrder()).forEach(p -> p.toFile().delete());
            }
        }
    }

    /** The live conversion's own settings, for 6 s from the given time, into one file. */
    static double ffmpegAlone(Path video, int from, int w, int h, Path temp) throws Exception {
        List<String> cmd = new ArrayList<>(Arrays.asList(FFMPEG, "-nostdin", "-hide_banner", "-loglevel", "error", "-y"));
        if (from > 0)
            cmd.addAll(Arrays.asList("-ss", Integer.toString(from)));
        cmd.addAll(Arrays.asList("-i", video.toString(), "-t", "6", "-map", "0:V:0", "-map", "0:a:0?", "-sn", "-dn",
                "-vf", "scale=trunc(iw*sar/2)*2:ih,setsar=1,scale=w='min(iw," + w + ")':h='min(ih," + h
                        + ")':force_original_aspect_ratio=decrease,scale=trunc(iw/2)*2:trunc(ih/2)*2,format=yuv420p",
                "-c:v", "libx264", "-preset", "veryfast", "-profile:v", "high", "-crf", "23",
                "-force_key_frames", "expr:gte(t,n_forced*6)", "-c:a", "aac", "-b:a", "128k", "-ac", "2",
                "-f", "mpegts", temp.resolve("alone.ts").toString()));
        long t = System.nanoTime();
        run(cmd.toArray(new String[0]));
        return seconds(t);
    }

    static void run(String... cmd) throws Exception {
        Process p = new ProcessBuilder(cmd).inheritIO().start();
        if (p.waitFor() != 0)
            throw new IllegalStateException("failed: " + String.join(" ", cmd));
    }

    static double seconds(long startNanos) {
        return (System.nanoTime() - startNanos) / 1e9;
    }

    static double median(List<Double> v) {
        List<Double> s = new ArrayList<>(v);
        s.sort(null);
        return s.get(s.size() / 2);
    }

    /** Medians, and the best of each, which a busy machine disturbs least. */
    static void report(String what, List<Double> hls, List<Double> alone) {
        double h = median(hls);
        double a = median(alone);
        double hb = hls.stream().min(Double::compare).get();
        double ab = alone.stream().min(Double::compare).get();
        System.out.printf(Locale.ROOT, "%-38s median: HLS %.3f s, ffmpeg alone %.3f s, ratio %.2fx;"
                + " best: %.3f s vs %.3f s, ratio %.2fx (goal <= 1.3x)%n", what, h, a, h / a, hb, ab, hb / ab);
    }
}
