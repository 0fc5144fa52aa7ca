package com.brookfen.quillon.http;

import org.eclipse.jetty.http.HttpField;
import org.eclipse.jetty.http.HttpHeader;
import org.eclipse.jetty.http.ResourceHttpContent;
import org.eclipse.jetty.server.HttpOutput;
import org.eclipse.jetty.util.resource.PathResource;

import java.io.IOException;
import java.io.OutputStream;
import java.nio.ByteBuffer;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.BasicFileAttributes;

/**
 * One file version for Jetty's resource service: a strong ETag (size and modification
 * time), and, when mapped, whole answers and single ranges written from the map.
 */
final class FileContent extends ResourceHttpContent {
    private final String etag;
    private final ByteBuffer map;
    /** The length announced: the file's, or a single range's. */
    private final long length;

    private FileContent(MappedResource resource, String type, String etag, ByteBuffer map, long length) {
        super(resource, type);
        this.etag = etag;
        this.map = map;
        this.length = length;
    }

    /** Whether single ranges can be answered from the map as a content of their own. */
    boolean mapped() {
        return map != null && length == map.capacity();
    }

    /** One range of a mapped file as a content of its own, so that Jetty sends it without a blocked thread. */
    FileContent range(long first, long size) {
        ByteBuffer slice = map.duplicate();
        slice.limit((int) (first + size)).position((int) first);
        return new FileContent((MappedResource) getResource(), getContentTypeValue(), etag, slice.slice(), size);
    }

    @Override
    public HttpField getContentLength() {
        return new HttpField(HttpHeader.CONTENT_LENGTH, Long.toString(length));
    }

    @Override
    public long getContentLengthValue() {
        return length;
    }

    /** The content of a file that exists; mapped when maps is given. */
    static FileContent of(Path file, String type, MappedFiles maps) throws IOException {
        BasicFileAttributes a = Files.readAttributes(file, BasicFileAttributes.class);
        long modified = a.lastModifiedTime().toMillis();
        ByteBuffer map = maps == null ? null : maps.map(file, a.size(), modified);
        String etag = "\"" + Long.toHexString(modified) + "-" + Long.toHexString(a.size()) + "\"";
        return new FileContent(new MappedResource(file, map), type, etag, map, a.size());
    }

    @Override
    public HttpField getETag() {
        return new HttpField(HttpHeader.ETAG, etag);
    }

    @Override
    public String getETagValue() {
        return etag;
    }

    @Override
    public ByteBuffer getDirectBuffer() {
        return map == null ? null : map.duplicate();
    }

    @Override
    public ByteBuffer getIndirectBuffer() {
        return null;
    }

    /** The file, writing ranges straight from the map when there is one. */
    private static final class MappedResource extends PathResource {
        final ByteBuffer map;

        MappedResource(Path file, ByteBuffer map) {
            super(file);
            this.map = map;
        }

        @Override
        public void writeTo(OutputStream out, long start, long count) throws IOException {
            long length = count < 0 && map != null ? map.capacity() - start : count;
            if (map != null && out instanceof HttpOutput && start >= 0 && start + length <= map.capacity()) {
                ByteBuffer slice = map.duplicate();
                slice.limit((int) (start + length)).position((int) start);
                ((HttpOutput) out).write(slice);
                return;
            }
            super.writeTo(out, start, count);
        }
    }
}
