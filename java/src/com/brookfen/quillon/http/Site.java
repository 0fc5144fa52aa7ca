package com.brookfen.quillon.http;

import com.brookfen.quillon.library.Library;
import com.brookfen.quillon.media.MediaServices;

import java.util.function.IntFunction;
import java.util.function.Supplier;

/**
 * What the HTTP server answers from: the library, the media services, the password digest
 * of the moment and the status page (by page number). The server core hands one over on each start.
 */
public record Site(Library library, MediaServices media, Supplier<String> passwordDigest,
                   IntFunction<String> statusPage) {
}
