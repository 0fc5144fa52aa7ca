package com.brookfen.quillon.http;

import com.brookfen.quillon.library.Item;

import java.io.IOException;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.util.regex.Matcher;
import javax.servlet.ServletException;
import javax.servlet.http.HttpServletRequest;
import javax.servlet.http.HttpServletResponse;

/** /thumbnails/{id}.jpg: a cached frame of the video. */
final class ThumbnailServlet extends ItemServlet {
    private static final long serialVersionUID = 1L;

    ThumbnailServlet(Site site) {
        super(site, "/([^/]+)\\.jpg");
    }

    @Override
    protected void answer(HttpServletRequest request, HttpServletResponse response, Item item, Path file, Matcher route)
            throws IOException, ServletException {
        Path jpeg;
        try {
            jpeg = site.media().thumbnails().thumbnail(item.id, file);
        } catch (NoSuchFileException e) {
            Answers.notFound(request, response);
            return;
        } catch (IOException e) {
            Answers.failed(request, response, "No thumbnail");
            return;
        }
        Answers.file(request, response, FileContent.of(jpeg, "image/jpeg", null));
    }
}
