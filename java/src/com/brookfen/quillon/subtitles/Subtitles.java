package com.brookfen.quillon.subtitles;

import com.brookfen.quillon.media.ChildProcesses;
import com.brookfen.quillon.media.MediaInfo;
import com.brookfen.quillon.media.MediaSettings;
import com.brookfen.quillon.media.MetadataStore;
import com.brookfen.quillon.server.LogBook;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.Comparator;
import java.util.HashMap;
import java.util.HashSet;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.Set;

/**
 * The subtitle tracks of a video, sidecar files beside it and text streams inside it, in
 * the order of the controller's preferred languages, each served as WebVTT.
 */
public final class Subtitles {
    static final Set<String> SIDECAR_EXTENSIONS = Set.of("srt", "ass", "ssa", "vtt");
    /** Embedded codecs ffmpeg turns into text; picture-based ones (DVD, Blu-ray) are not offered. */
    static final Set<String> TEXT_CODECS = Set.of("subrip", "srt", "ass", "ssa", "webvtt", "mov_text", "text",
            "microdvd", "subviewer", "subviewer1", "realtext", "sami", "stl", "jacosub", "mpl2", "pjs", "vplayer");
    static final long MAX_SIDECAR_BYTES = 16L << 20;
    static final long FFMPEG_TIMEOUT_MILLIS = 120_000;
    private static final int LISTINGS_KEPT = 512;

    private final MediaSettings settings;
    private final ChildProcesses children;
    private final LogBook logs;
    /** Subtitle file names per folder, by the folder's modification time, so that a listing lists each folder once. */
    private final Map<Path, Listing> listings = new LinkedHashMap<Path, Listing>(64, 0.75f, true) {
        private static final long serialVersionUID = 1L;

        @Override
        protected boolean removeEldestEntry(Map.Entry<Path, Listing> eldest) {
            return size() > LISTINGS_KEPT;
        }
    };

    private static final class Listing {
        final long mtime;
        final List<String> names;

        Listing(long mtime, List<String> names) {
            this.mtime = mtime;
            this.names = names;
        }
    }

    public Subtitles(MediaSettings settings, ChildProcesses children, LogBook logs) {
        this.settings = settings;
        this.children = children;
        this.logs = logs;
    }

    /** The tracks in the order served: preferred languages first, the embedded rule applied. */
    public List<SubtitleTrack> tracks(Path video, MediaInfo info) {
        List<SubtitleTrack> all = new ArrayList<>(sidecars(video));
        if (info != null) {
            int n = 0;
            for (MediaInfo.Stream s : info.subtitleStreams) {
                if (s.codec == null || !TEXT_CODECS.contains(s.codec)) {
                    continue;
                }
                n++;
                String lang = Languages.normalize(s.language);
                String label = s.title != null ? s.title
                        : lang != null ? Languages.displayName(lang) : "Embedded " + n;
                all.add(SubtitleTrack.embedded(label, lang, s.index));
            }
        }
        return order(all, settings.preferredLanguages(), settings.disableEmbeddedSubtitles());
    }

    /** Whether a track is in one of the preferred languages: the web player shows the first such. */
    public boolean preferred(SubtitleTrack track) {
        if (track.language() == null) {
            return false;
        }
        for (String name : settings.preferredLanguages()) {
            if (track.language().equals(Languages.forName(name))) {
                return true;
            }
        }
        return false;
    }

    /**
     * Tracks in a preferred language first, in the order of the preferences, the rest after
     * in their own order. With dropEmbedded and no track in any preferred language, the
     * embedded tracks are left out.
     */
    static List<SubtitleTrack> order(List<SubtitleTrack> tracks, List<String> preferred, boolean dropEmbedded) {
        List<String> codes = new ArrayList<>();
        for (String name : preferred) {
            String code = Languages.forName(name);
            if (code != null && !codes.contains(code)) {
                codes.add(code);
            }
        }
        Map<SubtitleTrack, Integer> rank = new HashMap<>();
        boolean anyMatch = false;
        for (SubtitleTrack t : tracks) {
            int r = t.language() == null ? -1 : codes.indexOf(t.language());
            anyMatch |= r >= 0;
            rank.put(t, r < 0 ? codes.size() : r);
        }
        List<SubtitleTrack> out = new ArrayList<>();
        for (SubtitleTrack t : tracks) {
            if (!(dropEmbedded && !anyMatch && t.embedded())) {
                out.add(t);
            }
        }
        // A stable sort: equal ranks keep sidecars before embedded tracks and their own order.
        out.sort(Comparator.comparingInt(rank::get));
        return out;
    }

