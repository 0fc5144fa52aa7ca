import com.brookfen.quillon.media.*;
import com.brookfen.quillon.server.Json;
import com.brookfen.quillon.server.LogBook;
import com.brookfen.quillon.subtitles.SubtitleTrack;
import java.awt.image.BufferedImage;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.*;
import java.nio.file.attribute.FileTime;
import java.util.*;
import java.util.stream.*;
import javax.imageio.ImageIO;

/** The media side with the real ffmpeg, on small videos made here from ffmpeg's test sources. */
final class MediaFfmpegTest extends Checks {
    private static final List<MediaServices> made = new ArrayList<>();
    private static Path clip;


    static LogBook logs;

    static MediaServices services() {
        logs = new LogBook(LogBook.DEFAULT_LIMIT);
        MediaServices m = new MediaServices(logs);
        m.settings().setFfmpegPath("/usr/bin/ffmpeg");
        m.settings().setMaxWidth(160);
        m.settings().setMaxHeight(100);
        m.settings().setControllerSettingsFile(MediaTest.temp.resolve("no-such.conf"));
        made.add(m);
        return m;
    }

    static void cleanUp() {
        for (MediaServices m : made)
            m.shutdown();
        made.clear();
    }

    /** 60 s of 320x240 at 10 frames a second with a tone: ten segments, quick to make and convert. */
    static synchronized Path clip() throws Exception {
        if (clip == null)
            clip = ffmpeg("-f", "lavfi", "-i", "testsrc=size=320x240:rate=10", "-f", "lavfi", "-i", "sine=frequency=440",
                    "-t", "60", "-c:v", "libx264", "-preset", "ultrafast", "-c:a", "aac", MediaTest.temp + "/clip.mp4");
        return clip;
    }

    /** ffprobe's view of a file: the first of the given streams, with the format's start and duration. */
    @SuppressWarnings("unchecked")
    static Map<String, Object> probe(Path file, String stream) throws Exception {
        String json = run("ffprobe", "-v", "error", "-print_format", "json", "-select_streams", stream,
                "-show_entries", "stream=codec_name,width,height,profile:format=start_time,duration", file.toString());
        check(json.startsWith("0:"), "ffprobe " + file);
        Map<String, Object> root = Json.parseObject(json.substring(2));
        List<Map<String, Object>> streams = (List<Map<String, Object>>) root.get("streams");
        check(!streams.isEmpty(), "a " + stream + " stream in " + file);
        Map<String, Object> out = new java.util.HashMap<>(streams.get(0));
        Map<String, Object> format = (Map<String, Object>) root.get("format");
        out.put("start_time", Double.parseDouble((String) format.get("start_time")));
        out.put("duration", Double.parseDouble((String) format.get("duration")));
        return out;
    }

    static List<ProcessHandle> ffmpegs() {
        return ProcessHandle.current().descendants()
                .filter(h -> h.isAlive() && h.info().command().orElse("").contains("ffmpeg"))
                .collect(Collectors.toList());
    }

    /** Freezes every ffmpeg of this test, so that only a kill can end it and nothing moves on by itself. */
    static void freezeFfmpegs() throws Exception {
        for (ProcessHandle h : ffmpegs())
            new ProcessBuilder("kill", "-STOP", Long.toString(h.pid())).start().waitFor();
    }

    static int sessionFolders(Path cache) {
        String[] names = cache.resolve("live").toFile().list();
        return names == null ? 0 : names.length;
    }

