package com.brookfen.quillon.subtitles;

import java.nio.file.Path;

/** One subtitle track of a video: a file beside it, or a text stream inside it. */
public final class SubtitleTrack {
    private final String label;
    private final String language;
    private final Path file;
    private final int streamIndex;

    private SubtitleTrack(String label, String language, Path file, int streamIndex) {
        this.label = label;
        this.language = language;
        this.file = file;
        this.streamIndex = streamIndex;
    }

    static SubtitleTrack sidecar(String label, String language, Path file) {
        return new SubtitleTrack(label, language, file, -1);
    }

    static SubtitleTrack embedded(String label, String language, int streamIndex) {
        return new SubtitleTrack(label, language, null, streamIndex);
    }

    /** What a player shows in its subtitle menu. */
    public String label() {
        return label;
    }

    /** ISO 639-1 code where there is one, else the file's own code; null when unknown. */
    public String language() {
        return language;
    }

    public boolean embedded() {
        return file == null;
    }

    /** The sidecar file; null for an embedded track. */
    public Path file() {
        return file;
    }

    /** The stream's index inside the video; -1 for a sidecar. */
    public int streamIndex() {
        return streamIndex;
    }

    @Override
    public String toString() {
        return label + " [" + language + (embedded() ? ", embedded #" + streamIndex : ", " + file.getFileName()) + "]";
    }
}
