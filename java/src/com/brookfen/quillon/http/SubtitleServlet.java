package com.brookfen.quillon.http;

import com.brookfen.quillon.library.Item;
import com.brookfen.quillon.subtitles.SubtitleTrack;

import java.io.IOException;
import java.nio.file.Path;
import java.util.List;
import java.util.regex.Matcher;
import javax.servlet.http.HttpServletRequest;
import javax.servlet.http.HttpServletResponse;

/** /subtitles/{id}/{i}.vtt: track i of the item's tracks in their served order, as WebVTT. */
final class SubtitleServlet extends ItemServlet {
    private static final long serialVersionUID = 1L;

    SubtitleServlet(Site site) {
        super(site, "/([^/]+)/(\\d{1,4})\\.vtt");
    }

    @Override
    protected void answer(HttpServletRequest request, HttpServletResponse response, Item item, Path file, Matcher route)
            throws IOException {
        // The same list, in the same order, as the item's listing gave.
        List<SubtitleTrack> tracks = site.media().subtitles().tracks(item.file,
                site.media().metadata().cached(item.file, item.size, item.modified));
        int i = Integer.parseInt(route.group(2));
        if (i >= tracks.size()) {
            Answers.notFound(request, response);
            return;
        }
        String vtt;
        try {
            vtt = site.media().subtitles().webVtt(item.file, tracks.get(i));
        } catch (IOException e) {
            Answers.failed(request, response, "Subtitles unavailable");
            return;
        }
        Answers.text(request, response, HttpServletResponse.SC_OK, "text/vtt; charset=utf-8", vtt);
    }
}
