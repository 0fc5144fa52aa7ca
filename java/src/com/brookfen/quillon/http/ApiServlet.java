package com.brookfen.quillon.http;

import com.brookfen.quillon.library.Folder;
import com.brookfen.quillon.library.Ids;
import com.brookfen.quillon.library.Snapshot;

import java.io.IOException;
import javax.servlet.http.HttpServlet;
import javax.servlet.http.HttpServletRequest;
import javax.servlet.http.HttpServletResponse;

/** /api/library, /api/sections/{id} and /api/sections/{id}/{folderId}. */
final class ApiServlet extends HttpServlet {
    private static final long serialVersionUID = 1L;
    private final transient Site site;

    ApiServlet(Site site) {
        this.site = site;
    }

    @Override
    protected void doGet(HttpServletRequest request, HttpServletResponse response) throws IOException {
        String rest = request.getPathInfo();
        Snapshot snapshot = site.library().snapshot();
        if ("/library".equals(rest)) {
            Answers.json(request, response, out -> LibraryJson.library(out, snapshot, site.media()));
            return;
        }
        String[] parts = rest == null ? new String[0] : rest.split("/", -1);
        // "", "sections", id [, folderId]
        Folder folder = null;
        if ((parts.length == 3 || parts.length == 4) && parts[0].isEmpty() && parts[1].equals("sections")
                && Ids.wellFormed(parts[2]) && (parts.length == 3 || Ids.wellFormed(parts[3]))) {
            folder = snapshot.folder(parts[2], parts.length == 3 ? parts[2] : parts[3]);
        }
        if (folder == null) {
            Answers.notFound(request, response);
            return;
        }
        Folder found = folder;
        Answers.json(request, response, out -> LibraryJson.folder(out, found, site.media()));
    }

    @Override
    protected void doHead(HttpServletRequest request, HttpServletResponse response) throws IOException {
        doGet(request, response);
    }
}
