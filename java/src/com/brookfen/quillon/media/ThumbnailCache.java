package com.brookfen.quillon.media;

import com.brookfen.quillon.server.LogBook;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.util.Arrays;
import java.util.List;
import java.util.Locale;
import java.util.concurrent.Semaphore;

/**
 * One JPEG per video: the frame at a tenth of its length, no wider than the controller's
 * maximal thumbnail width, kept on disk under the same key as the metadata.
 */
public final class ThumbnailCache {
    static final long TIMEOUT_MILLIS = 30_000;

    private final MediaSettings settings;
    private final MetadataStore metadata;
    private final ChildProcesses children;
    private final LogBook logs;
    /** Two ffmpegs at most, however many thumbnails a page asks for at once. */
    private final Semaphore slots = new Semaphore(2, true);

    public ThumbnailCache(MediaSettings settings, MetadataStore metadata, ChildProcesses children, LogBook logs) {
        this.settings = settings;
        this.metadata = metadata;
        this.children = children;
        this.logs = logs;
    }

    /** The JPEG of the item, made now unless it was made before for the file as it is. */
    public Path thumbnail(String itemId, Path source) throws IOException {
        int width = settings.maxThumbnailWidth();
        Path file = settings.cacheFolder().resolve("thumbnails")
                .resolve(MetadataStore.key(source) + "-" + width + ".jpg");
        if (Files.isRegularFile(file)) {
            return file;
        }
        try {
            slots.acquire();
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            throw new IOException("Interrupted", e);
        }
        try {
            // Another request may have made it while this one waited.
            if (Files.isRegularFile(file)) {
                return file;
            }
            return make(source, file, width);
        } catch (IOException e) {
            logs.append(LogBook.THUMBNAIL, "Couldn't make the thumbnail of " + source + ": " + e.getMessage());
            throw e;
        } finally {
            slots.release();
        }
    }

    private Path make(Path source, Path file, int width) throws IOException {
        MediaInfo info = metadata.probe(source);
        if (info.videoCodec == null) {
            throw new IOException("No video in " + source);
        }
        double at = info.duration == null ? 0 : info.duration * 0.1;
        Files.createDirectories(file.getParent());
        Path temp = Files.createTempFile(file.getParent(), ".thumb", ".jpg");
        try {
            List<String> cmd = Arrays.asList(settings.ffmpegPath(), "-nostdin", "-hide_banner", "-loglevel", "error",
                    "-y", "-ss", String.format(Locale.ROOT, "%.3f", at), "-i", source.toString(),
                    "-map", "0:V:0", "-frames:v", "1", "-an", "-sn",
                    "-vf", "scale=trunc(iw*sar/2)*2:ih,setsar=1,scale=w='min(iw," + width + ")':h=-2,format=yuvj420p",
                    "-q:v", "4",
                    "-f", "image2", "-c:v", "mjpeg", temp.toString());
            ChildProcesses.Result r = children.run(cmd, TIMEOUT_MILLIS);
            if (r.exitCode != 0 || Files.size(temp) == 0) {
                throw new IOException(r.errorTail.isEmpty() ? "ffmpeg exit status " + r.exitCode : r.errorTail);
            }
            Files.move(temp, file, StandardCopyOption.REPLACE_EXISTING, StandardCopyOption.ATOMIC_MOVE);
            logs.append(LogBook.THUMBNAIL, "Thumbnail of " + source + " at " + String.format(Locale.ROOT, "%.1f", at)
                    + " s");
            return file;
        } finally {
            Files.deleteIfExists(temp);
        }
    }
}