    static void testHlsSegmentsRestartBusyAndStop() throws Exception {
        MediaServices media = services();
        LiveConversions live = media.live();
        Path video = clip();
        String playlist = live.playlist("a", video);
        List<String> lines = Arrays.asList(playlist.split("\n"));
        equal(10L, lines.stream().filter(l -> l.endsWith(".ts")).count(), "segments in the playlist");
        check(lines.get(0).equals("#EXTM3U") && lines.contains("#EXT-X-PLAYLIST-TYPE:VOD")
                && lines.contains("#EXT-X-TARGETDURATION:6") && lines.contains("#EXTINF:6.000,")
                && lines.contains("0.ts") && lines.contains("9.ts") && playlist.endsWith("#EXT-X-ENDLIST\n"), playlist);

        Path first = live.segment("a", video, 0);
        Map<String, Object> v = probe(first, "v:0");
        check("h264".equals(v.get("codec_name")) && "High".equals(v.get("profile")), "H.264 high: " + v);
        // 320x240 into 160x100 keeps the aspect: 133x100, made even.
        equal(List.of(132.0, 100.0), List.of(v.get("width"), v.get("height")), "size within the frame");
        equal("aac", probe(first, "a:0").get("codec_name"), "AAC audio");
        check(Math.abs((Double) v.get("duration") - 6.0) < 0.25, "a 6 s segment: " + v);

        // ffmpeg cannot have gone far: the last segment means a restart there.
        freezeFfmpegs();
        Path last = live.segment("a", video, 9);
        Map<String, Object> l = probe(last, "v:0");
        check(logs.get(LogBook.LIVE_CONVERSION).contains("at segment 9"), "restarted at the segment asked for");
        check(Math.abs((Double) l.get("start_time") - (Double) v.get("start_time") - 54.0) < 0.05,
                "timestamps go on across the restart: " + v.get("start_time") + " then " + l.get("start_time"));
        thrown(NoSuchFileException.class, () -> live.segment("a", video, 10), "segment past the end");

        // A second item with the controller's other codec; then the third is one too many.
        Path conf = Files.writeString(MediaTest.temp.resolve("mpeg4.conf"), "ConverterCodec=string:MPEG4\n");
        media.settings().setControllerSettingsFile(conf);
        Path other = Files.copy(video, MediaTest.temp.resolve("copy.mp4"));
        equal("Constrained Baseline", probe(live.segment("b", other, 0), "v:0").get("profile"), "MPEG4 choice");
        Path third = Files.copy(video, MediaTest.temp.resolve("third.mp4"));
        thrown(LiveConversions.BusyException.class, () -> live.segment("c", third, 0), "a third conversion");
        check(logs.get(LogBook.LIVE_CONVERSION).contains("conversions already running"), "refusal logged");
        check(!ffmpegs().isEmpty(), "conversions running before the stop");

        freezeFfmpegs();
        long start = System.nanoTime();
        media.stopLive();
        long millis = (System.nanoTime() - start) / 1_000_000;
        check(millis < 2500, "stopped in " + millis + " ms");
        check(ffmpegs().isEmpty(), "no ffmpeg left after the stop: " + ffmpegs());
        equal(0, sessionFolders(media.settings().cacheFolder()), "session folders removed");
        equal(0, live.count(), "no sessions");
    }

    static void testPlayingThroughKeepsOneFfmpeg() throws Exception {
        MediaServices media = services();
        Path video = Files.copy(clip(), MediaTest.temp.resolve("through.mp4"));
        media.live().playlist("through", video);
        for (int n = 0; n < 10; n++)
            check(Files.size(media.live().segment("through", video, n)) > 0, "segment " + n);
        String log = logs.get(LogBook.LIVE_CONVERSION);
        equal(1, log.split("Started converting", -1).length - 1, "one ffmpeg from start to end: " + log);
    }

    static void testHlsEndOfFile() throws Exception {
        MediaServices media = services();
        // 12.3 s: a playlist of two segments, the last 6.3 s long, though ffmpeg cuts a third at 12 s.
        Path video = MediaTest.temp.resolve("tail.mp4");
        ffmpeg("-f", "lavfi", "-i", "testsrc=size=64x48:rate=10", "-t", "12.3", "-c:v", "libx264",
                "-preset", "ultrafast", video.toString());
        String playlist = media.live().playlist("tail", video);
        check(playlist.contains("#EXTINF:6.000,\n0.ts\n#EXTINF:6.300,\n1.ts\n#EXT-X-ENDLIST"), playlist);
        Path last = media.live().segment("tail", video, 1);
        double length = (Double) probe(last, "v:0").get("duration");
        check(Math.abs(length - 6.3) < 0.15, "the last segment holds the end of the file: " + length + " s");
        check(!Files.exists(last.resolveSibling("2.ts")), "no segment left beyond the playlist");
    }

