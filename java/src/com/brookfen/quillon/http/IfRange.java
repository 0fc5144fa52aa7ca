package com.brookfen.quillon.http;

import org.eclipse.jetty.http.DateParser;
import org.eclipse.jetty.http.HttpContent;

import java.util.Collections;
import java.util.Enumeration;
import javax.servlet.http.HttpServletRequest;
import javax.servlet.http.HttpServletRequestWrapper;

/**
 * Jetty 9.4's resource service ignores If-Range. A range is only honoured when the
 * client's validator still matches (strong ETag, or the exact Last-Modified date);
 * otherwise the Range header is hidden and the whole file is sent.
 */
final class IfRange {
    private IfRange() {
    }

    static HttpServletRequest apply(HttpServletRequest request, HttpContent content) {
        String validator = request.getHeader("If-Range");
        if (validator == null || request.getHeader("Range") == null || matches(validator.trim(), content)) {
            return request;
        }
        return new HttpServletRequestWrapper(request) {
            @Override
            public String getHeader(String name) {
                return "Range".equalsIgnoreCase(name) ? null : super.getHeader(name);
            }

            @Override
            public Enumeration<String> getHeaders(String name) {
                return "Range".equalsIgnoreCase(name) ? Collections.emptyEnumeration() : super.getHeaders(name);
            }
        };
    }

    static boolean matches(String validator, HttpContent content) {
        if (validator.startsWith("\"")) {
            return validator.equals(content.getETagValue());
        }
        if (validator.startsWith("W/")) {
            return false; // a weak tag never validates a range
        }
        long date = DateParser.parseDate(validator);
        long modified = content.getResource().lastModified();
        return date != -1 && date / 1000 == modified / 1000;
    }
}
