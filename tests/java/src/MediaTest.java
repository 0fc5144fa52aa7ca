import com.brookfen.quillon.common.control.ServerControl;
import com.brookfen.quillon.media.*;
import com.brookfen.quillon.server.*;
import com.brookfen.quillon.subtitles.*;
import java.nio.charset.*;
import java.nio.file.*;
import java.util.*;

/**
 * The media and subtitle logic without ffmpeg: subtitle text, charsets, language order,
 * ffprobe answers, the controller's settings. Runs MediaFfmpegTest's cases too; exits
 * non-zero on any failure.
 */
public final class MediaTest extends Checks {
    static Path temp;

    public static void main(String[] args) throws Exception {
        if (args.length == 3 && args[0].equals("leave-a-child")) {
            leaveAChild(Path.of(args[1]), args[2].equals("wait"));
            return;
        }
        temp = tempFolder(MediaFfmpegTest::cleanUp);
        System.setProperty(MediaSettings.CACHE_FOLDER_PROPERTY, temp.resolve("cache").toString());
        runTests(() -> { }, MediaFfmpegTest::cleanUp, MediaTest.class, MediaFfmpegTest.class);
    }


    /** Starts a long child through the owner, tells its pid, and exits without ending it. */
    static void leaveAChild(Path pidFile, boolean waitToBeKilled) throws Exception {
        Process p = new com.brookfen.quillon.media.ChildProcesses().start(List.of("sleep", "60"), null, false);
        Files.writeString(pidFile.resolveSibling("tmp.pid"), Long.toString(p.pid()));
        Files.move(pidFile.resolveSibling("tmp.pid"), pidFile, java.nio.file.StandardCopyOption.ATOMIC_MOVE);
        if (waitToBeKilled)
            Thread.sleep(60_000);
        System.exit(0);
    }

    /** A JVM that exits, and one killed outright (as a crashed controller is), leave no child behind. */
    static void testChildrenEndWithTheJvm() throws Exception {
        for (String how : new String[] {"exit", "wait"}) {
            Path pidFile = temp.resolve("child-" + how + ".pid");
            String javaCommand = ProcessHandle.current().info().command().orElse("java");
            Process jvm = new ProcessBuilder(javaCommand, "-cp", System.getProperty("java.class.path"), "MediaTest",
                    "leave-a-child", pidFile.toString(), how).inheritIO().start();
            waitFor(() -> Files.exists(pidFile), 30000, "the child's pid");
            if (how.equals("wait"))
                jvm.destroyForcibly();
            check(jvm.waitFor(30, java.util.concurrent.TimeUnit.SECONDS), "helper JVM ended (" + how + ")");
            long pid = Long.parseLong(Files.readString(pidFile).trim());
            waitFor(() -> !ProcessHandle.of(pid).map(ProcessHandle::isAlive).orElse(false), 2000,
                    "the child to end with its JVM (" + how + ")");
        }
    }

    static void testSrtBecomesWebVtt() {
        String srt = "\uFEFF1\r\n00:00:01,000 --> 00:00:02,500\r\n<i>Hello</i> & <font color=\"red\">bye</font>\r\n"
                + "{\\an8}a < b --> c\r\n\r\n\r\n"
                // no blank line before the next cue, a one-digit fraction, no hours
                + "2\n01:02:03,5 --> 01:02:04,25 X1:10 X2:20\nsecond\n3\n00:10,000 --> 00:11,000\nthird\n"
                + "&amp; stays & <B class=x>b</b>\n\n"
                + "4\n00:00:20,000 --> 00:00:21,000\n\n";
        equal("WEBVTT\n\n1\n00:00:01.000 --> 00:00:02.500\n<i>Hello</i> &amp; bye\na &lt; b -> c\n"
                + "\n2\n01:02:03.500 --> 01:02:04.250\nsecond\n"
                + "\n3\n00:00:10.000 --> 00:00:11.000\nthird\n&amp; stays &amp; <b>b</b>\n", WebVtt.fromSrt(srt),
                "converted SubRip");
        equal("WEBVTT\n", WebVtt.fromSrt("no cues here\n"), "text without cues");
        equal("WEBVTT\n\n00:01.000 --> 00:02.000\nx\n", WebVtt.fromVtt("WEBVTT\r\n\r\n00:01.000 --> 00:02.000\r\nx"),
                "WebVTT line ends made plain");
        check(WebVtt.fromVtt("00:01.000 --> 00:02.000\nx\n").startsWith("WEBVTT\n\n00:01"), "missing header added");
    }

