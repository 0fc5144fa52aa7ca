package com.brookfen.quillon.http;

import com.brookfen.quillon.server.PasswordCheck;

import org.eclipse.jetty.server.Request;
import org.eclipse.jetty.server.handler.HandlerWrapper;

import java.io.IOException;
import java.util.function.Predicate;
import java.util.function.Supplier;
import javax.servlet.ServletException;
import javax.servlet.http.HttpServletRequest;
import javax.servlet.http.HttpServletResponse;

/**
 * Every route, when a password digest is set, asks for it through HTTP Basic; only the
 * open paths (the web player's own files) answer without it.
 */
final class BasicAuthHandler extends HandlerWrapper {
    static final String CHALLENGE = "Basic realm=\"Quillon Server\", charset=\"UTF-8\"";
    private final Supplier<String> digest;
    private final Predicate<String> open;

    BasicAuthHandler(Supplier<String> digest, Predicate<String> open) {
        this.digest = digest;
        this.open = open;
    }

    @Override
    public void handle(String target, Request base, HttpServletRequest request, HttpServletResponse response)
            throws IOException, ServletException {
        boolean read = "GET".equals(request.getMethod()) || "HEAD".equals(request.getMethod());
        if ((read && open.test(target)) || PasswordCheck.accepts(digest.get(), request.getHeader("Authorization"))) {
            super.handle(target, base, request, response);
            return;
        }
        base.setHandled(true);
        response.setHeader("WWW-Authenticate", CHALLENGE);
        Answers.text(request, response, HttpServletResponse.SC_UNAUTHORIZED, "text/plain; charset=utf-8",
                "Password required\n");
    }
}
