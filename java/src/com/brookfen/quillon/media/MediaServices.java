package com.brookfen.quillon.media;

import com.brookfen.quillon.server.LogBook;
import com.brookfen.quillon.subtitles.Subtitles;

/** Everything the server asks of ffmpeg and ffprobe, and the settings behind it; one per server. */
public final class MediaServices {
    private final MediaSettings settings = new MediaSettings();
    private final ChildProcesses children = new ChildProcesses();
    private final MetadataStore metadata;
    private final LiveConversions live;
    private final ThumbnailCache thumbnails;
    private final Subtitles subtitles;

    public MediaServices(LogBook logs) {
        metadata = new MetadataStore(settings, children, logs);
        live = new LiveConversions(settings, metadata, children, logs);
        thumbnails = new ThumbnailCache(settings, metadata, children, logs);
        subtitles = new Subtitles(settings, children, logs);
        metadata.preload();
    }

    public MediaSettings settings() {
        return settings;
    }

    public MetadataStore metadata() {
        return metadata;
    }

    public LiveConversions live() {
        return live;
    }

    public ThumbnailCache thumbnails() {
        return thumbnails;
    }

    public Subtitles subtitles() {
        return subtitles;
    }

    public ChildProcesses children() {
        return children;
    }

    /** The HTTP server stopped: no one watches any more, so every live ffmpeg ends. */
    public void stopLive() {
        live.stopAll();
    }

    /** The server quits: every child ends and no new one starts. */
    public void shutdown() {
        live.stopAll();
        metadata.shutdown();
        children.shutdown();
    }
}
