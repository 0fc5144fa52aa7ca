package com.brookfen.quillon.library;

import java.nio.charset.StandardCharsets;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.HexFormat;
import java.util.regex.Pattern;

/**
 * Opaque, stable identifiers: a hash of what a thing is (its kind and path), so that the
 * same file keeps its id across scans and restarts and no id reveals or leads to a path.
 */
public final class Ids {
    private static final Pattern SHAPE = Pattern.compile("[0-9a-f]{20}");

    private Ids() {
    }

    // A large library asks for hundreds of thousands: one digest per thread, not one per id.
    private static final ThreadLocal<MessageDigest> SHA = ThreadLocal.withInitial(() -> {
        try {
            return MessageDigest.getInstance("SHA-256");
        } catch (NoSuchAlgorithmException e) {
            throw new IllegalStateException("SHA-256 missing from the runtime", e);
        }
    });

    static String of(String kind, String key) {
        MessageDigest sha = SHA.get();
        sha.reset();
        sha.update(kind.getBytes(StandardCharsets.UTF_8));
        sha.update((byte) 0);
        byte[] digest = sha.digest(key.getBytes(StandardCharsets.UTF_8));
        return HexFormat.of().formatHex(digest, 0, 10);
    }

    /** Whether a request's text can be an id at all (checked before any look-up). */
    public static boolean wellFormed(String text) {
        return text != null && SHAPE.matcher(text).matches();
    }
}