    static void testFfmpegFailureLogged() throws Exception {
        MediaServices media = services();
        Path fake = MediaTest.temp.resolve("failing-ffmpeg");
        Files.writeString(fake, "#!/bin/sh\necho 'Unknown encoder boom' >&2\nexit 1\n");
        check(fake.toFile().setExecutable(true), "script made executable");
        media.settings().setFfmpegPath(fake.toString());
        thrown(IOException.class, () -> media.live().segment("f", clip(), 0), "a segment from a failing ffmpeg");
        String log = logs.get(LogBook.LIVE_CONVERSION);
        check(log.contains("ffmpeg failed on") && log.contains("Unknown encoder boom"), "failure text logged: " + log);
    }

    static void testIdleConversionEnds() throws Exception {
        System.setProperty(MediaSettings.LIVE_IDLE_PROPERTY, "2");
        try {
            MediaServices media = services();
            media.live().segment("idle", clip(), 0);
            long start = System.nanoTime();
            freezeFfmpegs();
            check(!ffmpegs().isEmpty(), "ffmpeg still running (frozen) while nobody asks");
            // The line is written once ffmpeg is gone and the folder removed.
            waitFor(() -> logs.get(LogBook.LIVE_CONVERSION).contains("nobody asked for it in 2 s\n"), 8000, "the idle end");
            long millis = (System.nanoTime() - start) / 1_000_000;
            check(ffmpegs().isEmpty(), "no ffmpeg left after the idle time");
            check(millis >= 1500, "not ended before the idle time: " + millis + " ms");
            equal(0, sessionFolders(media.settings().cacheFolder()), "session folder removed");
            equal(0, media.live().count(), "session gone");
        } finally {
            System.clearProperty(MediaSettings.LIVE_IDLE_PROPERTY);
        }
    }

    static void testThumbnailWidthAndCache() throws Exception {
        System.setProperty(MediaSettings.MAX_THUMBNAIL_WIDTH_PROPERTY, "100");
        try {
            MediaServices media = services();
            Path jpeg = media.thumbnails().thumbnail("a", clip());
            BufferedImage image = ImageIO.read(jpeg.toFile());
            check(image != null && image.getWidth() == 100 && Math.abs(image.getHeight() - 75) <= 1,
                    "100 wide, aspect kept: " + (image == null ? null : image.getWidth() + "x" + image.getHeight()));
            equal(jpeg, media.thumbnails().thumbnail("a", clip()), "the same file the second time");
            String log = logs.get(LogBook.THUMBNAIL);
            check(log.contains("at 6.0 s") && log.indexOf("Thumbnail of") == log.lastIndexOf("Thumbnail of"),
                    "made once, at a tenth of the length: " + log);
            Path broken = Files.writeString(MediaTest.temp.resolve("fake.mp4"), "not a video");
            thrown(IOException.class, () -> media.thumbnails().thumbnail("x", broken), "no thumbnail of a broken file");
        } finally {
            System.clearProperty(MediaSettings.MAX_THUMBNAIL_WIDTH_PROPERTY);
        }
    }