    static void testSidecarCharsets() {
        String text = "D\u00e9j\u00e0 vu \u20ac";
        byte[] cp1252 = text.getBytes(Charset.forName("windows-1252"));
        equal(text, WebVtt.decode(cp1252, "windows-1252"), "not UTF-8: the default charset");
        equal("D\u00e9j\u00e0 vu \u0080", WebVtt.decode(cp1252, "ISO-8859-1"), "another default, another text");
        // Valid UTF-8 and byte order marks win over the default.
        Object[][] unicode = {{"", StandardCharsets.UTF_8}, {"\uFEFF", StandardCharsets.UTF_8},
                {"\uFEFF", StandardCharsets.UTF_16LE}, {"\uFEFF", StandardCharsets.UTF_16BE}};
        for (Object[] u : unicode)
            equal(text, WebVtt.decode((u[0] + text).getBytes((Charset) u[1]), "ISO-8859-1"),
                    u[1] + (u[0].equals("") ? "" : " by its mark"));
        equal("caf\u00e9", WebVtt.decode("caf\u00e9".getBytes(StandardCharsets.ISO_8859_1), "no-such-charset"),
                "an unknown default falls back to Latin-1");
    }

    static List<String> labels(List<SubtitleTrack> tracks) {
        return tracks.stream().map(t -> t.label() + (t.embedded() ? "*" : "")).toList();
    }

    static void testLanguageOrderAndEmbeddedRule() throws Exception {
        MediaServices media = MediaFfmpegTest.services();
        MediaSettings s = media.settings();
        Path dir = Files.createDirectories(temp.resolve("order"));
        Path video = Files.write(dir.resolve("film.mp4"), new byte[0]);
        for (String name : new String[] {"film.srt", "film.en.srt", "film.ger.ass", "film.fre.forced.srt",
                "film.pt-BR.vtt", "film.fr.vtt", "film.txt", "other.fr.srt", "film.extra.cut.srt"})
            Files.write(dir.resolve(name), new byte[0]);
        MediaInfo info = new MediaInfo(60.0, 640, 360, "h264", "aac", Arrays.asList(
                new MediaInfo.Stream(2, "subrip", "eng", "Commentary"),
                new MediaInfo.Stream(3, "hdmv_pgs_subtitle", "fre", null),
                new MediaInfo.Stream(4, "ass", "spa", null),
                new MediaInfo.Stream(5, "mov_text", null, null)));

        s.setPreferredLanguages("French", "German");
        equal(Arrays.asList("French", "French (forced)", "German", "English", "Subtitles (extra cut)", "Portuguese",
                "Subtitles", "Commentary*", "Spanish*", "Embedded 3*"),
                labels(media.subtitles().tracks(video, info)), "French, then German, then the rest in their order");
        equal(List.of(true, true, true, false, false, false, false, false, false, false),
                media.subtitles().tracks(video, info).stream().map(media.subtitles()::preferred).toList(),
                "tracks in a preferred language marked for the web player");

        s.setPreferredLanguages("Spanish", "English");
        s.setDisableEmbeddedSubtitles(true);
        equal(Arrays.asList("Spanish*", "English", "Commentary*"),
                labels(media.subtitles().tracks(video, info)).subList(0, 3), "an embedded match comes first");

        s.setPreferredLanguages("Japanese");
        List<String> none = labels(media.subtitles().tracks(video, info));
        check(none.size() == 7 && none.stream().noneMatch(l -> l.endsWith("*")),
                "no language matches: embedded tracks left out " + none);
        s.setDisableEmbeddedSubtitles(false);
        equal(10, media.subtitles().tracks(video, info).size(), "rule off: embedded kept");

        // A sidecar in a preferred language is a match too; the languages come as files carry them.
        s.setDisableEmbeddedSubtitles(true);
        Files.write(dir.resolve("film.jpn.srt"), new byte[0]);
        Files.setLastModifiedTime(dir, java.nio.file.attribute.FileTime.fromMillis(System.currentTimeMillis() + 5000));
        List<SubtitleTrack> ja = media.subtitles().tracks(video, info);
        check(ja.get(0).label().equals("Japanese") && "ja".equals(ja.get(0).language()) && ja.size() == 11,
                "new sidecar seen and first: " + labels(ja));
        check(ja.stream().anyMatch(t -> "pt".equals(t.language())) && ja.stream().anyMatch(t -> "de".equals(t.language())),
                "region and bibliographic codes normalized");
    }