    /** The subtitle files beside the video: same base name, an optional language tag, a known extension. */
    List<SubtitleTrack> sidecars(Path video) {
        Path dir = video.toAbsolutePath().getParent();
        String name = video.getFileName().toString();
        int dot = name.lastIndexOf('.');
        String base = dot > 0 ? name.substring(0, dot) : name;
        List<SubtitleTrack> found = new ArrayList<>();
        Set<String> labels = new HashSet<>();
        for (String file : subtitleFiles(dir)) {
            if (!file.startsWith(base + ".")) {
                continue;
            }
            String ext = extension(file);
            int end = file.length() - ext.length() - 1;
            String middle = end > base.length() ? file.substring(base.length() + 1, end) : "";
            String language = null;
            List<String> extras = new ArrayList<>();
            for (String part : middle.isEmpty() ? new String[0] : middle.split("\\.")) {
                String code = language == null ? Languages.normalize(part) : null;
                if (code != null) {
                    language = code;
                } else if (!part.isEmpty()) {
                    extras.add(part);
                }
            }
            String label = language != null ? Languages.displayName(language) : "Subtitles";
            if (!extras.isEmpty()) {
                label += " (" + String.join(" ", extras) + ")";
            }
            // Two files of one language ("movie.fr.srt", "movie.fr.ass") need telling apart.
            if (!labels.add(label)) {
                label += " (" + ext.toUpperCase(Locale.ROOT) + ")";
                labels.add(label);
            }
            found.add(SubtitleTrack.sidecar(label, language, dir.resolve(file)));
        }
        return found;
    }

    private List<String> subtitleFiles(Path dir) {
        long mtime;
        try {
            mtime = Files.getLastModifiedTime(dir).toMillis();
        } catch (IOException e) {
            return Collections.emptyList();
        }
        synchronized (listings) {
            Listing l = listings.get(dir);
            if (l != null && l.mtime == mtime) {
                return l.names;
            }
        }
        List<String> names = new ArrayList<>();
        try (DirectoryStream<Path> entries = Files.newDirectoryStream(dir)) {
            for (Path p : entries) {
                String n = p.getFileName().toString();
                if (SIDECAR_EXTENSIONS.contains(extension(n)) && !n.startsWith(".")) {
                    names.add(n);
                }
            }
        } catch (IOException e) {
            return Collections.emptyList();
        }
        names.sort(null);
        List<String> kept = Collections.unmodifiableList(names);
        synchronized (listings) {
            listings.put(dir, new Listing(mtime, kept));
        }
        return kept;
    }

    static String extension(String name) {
        int dot = name.lastIndexOf('.');
        return dot < 0 ? "" : name.substring(dot + 1).toLowerCase(Locale.ROOT);
    }

    /** The track as WebVTT text. */
    public String webVtt(Path video, SubtitleTrack track) throws IOException {
        try {
            return track.embedded() ? embedded(video, track.streamIndex()) : sidecar(track.file());
        } catch (IOException e) {
            logs.append(LogBook.SUBTITLES, "Couldn't read the subtitles " + track + " of " + video + ": " + e.getMessage());
            throw e;
        }
    }

    private String sidecar(Path file) throws IOException {
        if (Files.size(file) > MAX_SIDECAR_BYTES) {
            throw new IOException("too large a subtitle file");
        }
        String text = WebVtt.decode(Files.readAllBytes(file), settings.defaultCharset());
        String ext = extension(file.getFileName().toString());
        if (ext.equals("srt")) {
            return WebVtt.fromSrt(text);
        }
        if (ext.equals("vtt")) {
            return WebVtt.fromVtt(text);
        }
        // ASS and SSA: ffmpeg lays out their styled text; it is handed the already-decoded text.
        Path folder = Files.createDirectories(settings.cacheFolder().resolve("subtitles"));
        Path temp = Files.createTempFile(folder, ".sidecar", "." + ext);
        try {
            Files.write(temp, text.getBytes(StandardCharsets.UTF_8));
            String vtt = ffmpegToVtt(Arrays.asList("-i", temp.toString(), "-map", "0:s:0"), file);
            logs.append(LogBook.SUBTITLES, "Converted " + file + " to WebVTT");
            return vtt;
        } finally {
            Files.deleteIfExists(temp);
        }
    }

    private String embedded(Path video, int index) throws IOException {
        Path cached = settings.cacheFolder().resolve("subtitles").resolve(MetadataStore.key(video) + "-" + index + ".vtt");
        try {
            return new String(Files.readAllBytes(cached), StandardCharsets.UTF_8);
        } catch (IOException notYet) {
            // extracted below
        }
        String vtt = ffmpegToVtt(Arrays.asList("-i", video.toString(), "-map", "0:" + index), video);
        Files.createDirectories(cached.getParent());
        Path temp = Files.createTempFile(cached.getParent(), ".track", ".vtt");
        Files.write(temp, vtt.getBytes(StandardCharsets.UTF_8));
        Files.move(temp, cached, StandardCopyOption.REPLACE_EXISTING, StandardCopyOption.ATOMIC_MOVE);
        logs.append(LogBook.SUBTITLES, "Extracted subtitle stream " + index + " of " + video);
        return vtt;
    }

    private String ffmpegToVtt(List<String> input, Path what) throws IOException {
        List<String> cmd = new ArrayList<>(Arrays.asList(settings.ffmpegPath(), "-nostdin", "-hide_banner",
                "-loglevel", "error"));
        cmd.addAll(input);
        cmd.addAll(Arrays.asList("-c:s", "webvtt", "-f", "webvtt", "pipe:1"));
        ChildProcesses.Result r = children.run(cmd, FFMPEG_TIMEOUT_MILLIS);
        String vtt = new String(r.output, StandardCharsets.UTF_8);
        if (r.exitCode != 0 || !vtt.startsWith("WEBVTT")) {
            throw new IOException("ffmpeg could not convert " + what.getFileName() + ": "
                    + (r.errorTail.isEmpty() ? "exit status " + r.exitCode : r.errorTail));
        }
        return vtt;
    }
}
