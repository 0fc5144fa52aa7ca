package com.brookfen.quillon.common.control;

import com.brookfen.quillon.media.MediaSettings;
import com.brookfen.quillon.server.LogBook;
import com.brookfen.quillon.server.ServerCore;

import java.awt.GraphicsEnvironment;
import java.io.File;
import java.nio.charset.Charset;
import java.text.Collator;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.Locale;
import java.util.TreeSet;

/** The controller's handle on the server: every call it makes arrives here. */
public final class ServerControl {
    private static final ServerCore CORE = ServerCore.get();
    /** Java's logical families: always present, even when the system has no fonts. */
    private static final List<String> LOGICAL_FONTS =
            Arrays.asList("Dialog", "DialogInput", "Monospaced", "SansSerif", "Serif");

    private static final MediaSettings MEDIA = CORE.media().settings();
    private static List<String> fontFamilies;

    private ServerControl() {
    }

    // ---- lifecycle ----

    /** Records the application folder, where the controller keeps the folder files. */
    public static void init(String applicationFolder) {
        if (applicationFolder == null || applicationFolder.isEmpty()) {
            System.err.println("Quillon server: no application folder given");
            return;
        }
        CORE.setAppFolder(new File(applicationFolder));
        CORE.logs().append(LogBook.THUMBNAIL, "Maximum thumbnail width: " + maxThumbnailWidth());
        CORE.logs().append(LogBook.CONVERSION, "Application folder: " + applicationFolder);
    }

    static int maxThumbnailWidth() {
        return MEDIA.maxThumbnailWidth();
    }

    public static void initialized() {
        CORE.initialized();
    }

    /** Returns the port now listened on, or -1 when the port could not be bound. */
    public static int startServer() {
        return CORE.start();
    }

    public static void stopServer() {
        CORE.stop();
    }

    public static void quit() {
        CORE.quit();
    }

    public static boolean serverRunning() {
        return CORE.isRunning();
    }

    /** The port listened on, or -1 while stopped. */
    public static int getServerPort() {
        return CORE.getBoundPort();
    }

    public static String getApplicationFolder() {
        File f = CORE.getAppFolder();
        return f == null ? null : f.getPath();
    }

    // ---- network settings ----

    public static void setDefaultPort(int port) {
        CORE.setDefaultPort(port);
    }

    public static int getDefaultPort() {
        return CORE.getDefaultPort();
    }

    public static void setComputerName(String name) {
        CORE.setComputerName(name);
    }

    public static String getComputerName() {
        return CORE.getComputerName();
    }

    public static void setPasswordDigest(String digest) {
        CORE.setPasswordDigest(digest);
    }

    public static String getPasswordDigest() {
        return CORE.getPasswordDigest();
    }

    // ---- converter ----

    public static void setConverterMaxWidth(int width) {
        CORE.converter().setMaxWidth(width);
        MEDIA.setMaxWidth(width);
        CORE.logs().append(LogBook.CONVERSION, "Maximum width: " + width);
    }

    public static int getConverterMaxWidth() {
        return CORE.converter().getMaxWidth();
    }

    public static void setConverterMaxHeight(int height) {
        CORE.converter().setMaxHeight(height);
        MEDIA.setMaxHeight(height);
        CORE.logs().append(LogBook.CONVERSION, "Maximum height: " + height);
    }

    public static int getConverterMaxHeight() {
        return CORE.converter().getMaxHeight();
    }

    public static void setConverterFFMpegPath(String path) {
        CORE.converter().setFFMpegPath(path);
        MEDIA.setFfmpegPath(path);
        CORE.logs().append(LogBook.CONVERSION, "ffmpeg: " + path);
        CORE.logs().append(LogBook.LIVE_CONVERSION, "ffmpeg: " + path);
        CORE.logs().append(LogBook.THUMBNAIL, "ffmpeg: " + path);
    }

    public static String getConverterFFMpegPath() {
        return CORE.converter().getFFMpegPath();
    }

    /** Kept for completeness: ffmpeg encodes the audio itself. */
    public static void setConverterFaacPath(String path) {
        CORE.setFaacPath(path);
        CORE.logs().append(LogBook.CONVERSION, "faac: " + path);
    }

    public static String getConverterFaacPath() {
        return CORE.getFaacPath();
    }

    /** Kept for completeness: ffmpeg writes the MP4 container itself. */
    public static void setConverterMuxerPath(String path) {
        CORE.setMuxerPath(path);
        CORE.logs().append(LogBook.CONVERSION, "muxer: " + path);
    }