    static final String PROBE = "{\"programs\":[],\"streams\":["
            + "{\"index\":0,\"codec_name\":\"mjpeg\",\"codec_type\":\"video\",\"width\":600,\"height\":600,"
            + "\"disposition\":{\"attached_pic\":1}},"
            + "{\"index\":1,\"codec_name\":\"hevc\",\"codec_type\":\"video\",\"width\":1920,\"height\":1080,"
            + "\"duration\":\"12.5\",\"disposition\":{\"attached_pic\":0},\"tags\":{}},"
            + "{\"index\":2,\"codec_name\":\"eac3\",\"codec_type\":\"audio\",\"tags\":{\"language\":\"eng\"}},"
            + "{\"index\":3,\"codec_name\":\"aac\",\"codec_type\":\"audio\"},"
            + "{\"index\":4,\"codec_name\":\"subrip\",\"codec_type\":\"subtitle\",\"tags\":{\"language\":\"fre\","
            + "\"title\":\"Fran\\u00e7ais\"}},"
            + "{\"index\":5,\"codec_name\":\"ass\",\"codec_type\":\"subtitle\",\"tags\":{\"language\":\"und\"}}],"
            + "\"format\":{\"duration\":\"3600.250000\"}}";

    static void testFfprobeAnswersAndDirectPlay() {
        MediaInfo i = MediaInfo.fromFfprobe(PROBE);
        equal(3600.25, i.duration, "duration from the format");
        check(i.width == 1920 && i.height == 1080 && "hevc".equals(i.videoCodec) && "eac3".equals(i.audioCodec),
                "first real video and first audio: " + i);
        equal(2, i.subtitleStreams.size(), "subtitle streams");
        MediaInfo.Stream fr = i.subtitleStreams.get(0);
        check(fr.index == 4 && "subrip".equals(fr.codec) && "fre".equals(fr.language) && "Fran\u00e7ais".equals(fr.title),
                "stream " + fr);
        check(i.subtitleStreams.get(1).language == null, "und is no language");
        MediaInfo noFormat = MediaInfo.fromFfprobe(PROBE.replace("\"format\":{\"duration\":\"3600.250000\"}",
                "\"format\":{}"));
        equal(12.5, noFormat.duration, "duration from the video stream when the format has none");
        check(MediaInfo.fromFfprobe("{\"streams\":[{\"codec_type\":\"video\"") == null
                && MediaInfo.fromFfprobe("{}") == null && MediaInfo.fromFfprobe(null) == null, "broken answers");

        MediaInfo mp4 = new MediaInfo(1.0, 2, 2, "h264", "aac", null);
        check(MediaInfo.directPlay("a.MP4", mp4) && MediaInfo.directPlay("a.m4v", null)
                && MediaInfo.directPlay("a.webm", null), "browser containers");
        check(!MediaInfo.directPlay("a.mp4", i) && !MediaInfo.directPlay("a.mkv", mp4)
                && !MediaInfo.directPlay("a.avi", null) && !MediaInfo.directPlay("a.webm", mp4),
                "other codecs or containers");
        check(MediaInfo.directPlay("a.webm", new MediaInfo(1.0, 2, 2, "vp9", "opus", null)), "webm with vp9/opus");
    }

    static void testControllerSettingsReachTheMediaSide() throws Exception {
        MediaSettings s = ServerCore.get().media().settings();
        equal("UTF-8", ServerControl.getDefaultCharset(), "default charset");
        ServerControl.setConverterMaxWidth(640);
        ServerControl.setConverterMaxHeight(360);
        ServerControl.setConverterFFMpegPath("/usr/bin/ffmpeg");
        // Unknown, malformed and missing values are refused, keeping the last good one.
        for (String charset : new String[] {"windows-1252", "no-such-charset", "bad name!", null})
            ServerControl.setDefaultCharset(charset);
        ServerControl.setPreferredLanguages(new String[] {"French", "", null, "German"});
        ServerControl.setDisableEmbeddedSubtitlesIfNoLanguageMatches(true);
        ServerControl.setFontFamilyName("Serif");
        ServerControl.setFontFamilyName("");
        ServerControl.setFontSize(40);
        ServerControl.setFontSize(0);
        check(s.maxWidth() == 640 && s.maxHeight() == 360 && s.ffmpegPath().equals("/usr/bin/ffmpeg"), "converter");
        check(s.defaultCharset().equals("windows-1252") && s.preferredLanguages().equals(Arrays.asList("French", "German"))
                && s.disableEmbeddedSubtitles() && s.fontFamily().equals("Serif") && s.fontSize() == 40, "subtitles");
        check(ServerControl.getDefaultCharset().equals("windows-1252") && ServerControl.getFontFamilyName().equals("Serif"),
                "the getters the controller reads back at start-up");
        ServerControl.setPreferredLanguages(null);
        equal(List.of(), s.preferredLanguages(), "no preferred languages");

        Path conf = temp.resolve("QuillonServer.conf");
        s.setControllerSettingsFile(conf);
        equal("X264", s.codec(), "no settings file");
        Files.writeString(conf, "ConverterMaximalWidth=int:640\nConverterCodec=string:MPEG4\n");
        equal("MPEG4", s.codec(), "codec stored by the controller");
    }
}
