package com.brookfen.quillon.media;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;

/**
 * What the controller tells the media side: converter frame and codec, ffmpeg, subtitle
 * preferences. Every getter may be called from any thread at any time.
 */
public final class MediaSettings {
    public static final String CACHE_FOLDER_PROPERTY = "quillon.cache.folder";
    public static final String MAX_THUMBNAIL_WIDTH_PROPERTY = "quillon-max-thumbnail-width";
    /** Seconds a live session may go without a request; tests shorten it. */
    public static final String LIVE_IDLE_PROPERTY = "quillon.live.idle.seconds";
    static final String DEFAULT_FFMPEG = "/usr/bin/ffmpeg";
    static final String DEFAULT_FFPROBE = "/usr/bin/ffprobe";

    private volatile String ffmpegPath;
    private volatile int maxWidth = 480;
    private volatile int maxHeight = 320;
    private volatile String defaultCharset = "UTF-8";
    private volatile List<String> preferredLanguages = Collections.emptyList();
    private volatile boolean disableEmbeddedSubtitles;
    private volatile String fontFamily = "SansSerif";
    private volatile int fontSize = 24;
    private volatile Path controllerSettingsFile = defaultControllerSettingsFile();

    public String ffmpegPath() {
        String p = ffmpegPath;
        return p == null || p.isEmpty() ? DEFAULT_FFMPEG : p;
    }

    public void setFfmpegPath(String path) {
        ffmpegPath = path;
    }

    /** "ffprobe" beside the real ffmpeg (links followed), else the system's. */
    public String ffprobePath() {
        try {
            Path real = Paths.get(ffmpegPath()).toRealPath();
            Path beside = real.resolveSibling("ffprobe");
            if (Files.isExecutable(beside)) {
                return beside.toString();
            }
        } catch (IOException | RuntimeException ignored) {
            // no usable ffmpeg path: fall back
        }
        return DEFAULT_FFPROBE;
    }

    public int maxWidth() {
        return maxWidth;
    }

    public void setMaxWidth(int w) {
        maxWidth = w;
    }

    public int maxHeight() {
        return maxHeight;
    }

    public void setMaxHeight(int h) {
        maxHeight = h;
    }

    /** The controller's "ConverterCodec" ("X264" unless it stored another), read from its settings file. */
    public String codec() {
        Path file = controllerSettingsFile;
        if (file != null) {
            try {
                for (String line : Files.readAllLines(file, StandardCharsets.UTF_8)) {
                    if (line.startsWith("ConverterCodec=string:")) {
                        String v = line.substring("ConverterCodec=string:".length()).trim();
                        if (!v.isEmpty()) {
                            return v;
                        }
                    }
                }
            } catch (IOException | RuntimeException ignored) {
                // no settings file yet: the controller's default applies
            }
        }
        return "X264";
    }

    /** Tests point this elsewhere; normally $XDG_CONFIG_HOME/Quillon/QuillonServer.conf. */
    public void setControllerSettingsFile(Path file) {
        controllerSettingsFile = file;
    }

    static Path defaultControllerSettingsFile() {
        String config = System.getenv("XDG_CONFIG_HOME");
        Path base = config != null && !config.isEmpty() ? Paths.get(config) : home().resolve(".config");
        return base.resolve("Quillon").resolve("QuillonServer.conf");
    }

    public int maxThumbnailWidth() {
        return positiveProperty(MAX_THUMBNAIL_WIDTH_PROPERTY, 256);
    }

    /** How long a live session lives without requests, in milliseconds. */
    public long liveIdleMillis() {
        return positiveProperty(LIVE_IDLE_PROPERTY, 60) * 1000L;
    }

    private static int positiveProperty(String name, int fallback) {
        try {
            int v = Integer.parseInt(System.getProperty(name, Integer.toString(fallback)).trim());
            return v > 0 ? v : fallback;
        } catch (NumberFormatException e) {
            return fallback;
        }
    }

    public String defaultCharset() {
        return defaultCharset;
    }

    public void setDefaultCharset(String charset) {
        defaultCharset = charset == null || charset.isEmpty() ? "UTF-8" : charset;
    }

    /** English language names, in the controller's order of preference. */
    public List<String> preferredLanguages() {
        return preferredLanguages;
    }

    public void setPreferredLanguages(String... names) {
        List<String> kept = new ArrayList<>();
        if (names != null) {
            for (String n : names) {
                if (n != null && !n.isEmpty()) {
                    kept.add(n);
                }
            }
        }
        preferredLanguages = Collections.unmodifiableList(kept);
    }

    public boolean disableEmbeddedSubtitles() {
        return disableEmbeddedSubtitles;
    }

    public void setDisableEmbeddedSubtitles(boolean disable) {
        disableEmbeddedSubtitles = disable;
    }

    public String fontFamily() {
        return fontFamily;
    }

    public void setFontFamily(String family) {
        fontFamily = family;
    }

    public int fontSize() {
        return fontSize;
    }

    public void setFontSize(int size) {
        fontSize = size;
    }

    /** Where thumbnails, metadata and live sessions go. */
    public Path cacheFolder() {
        String forced = System.getProperty(CACHE_FOLDER_PROPERTY);
        if (forced != null && !forced.isEmpty()) {
            return Paths.get(forced);
        }
        String cache = System.getenv("XDG_CACHE_HOME");
        Path base = cache != null && !cache.isEmpty() ? Paths.get(cache) : home().resolve(".cache");
        return base.resolve("QuillonServer");
    }

    static Path home() {
        String home = System.getenv("HOME");
        return Paths.get(home != null && !home.isEmpty() ? home : System.getProperty("user.home"));
    }
}