    public static String getConverterMuxerPath() {
        return CORE.getMuxerPath();
    }

    public static void converterResetQueue() {
        CORE.converter().reset();
    }

    public static String getConverterQueueAsJSON() {
        return CORE.converter().queueJson();
    }

    public static String getLastConversionLog() {
        return CORE.converter().lastLog();
    }

    // ---- subtitles ----

    public static void setFontSize(int size) {
        if (size < 1 || size > 400) {
            subtitleLog("Font size " + size + " refused; keeping " + MEDIA.fontSize());
            return;
        }
        MEDIA.setFontSize(size);
        subtitleLog("Font size: " + size);
    }

    public static int getFontSize() {
        return MEDIA.fontSize();
    }

    public static void setDisableEmbeddedSubtitlesIfNoLanguageMatches(boolean disable) {
        MEDIA.setDisableEmbeddedSubtitles(disable);
        subtitleLog("Embedded subtitles " + (disable ? "off" : "kept") + " when no language matches");
    }

    public static boolean isDisableEmbeddedSubtitlesIfNoLanguageMatches() {
        return MEDIA.disableEmbeddedSubtitles();
    }

    public static String getDefaultCharset() {
        return MEDIA.defaultCharset();
    }

    /** Only a charset this runtime can decode is taken; anything else keeps the current one. */
    public static void setDefaultCharset(String charset) {
        boolean known;
        try {
            known = charset != null && Charset.isSupported(charset);
        } catch (IllegalArgumentException e) {
            known = false;
        }
        if (!known) {
            subtitleLog("Unknown charset " + charset + " refused; keeping " + MEDIA.defaultCharset());
            return;
        }
        MEDIA.setDefaultCharset(charset);
        subtitleLog("Default charset: " + charset);
    }

    public static String getFontFamilyName() {
        return MEDIA.fontFamily();
    }

    public static void setFontFamilyName(String name) {
        if (name == null || name.isEmpty()) {
            subtitleLog("Empty font family refused; keeping " + MEDIA.fontFamily());
            return;
        }
        MEDIA.setFontFamily(name);
        subtitleLog("Font family: " + name);
    }

    public static void setPreferredLanguages(String[] languages) {
        List<String> kept = new ArrayList<>();
        if (languages != null) {
            for (String l : languages) {
                if (l != null && !l.isEmpty()) {
                    kept.add(l);
                }
            }
        }
        MEDIA.setPreferredLanguages(kept.toArray(new String[0]));
        subtitleLog("Preferred languages: " + String.join(", ", kept));
    }

    public static String[] getPreferredLanguages() {
        return MEDIA.preferredLanguages().toArray(new String[0]);
    }

    /** Every charset of the runtime, by name. */
    public static List<Encoding> getAvailableEncodings() {
        List<Encoding> list = new ArrayList<>();
        for (Charset cs : Charset.availableCharsets().values()) {
            list.add(new Encoding(cs.displayName(Locale.ENGLISH), cs.name()));
        }
        return list;
    }

    /** The font families of the (headless) graphics environment, looked up once. */
    public static synchronized List<String> getAvailableFontFamilyNames() {
        if (fontFamilies == null) {
            List<String> names;
            try {
                names = new ArrayList<>(Arrays.asList(
                        GraphicsEnvironment.getLocalGraphicsEnvironment().getAvailableFontFamilyNames(Locale.ENGLISH)));
            } catch (Throwable e) {
                // A runtime without font support still offers its logical families.
                subtitleLog("Font families unavailable (" + e + "); offering the standard ones");
                names = new ArrayList<>(LOGICAL_FONTS);
            }
            fontFamilies = Collections.unmodifiableList(names);
        }
        return new ArrayList<>(fontFamilies);
    }

    /** Language names in English, sorted, one per ISO 639 language that has a name. */
    public static List<String> getAvailableLanguages() {
        Collator collator = Collator.getInstance(Locale.ENGLISH);
        TreeSet<String> names = new TreeSet<>(collator);
        for (String code : Locale.getISOLanguages()) {
            String name = new Locale(code).getDisplayLanguage(Locale.ENGLISH);
            if (!name.isEmpty() && !name.equals(code)) {
                names.add(name);
            }
        }
        return new ArrayList<>(names);
    }

    // ---- logs ----

    /** The log's text, or null for an identifier that names no log. */
    public static String getLog(String id) {
        return CORE.logs().get(id);
    }

    public static void clearLog(String id) {
        CORE.logs().clear(id);
    }

    private static void subtitleLog(String line) {
        CORE.logs().append(LogBook.SUBTITLES, line);
    }
}
