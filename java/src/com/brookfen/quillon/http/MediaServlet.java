package com.brookfen.quillon.http;

import com.brookfen.quillon.library.Item;
import com.brookfen.quillon.library.VideoFiles;

import java.io.IOException;
import java.nio.file.Path;
import java.util.regex.Matcher;
import javax.servlet.ServletException;
import javax.servlet.http.HttpServletRequest;
import javax.servlet.http.HttpServletResponse;

/** Direct play: /media/{id}, the file's bytes as they are, ranged. */
final class MediaServlet extends ItemServlet {
    private static final long serialVersionUID = 1L;
    private final transient MappedFiles maps = new MappedFiles();

    MediaServlet(Site site) {
        super(site, "/([^/]+)");
    }

    @Override
    protected void answer(HttpServletRequest request, HttpServletResponse response, Item item, Path file, Matcher route)
            throws IOException, ServletException {
        Answers.file(request, response, FileContent.of(file, VideoFiles.type(item.fileName()), maps));
    }
}
