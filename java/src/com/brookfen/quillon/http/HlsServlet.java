package com.brookfen.quillon.http;

import com.brookfen.quillon.library.Item;
import com.brookfen.quillon.media.LiveConversions;

import java.io.IOException;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.util.regex.Matcher;
import javax.servlet.ServletException;
import javax.servlet.http.HttpServletRequest;
import javax.servlet.http.HttpServletResponse;

/** Live conversion: /hls/{id}/index.m3u8 and its segments /hls/{id}/{n}.ts. */
final class HlsServlet extends ItemServlet {
    private static final long serialVersionUID = 1L;

    HlsServlet(Site site) {
        super(site, "/([^/]+)/(?:index\\.m3u8|(\\d{1,6})\\.ts)");
    }

    @Override
    protected void answer(HttpServletRequest request, HttpServletResponse response, Item item, Path file, Matcher route)
            throws IOException, ServletException {
        LiveConversions live = site.media().live();
        try {
            if (route.group(2) == null) {
                response.setHeader("Cache-Control", "no-cache");
                Answers.text(request, response, HttpServletResponse.SC_OK, "application/vnd.apple.mpegurl",
                        live.playlist(item.id, file));
                return;
            }
            Path segment = live.segment(item.id, file, Integer.parseInt(route.group(2)));
            Answers.file(request, response, FileContent.of(segment, "video/mp2t", null));
        } catch (LiveConversions.BusyException e) {
            Answers.unavailable(request, response, "Too many live conversions; try again shortly");
        } catch (NoSuchFileException e) {
            Answers.notFound(request, response);
        } catch (IOException e) {
            if (response.isCommitted()) {
                throw e;
            }
            Answers.failed(request, response, "Live conversion failed");
        }
    }
}
