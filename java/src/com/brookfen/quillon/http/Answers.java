package com.brookfen.quillon.http;

import org.eclipse.jetty.http.HttpContent;
import org.eclipse.jetty.server.InclusiveByteRange;
import org.eclipse.jetty.server.ResourceService;

import java.io.BufferedWriter;
import java.io.IOException;
import java.io.OutputStreamWriter;
import java.io.Writer;
import java.nio.charset.StandardCharsets;
import java.util.Enumeration;
import java.util.List;
import java.util.function.Supplier;
import javax.servlet.ServletException;
import javax.servlet.http.HttpServletRequest;
import javax.servlet.http.HttpServletResponse;

/** The ways a route answers: a text, an error, or a file through Jetty's static content machinery. */
final class Answers {
    private Answers() {
    }

    static void text(HttpServletRequest request, HttpServletResponse response, int status, String type, String body)
            throws IOException {
        byte[] bytes = body.getBytes(StandardCharsets.UTF_8);
        response.setStatus(status);
        response.setContentType(type);
        response.setContentLength(bytes.length);
        if (!"HEAD".equals(request.getMethod())) {
            response.getOutputStream().write(bytes);
        }
    }

    /** A document written straight to the client as it is made. */
    interface Document {
        void write(Writer out) throws IOException;
    }

    static void json(HttpServletRequest request, HttpServletResponse response, Document body) throws IOException {
        response.setHeader("Cache-Control", "no-cache");
        response.setStatus(HttpServletResponse.SC_OK);
        response.setContentType("application/json; charset=utf-8");
        if ("HEAD".equals(request.getMethod())) {
            return;
        }
        Writer out = new BufferedWriter(new OutputStreamWriter(response.getOutputStream(), StandardCharsets.UTF_8),
                16 * 1024);
        body.write(out);
        out.flush();
    }

    static void notFound(HttpServletRequest request, HttpServletResponse response) throws IOException {
        text(request, response, HttpServletResponse.SC_NOT_FOUND, "text/plain; charset=utf-8", "Not found\n");
    }

    static void unavailable(HttpServletRequest request, HttpServletResponse response, String why) throws IOException {
        response.setHeader("Retry-After", "10");
        text(request, response, HttpServletResponse.SC_SERVICE_UNAVAILABLE, "text/plain; charset=utf-8", why + "\n");
    }

    static void failed(HttpServletRequest request, HttpServletResponse response, String why) throws IOException {
        text(request, response, HttpServletResponse.SC_INTERNAL_SERVER_ERROR, "text/plain; charset=utf-8", why + "\n");
    }

    /**
     * Answers with one file's content: Jetty's resource service does ranges, suffix ranges,
     * 416, ETag and Last-Modified validation, HEAD, and the transfer itself.
     */
    static void file(HttpServletRequest request, HttpServletResponse response, HttpContent content)
            throws IOException, ServletException {
        ResourceService service = new ResourceService() {
            @Override
            protected void sendStatus(HttpServletResponse response, int status, Supplier<String> etag)
                    throws IOException {
                // Jetty 9.4 announces the whole file's length on a 416 and then sends nothing.
                if (status == HttpServletResponse.SC_REQUESTED_RANGE_NOT_SATISFIABLE) {
                    response.setContentLength(0);
                }
                super.sendStatus(response, status, etag);
            }

            @Override
            protected boolean sendData(HttpServletRequest request, HttpServletResponse response, boolean include,
                                       HttpContent content, Enumeration<String> ranges) throws IOException {
                // Jetty writes a single range with a blocked thread; a mapped file's range goes out
                // as a whole content of its own instead, asynchronously like a whole file.
                if (ranges != null && content instanceof FileContent && ((FileContent) content).mapped()) {
                    long length = content.getContentLengthValue();
                    List<InclusiveByteRange> satisfiable = InclusiveByteRange.satisfiableRanges(ranges, length);
                    if (satisfiable != null && satisfiable.size() == 1) {
                        InclusiveByteRange range = satisfiable.get(0);
                        response.setStatus(HttpServletResponse.SC_PARTIAL_CONTENT);
                        response.setHeader("Content-Range", range.toHeaderRangeString(length));
                        return super.sendData(request, response, include,
                                ((FileContent) content).range(range.getFirst(), range.getSize()), null);
                    }
                    ranges = request.getHeaders("Range");
                }
                return super.sendData(request, response, include, content, ranges);
            }
        };
        service.setAcceptRanges(true);
        service.setEtags(true);
        service.setDirAllowed(false);
        service.setContentFactory((path, maxBuffer) -> content);
        service.doGet(IfRange.apply(request, content), response);
    }
}
