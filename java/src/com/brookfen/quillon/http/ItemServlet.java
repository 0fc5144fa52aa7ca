package com.brookfen.quillon.http;

import com.brookfen.quillon.library.Ids;
import com.brookfen.quillon.library.Item;

import java.io.IOException;
import java.nio.file.Path;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import javax.servlet.ServletException;
import javax.servlet.http.HttpServlet;
import javax.servlet.http.HttpServletRequest;
import javax.servlet.http.HttpServletResponse;

/**
 * A route about one item: the path after the route's prefix must match the route's
 * pattern, whose first group is the item id. Only the id reaches the library; the file
 * served is the one the library resolves for it, and only while it stays shared.
 */
abstract class ItemServlet extends HttpServlet {
    private static final long serialVersionUID = 1L;
    protected final transient Site site;
    private final Pattern shape;

    ItemServlet(Site site, String shape) {
        this.site = site;
        this.shape = Pattern.compile(shape);
    }

    /** Answers for a shared item whose file is there; the matcher holds the route's other groups. */
    protected abstract void answer(HttpServletRequest request, HttpServletResponse response, Item item, Path file,
                                   Matcher route) throws IOException, ServletException;

    @Override
    protected void doGet(HttpServletRequest request, HttpServletResponse response) throws IOException, ServletException {
        String rest = request.getPathInfo();
        Matcher m = rest == null ? null : shape.matcher(rest);
        if (m == null || !m.matches() || !Ids.wellFormed(m.group(1))) {
            Answers.notFound(request, response);
            return;
        }
        Item item = site.library().snapshot().item(m.group(1));
        Path file = item == null ? null : item.servable();
        if (file == null) {
            Answers.notFound(request, response);
            return;
        }
        answer(request, response, item, file, m);
    }

    @Override
    protected void doHead(HttpServletRequest request, HttpServletResponse response) throws IOException, ServletException {
        // Jetty leaves the body out of HEAD answers itself; the servlet default would wrap the response.
        doGet(request, response);
    }
}