    static void testMetadataInBackgroundAndOnDisk() throws Exception {
        MediaServices media = services();
        Path video = Files.copy(clip(), MediaTest.temp.resolve("meta.mp4"));
        long size = Files.size(video);
        long mtime = Files.getLastModifiedTime(video).toMillis();
        long start = System.nanoTime();
        check(media.metadata().cached(video, size, mtime) == null, "unknown at first");
        check(System.nanoTime() - start < 50_000_000L, "the first call does not wait for ffprobe");
        waitFor(() -> media.metadata().cached(video, size, mtime) != null, 5000, "the background probe");
        MediaInfo info = media.metadata().cached(video, size, mtime);
        check(info.width == 320 && info.height == 240 && "h264".equals(info.videoCodec)
                && "aac".equals(info.audioCodec) && Math.abs(info.duration - 60) < 0.2, "probed: " + info);
        try (Stream<Path> s = Files.list(media.settings().cacheFolder().resolve("metadata"))) {
            check(s.anyMatch(p -> p.toString().endsWith(".json")), "kept on disk");
        }
        // A fresh store (a restart) finds it on disk, and drops what is months old; a changed file is a new key.
        Path old = Files.writeString(Files.createDirectories(media.settings().cacheFolder().resolve("thumbnails"))
                .resolve("gone.jpg"), "x");
        Files.setLastModifiedTime(old, FileTime.fromMillis(System.currentTimeMillis() - 100L * 86_400_000L));
        MediaServices again = services();
        again.settings().setFfmpegPath("/nowhere/ffmpeg"); // no ffprobe either: only the disk can answer
        waitFor(() -> again.metadata().cached(video, size, mtime) != null, 2000, "read back from disk");
        equal(320, again.metadata().cached(video, size, mtime).width, "width read back from disk");
        waitFor(() -> !Files.exists(old), 2000, "an entry 100 days old pruned");
        Files.setLastModifiedTime(video, FileTime.fromMillis(mtime + 10_000));
        check(again.metadata().cached(video, size, mtime + 10_000) == null, "a changed file is not taken as known");
    }

    static void testEmbeddedAndAssSubtitles() throws Exception {
        MediaServices media = services();
        media.settings().setDefaultCharset("ISO-8859-1");
        Path dir = Files.createDirectories(MediaTest.temp.resolve("subs"));
        Path srt = Files.writeString(dir.resolve("in.srt"), "1\n00:00:01,000 --> 00:00:02,000\nBonjour \u00e0 tous\n");
        Path mkv = dir.resolve("movie.mkv");
        ffmpeg("-f", "lavfi", "-i", "testsrc=size=64x48:rate=5", "-i", srt.toString(), "-t", "3",
                "-map", "0", "-map", "1", "-c:v", "libx264", "-preset", "ultrafast", "-c:s", "srt",
                "-metadata:s:s:0", "language=fre", mkv.toString());
        Files.delete(srt);
        Files.write(dir.resolve("movie.ger.ass"), ("[Script Info]\nScriptType: v4.00+\n\n[V4+ Styles]\n"
                + "Format: Name, Fontname, Fontsize, PrimaryColour, Bold, Italic\nStyle: Default,Arial,20,&H00FFFFFF,0,0\n\n"
                + "[Events]\nFormat: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n"
                + "Dialogue: 0,0:00:01.00,0:00:02.50,Default,,0,0,0,,Gr\u00fc\u00dfe {\\i1}alle{\\i0}\n")
                .getBytes(StandardCharsets.ISO_8859_1));
        media.settings().setPreferredLanguages("German");
        MediaInfo info = media.metadata().probe(mkv);
        List<SubtitleTrack> tracks = media.subtitles().tracks(mkv, info);
        equal(2, tracks.size(), "a sidecar and an embedded track");
        check(!tracks.get(0).embedded() && "de".equals(tracks.get(0).language()), "German sidecar first");
        SubtitleTrack fr = tracks.get(1);
        check(fr.embedded() && "fr".equals(fr.language()) && fr.label().equals("French"), "embedded track " + fr);
        String vtt = media.subtitles().webVtt(mkv, fr);
        check(vtt.startsWith("WEBVTT") && vtt.contains("00:01.000 --> ") && vtt.contains("Bonjour \u00e0 tous"),
                "embedded track as WebVTT: " + vtt);
        equal(vtt, media.subtitles().webVtt(mkv, fr), "served again from the cache");
        String ass = media.subtitles().webVtt(mkv, tracks.get(0));
        check(ass.startsWith("WEBVTT") && ass.contains("Gr\u00fc\u00dfe <i>alle</i>"), "ASS through ffmpeg: " + ass);
        check(logs.get(LogBook.SUBTITLES).contains("Extracted subtitle stream"), "extraction logged");
        check(ffmpegs().isEmpty(), "no ffmpeg left behind");
    }
}
